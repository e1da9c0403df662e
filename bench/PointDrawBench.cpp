// Draw throughput at the headset's eye size: the point renderer drawing both eyes' latest batches, next to a
// bare glDrawArrays of the same buffers with the plainest program GL allows, which is the limit of this GL
// path. Uploads are finished before timing starts, so only drawing is measured.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "bench/BenchContext.h"
#include "common/Mat4d.h"
#include "common/Point3dRGB.h"
#include "common/Point3dRGBA.h"
#include "engine/Buffer.h"
#include "engine/GL.h"
#include "engine/Renderer.h"
#include "engine/Target.h"
#include "engine/Texture.h"
#include "vr/points/PointGrabber.h"
#include "vr/points/PointRenderer.h"

namespace {

constexpr int EYE_WIDTH = 1512;
constexpr int EYE_HEIGHT = 1680;

// Points in front of the camera, spread over the whole view.
std::vector<VR::Point3dRGBA> makeBatch(std::size_t count) {
    std::mt19937 random(1);
    std::uniform_real_distribution<float> depth(1.0f, 20.0f);
    std::uniform_real_distribution<float> spread(-0.8f, 0.8f);
    std::vector<VR::Point3dRGBA> result(count);
    for (std::size_t i = 0; i < count; ++i) {
        const float z = depth(random);
        result[i] = {spread(random) * z, spread(random) * z, -z, static_cast<std::uint8_t>(i), 128, 64, 255};
    }
    return result;
}

GLuint compile(GLenum stage, const char* source) {
    const GLuint shader = glCreateShader(stage);
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    return shader;
}

// The plainest point program: position through one matrix, the vertex colour out.
GLuint bareProgram() {
    const GLuint vertex = compile(GL_VERTEX_SHADER, R"(#version 410 core
in vec3 Position;
in vec4 VertexColor;
uniform mat4 matrix;
out vec4 colour;
void main() { gl_Position = matrix * vec4(Position, 1.0); gl_PointSize = 1.0; colour = VertexColor; })");
    const GLuint fragment = compile(GL_FRAGMENT_SHADER, R"(#version 410 core
in vec4 colour;
out vec4 fragColor;
void main() { fragColor = colour; })");
    const GLuint program = glCreateProgram();
    glAttachShader(program, vertex);
    glAttachShader(program, fragment);
    glBindAttribLocation(program, 0, "Position");
    glBindAttribLocation(program, 1, "VertexColor");
    glLinkProgram(program);
    glDeleteShader(vertex);
    glDeleteShader(fragment);
    return program;
}

// Both eyes' batches of `points` each on the GPU in a point renderer fed by a real grabber thread.
class Scene {
public:
    explicit Scene(std::size_t points)
        : prepared(makeBatch(points)),
          grabber([this](float fov, unsigned short, unsigned short, float, float, Ko_1_1::Vec3d<double>,
                         Ko_1_1::Vec3d<double>, Ko_1_1::Vec3d<double>, std::vector<VR::Point3dRGBA>& out) {
              if (fov != VR::PointGrabber::PERIPHERY_FOV) {
                  out.insert(out.end(), prepared.begin(), prepared.end());
              }
          }) {
        grabber.setResolution(1300, 1300);
        Ko_1_1::Mat4d<float> camera;
        grabber.setCameraToWorldMatrix(camera, 0);
        grabber.setCameraToWorldMatrix(camera, 1);
        renderer = std::make_unique<PointRenderer>(grabber, 1.0f, 0, 0);
        grabber.startThread();
        // Every slot turns over a few times: both eyes' batches are complete and uploaded.
        int turns = 0;
        int lastSlot = renderer->getCurrentSlot();
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (turns < 4 && std::chrono::steady_clock::now() < giveUp) {
            renderer->uploadNewBuffer();
            if (renderer->getCurrentSlot() != lastSlot) {
                lastSlot = renderer->getCurrentSlot();
                ++turns;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        grabber.stopThread();

        auto color = std::make_shared<Brume::Texture>(EYE_WIDTH, EYE_HEIGHT, GL_RGBA, GL_NEAREST, GL_NEAREST,
                                                      GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
        auto depthStencil =
            std::make_shared<Brume::Texture>(EYE_WIDTH, EYE_HEIGHT, GL_DEPTH_STENCIL, GL_NEAREST, GL_NEAREST,
                                             GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
        target.setTarget(std::make_shared<Brume::Target>(color, depthStencil));
        target.clear();
        glViewport(0, 0, EYE_WIDTH, EYE_HEIGHT);
        glEnable(GL_DEPTH_TEST);
        glFinish();
    }
    ~Scene() { renderer.reset(); }

    const Ko_1_1::Mat4d<float> viewProjection = Ko_1_1::Mat4d<float>::perspective(
        static_cast<float>(EYE_WIDTH), static_cast<float>(EYE_HEIGHT), -0.02f, -1000.0f, 1.6f, 0.0f, 0.0f);
    std::vector<VR::Point3dRGBA> prepared;
    VR::PointGrabber grabber;
    std::unique_ptr<PointRenderer> renderer;
    Brume::Renderer target;
};

void report(benchmark::State& state, std::int64_t pointsPerFrame) {
    state.SetItemsProcessed(state.iterations() * pointsPerFrame);
    state.counters["points/frame"] = static_cast<double>(pointsPerFrame);
    state.counters["glError"] = static_cast<double>(glGetError());
    state.SetLabel(Bench::Context::renderer());
}

// The viewer's own draw of both eyes' batches.
void pointRenderer(benchmark::State& state) {
    Bench::Context context;
    if (!context.ok()) {
        state.SkipWithError("no OpenGL 4.1 core context (no display, Xvfb or GPU device)");
        return;
    }
    Scene scene(static_cast<std::size_t>(state.range(0)));
    std::int64_t drawn = 0;
    for (int slot = 0; slot < PointRenderer::BUFFER_COUNT; ++slot) {
        if (slot != scene.renderer->getCurrentSlot()) {
            drawn += scene.renderer->getSlot(slot).centreCount + scene.renderer->getSlot(slot).peripheryCount;
        }
    }
    for (auto _ : state) {
        scene.renderer->drawPoints(scene.target, scene.viewProjection);
        glFinish();
    }
    report(state, drawn);
}

// The same buffers drawn with one glDrawArrays each through the plainest program.
void bareDrawArrays(benchmark::State& state) {
    Bench::Context context;
    if (!context.ok()) {
        state.SkipWithError("no OpenGL 4.1 core context (no display, Xvfb or GPU device)");
        return;
    }
    Scene scene(static_cast<std::size_t>(state.range(0)));
    const GLuint program = bareProgram();
    GLuint arrays[PointRenderer::BUFFER_COUNT];
    glGenVertexArrays(PointRenderer::BUFFER_COUNT, arrays);
    GLsizei counts[PointRenderer::BUFFER_COUNT] = {};
    std::int64_t drawn = 0;
    for (int slot = 0; slot < PointRenderer::BUFFER_COUNT; ++slot) {
        glBindVertexArray(arrays[slot]);
        glBindBuffer(GL_ARRAY_BUFFER, scene.renderer->getBuffer(slot)->getId());
        glEnableVertexAttribArray(0);
        glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, sizeof(VR::Point3dRGB), nullptr);
        glEnableVertexAttribArray(1);
        glVertexAttribPointer(1, 4, GL_UNSIGNED_BYTE, GL_TRUE, sizeof(VR::Point3dRGB),
                              reinterpret_cast<const void*>(12));
        if (slot != scene.renderer->getCurrentSlot()) {
            const auto& d = scene.renderer->getSlot(slot);
            counts[slot] = static_cast<GLsizei>(d.centreCount + d.peripheryCount);
            drawn += counts[slot];
        }
    }
    glUseProgram(program);
    glEnable(GL_PROGRAM_POINT_SIZE);
    glUniformMatrix4fv(glGetUniformLocation(program, "matrix"), 1, GL_FALSE, scene.viewProjection.data());
    for (auto _ : state) {
        for (int slot = 0; slot < PointRenderer::BUFFER_COUNT; ++slot) {
            if (counts[slot] > 0) {
                glBindVertexArray(arrays[slot]);
                glDrawArrays(GL_POINTS, 0, counts[slot]);
            }
        }
        glFinish();
    }
    report(state, drawn);
    glBindVertexArray(0);
    glDeleteVertexArrays(PointRenderer::BUFFER_COUNT, arrays);
    glDeleteProgram(program);
}

} // namespace

BENCHMARK(pointRenderer)->Arg(1000000)->Arg(1600000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(bareDrawArrays)->Arg(1000000)->Arg(1600000)->Unit(benchmark::kMillisecond)->UseRealTime();
