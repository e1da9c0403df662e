// The render thread's share of point streaming at the viewer's highest quality: each frame writes at most
// one upload step of the newest batch to the GPU and draws the two eyes' latest batches of a million
// points each into an eye-sized target. A real grabber thread feeds it from a host that answers instantly.

#include <benchmark/benchmark.h>

#include <GLFW/glfw3.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "common/Mat4d.h"
#include "common/Point3dRGB.h"
#include "common/Point3dRGBA.h"
#include "engine/Buffer.h"
#include "engine/GL.h"
#include "engine/GLFunctions.h"
#include "engine/Renderer.h"
#include "engine/Target.h"
#include "engine/Texture.h"
#include "vr/points/PointGrabber.h"
#include "vr/points/PointRenderer.h"

#include "bench/BenchContext.h"

namespace {

constexpr std::size_t BATCH = 1000000;
constexpr int TARGET_WIDTH = 1512;
constexpr int TARGET_HEIGHT = 1680;

// A million points in front of the camera, spread over the whole view.
std::vector<VR::Point3dRGBA> makeBatch() {
    std::mt19937 random(1);
    std::uniform_real_distribution<float> depth(1.0f, 20.0f);
    std::uniform_real_distribution<float> spread(-0.8f, 0.8f);
    std::vector<VR::Point3dRGBA> result(BATCH);
    for (std::size_t i = 0; i < BATCH; ++i) {
        const float z = depth(random);
        result[i] = {spread(random) * z, spread(random) * z, -z, static_cast<std::uint8_t>(i), 128, 64, 255};
    }
    return result;
}

void uploadAndDraw(benchmark::State& state) {
    Bench::Context context;
    if (!context.ok()) {
        state.SkipWithError("no OpenGL 4.1 core context (no display, Xvfb or GPU device)");
        return;
    }
    const std::vector<VR::Point3dRGBA> prepared = makeBatch();
    // Only the centre pass answers, so every batch holds exactly the prepared million points.
    VR::PointGrabber grabber([&prepared](float fov, unsigned short, unsigned short, float, float,
                                         Ko_1_1::Vec3d<double>, Ko_1_1::Vec3d<double>, Ko_1_1::Vec3d<double>,
                                         std::vector<VR::Point3dRGBA>& out) {
        if (fov != VR::PointGrabber::PERIPHERY_FOV) {
            out.insert(out.end(), prepared.begin(), prepared.end());
        }
    });
    grabber.setResolution(1300, 1300);
    Ko_1_1::Mat4d<float> camera = Ko_1_1::Mat4d<float>::identity();
    grabber.setCameraToWorldMatrix(camera, 0);
    grabber.setCameraToWorldMatrix(camera, 1);
    {
        PointRenderer points(grabber, 1.0f, 0, 0);
        grabber.startThread();

        auto color = std::make_shared<Brume::Texture>(TARGET_WIDTH, TARGET_HEIGHT, GL_RGBA, GL_NEAREST,
                                                      GL_NEAREST, GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
        auto depthStencil =
            std::make_shared<Brume::Texture>(TARGET_WIDTH, TARGET_HEIGHT, GL_DEPTH_STENCIL, GL_NEAREST,
                                             GL_NEAREST, GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
        Brume::Renderer renderer;
        renderer.setTarget(std::make_shared<Brume::Target>(color, depthStencil));
        renderer.clear();
        glViewport(0, 0, TARGET_WIDTH, TARGET_HEIGHT);
        glEnable(GL_DEPTH_TEST);
        const Ko_1_1::Mat4d<float> viewProjection = Ko_1_1::Mat4d<float>::perspective(
            static_cast<float>(TARGET_WIDTH), static_cast<float>(TARGET_HEIGHT), -0.02f, -1000.0f, 1.6f, 0.0f,
            0.0f);

        // Until both eyes have a complete batch nothing is drawn; start timing from the steady state.
        int turns = 0;
        int lastSlot = points.getCurrentSlot();
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (turns < 3 && std::chrono::steady_clock::now() < giveUp) {
            points.uploadNewBuffer();
            if (points.getCurrentSlot() != lastSlot) {
                lastSlot = points.getCurrentSlot();
                ++turns;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        glFinish();

        std::int64_t uploaded = 0;
        for (auto _ : state) {
            const int slot = points.getCurrentSlot();
            const std::int32_t before = points.getSlot(slot).uploadedCount;
            points.uploadNewBuffer();
            points.drawPoints(renderer, viewProjection);
            glFinish();
            // A call either continues the slot's batch, takes a new batch over into it (its count starts
            // again), or finishes it and turns to the next slot.
            const VR::PointGrabber::BufferData& after = points.getSlot(slot);
            if (points.getCurrentSlot() != slot) {
                uploaded += after.centreCount + after.peripheryCount - before;
            } else if (after.uploadedCount >= before) {
                uploaded += after.uploadedCount - before;
            } else {
                uploaded += after.uploadedCount;
            }
        }
        grabber.stopThread();
        state.SetItemsProcessed(uploaded);
        state.counters["uploaded/frame"] =
            benchmark::Counter(static_cast<double>(uploaded) / state.iterations());
        state.counters["glError"] = static_cast<double>(glGetError());
    }
}

// The upload step alone: one frame's share of a batch written into a buffer sized like the renderer's,
// at the next offset each time, finished before the clock stops.
void uploadStep(benchmark::State& state) {
    Bench::Context context;
    if (!context.ok()) {
        state.SkipWithError("no OpenGL 4.1 core context (no display, Xvfb or GPU device)");
        return;
    }
    constexpr std::size_t RECORDS = 1300u * 1300u * 4u;
    constexpr std::size_t STEP = static_cast<std::size_t>(PointRenderer::UPLOAD_LIMIT);
    {
        Brume::Buffer buffer(GL_DYNAMIC_DRAW, sizeof(VR::Point3dRGB),
                             std::vector<Brume::Buffer::Attribute>{{"Position", GL_FLOAT, 3, 0},
                                                                   {"VertexColor", GL_UNSIGNED_BYTE, 4, 12}});
        buffer.setData(std::vector<VR::Point3dRGB>(RECORDS));
        const std::vector<VR::Point3dRGB> step(STEP, VR::Point3dRGB{1.0f, 2.0f, -3.0f, 4, 5, 6, 0});
        std::size_t offset = 0;
        for (auto _ : state) {
            buffer.subData(step.data(), STEP, offset * sizeof(VR::Point3dRGB));
            glFinish();
            offset = offset + 2 * STEP > RECORDS ? 0 : offset + STEP;
        }
        state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * STEP));
        state.SetBytesProcessed(
            static_cast<std::int64_t>(state.iterations() * STEP * sizeof(VR::Point3dRGB)));
        state.counters["glError"] = static_cast<double>(glGetError());
    }
}

} // namespace

// What the renderer's set-up pays for the three point buffers at the viewer's resolution of 1300: each is
// sized for 1300 x 1300 x 4 points of 16 bytes (108 MB), allocated without data.
void rendererConstruction(benchmark::State& state) {
    Bench::Context context;
    if (!context.ok()) {
        state.SkipWithError("no OpenGL 4.1 core context (no display, Xvfb or GPU device)");
        return;
    }
    VR::PointGrabber grabber([](float, unsigned short, unsigned short, float, float, Ko_1_1::Vec3d<double>,
                                Ko_1_1::Vec3d<double>, Ko_1_1::Vec3d<double>,
                                std::vector<VR::Point3dRGBA>&) {});
    grabber.setResolution(static_cast<unsigned short>(state.range(0)),
                          static_cast<unsigned short>(state.range(0)));
    for (auto _ : state) {
        PointRenderer renderer(grabber, 1.0f, 0, 0);
        glFinish();
        benchmark::DoNotOptimize(renderer.getBuffer(0)->getByteSize());
    }
}

BENCHMARK(uploadStep)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(rendererConstruction)
    ->Arg(10)
    ->Arg(1300)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(5);
BENCHMARK(uploadAndDraw)->Unit(benchmark::kMillisecond)->UseRealTime();
