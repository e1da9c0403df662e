#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/Buffer.h"
#include "engine/Geometry.h"
#include "engine/Material.h"
#include "engine/Renderer.h"
#include "engine/Target.h"
#include "engine/Texture.h"
#include "tests/support/GLContext.h"

using namespace Brume;
using OrvelTest::makeMaterial;
using OrvelTest::makeTexture;

namespace {

struct Vertex {
    float x, y, z;
};
struct Color {
    std::uint8_t r, g, b, a;
};

// Two materials reading the same inputs at swapped locations; colours pass straight through.
std::string colouredVertexShader(int positionLocation, int colorLocation) {
    return "#version 410 core\nlayout(location = " + std::to_string(positionLocation) +
           ") in vec3 Position;\nlayout(location = " + std::to_string(colorLocation) +
           ") in vec4 VertexColor;\nout vec4 color;\n"
           "void main() { color = VertexColor; gl_PointSize = 1.0; gl_Position = vec4(Position, 1.0); }\n";
}
const char* const PASS_THROUGH = "#version 410 core\nin vec4 color;\nout vec4 fragColor;\n"
                                 "void main() { fragColor = color; }\n";

// Six vertices along the bottom and top edges of clip space: x = -1, 0, 1.
const std::vector<Vertex> GRID = {{-1, -1, 0}, {0, -1, 0}, {1, -1, 0}, {-1, 1, 0}, {0, 1, 0}, {1, 1, 0}};

class RendererGLTest : public OrvelTest::GLTest {
protected:
    void SetUp() override {
        GLTest::SetUp();
        if (HasFatalFailure()) {
            return;
        }
        target = std::make_shared<Target>(makeTexture(4, 4, GL_RGBA), makeTexture(4, 4, GL_DEPTH_STENCIL));
        renderer.setTarget(target);
        glClearColor(0, 0, 0, 0);
        glViewport(0, 0, 4, 4);
    }

    // The GL objects must go while the context still exists.
    void TearDown() override {
        renderer.setTarget(nullptr);
        target.reset();
        GLTest::TearDown();
    }

    static std::shared_ptr<Geometry> geometry(GLenum mode, const std::vector<Vertex>& positions,
                                              std::size_t colors, Color color) {
        auto result = std::make_shared<Geometry>(mode);
        auto position = std::make_shared<Buffer>(
            GL_STATIC_DRAW, 12, std::vector<Buffer::Attribute>{{"Position", GL_FLOAT, 3, 0}});
        position->setData(positions);
        result->addBuffer(position);
        if (colors > 0) {
            auto colour = std::make_shared<Buffer>(
                GL_STATIC_DRAW, 4, std::vector<Buffer::Attribute>{{"VertexColor", GL_UNSIGNED_BYTE, 4, 0}});
            colour->setData(std::vector<Color>(colors, color));
            result->addBuffer(colour);
        }
        return result;
    }

    static bool lit(int x, int y) { return OrvelTest::readPixel(x, y).a != 0; }

    std::shared_ptr<Target> target;
    Renderer renderer;
};

const Color RED = {255, 0, 0, 255};

} // namespace

TEST_F(RendererGLTest, IndexedDrawStartsAtFirstIndex) {
    auto red = makeMaterial(colouredVertexShader(0, 1), PASS_THROUGH);
    auto quads = geometry(GL_TRIANGLES, GRID, GRID.size(), RED);
    // Left half: two triangles; right half: two more.
    const std::uint32_t indices[12] = {0, 1, 3, 1, 4, 3, 1, 2, 4, 2, 5, 4};
    quads->setIndices(indices, 12, GL_UNSIGNED_INT, 4);

    renderer.clear();
    renderer.draw(red, quads, 6, 6);
    EXPECT_FALSE(lit(0, 0));
    EXPECT_FALSE(lit(1, 3));
    EXPECT_TRUE(lit(2, 0));
    EXPECT_TRUE(lit(3, 3));

    // Only the second triangle, (0,-1) (0,1) (-1,1): the upper right corner of the left half.
    renderer.clear();
    renderer.draw(red, quads, 3, 3);
    EXPECT_TRUE(lit(1, 3));
    EXPECT_FALSE(lit(0, 0));
    EXPECT_FALSE(lit(3, 3));
}

TEST_F(RendererGLTest, AttributesAreSetUpByNameOnEveryDraw) {
    auto first = makeMaterial(colouredVertexShader(0, 1), PASS_THROUGH);
    auto swapped = makeMaterial(colouredVertexShader(1, 0), PASS_THROUGH);
    auto quad =
        geometry(GL_TRIANGLES, {{-1, -1, 0}, {1, -1, 0}, {-1, 1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}}, 6,
                 Color{255, 128, 0, 255});
    for (const auto& mat : {first, swapped, first}) {
        OrvelTest::GLCallRecorder recorder;
        renderer.clear();
        renderer.draw(mat, quad, 0, 0);
        EXPECT_EQ(recorder.count("glGetAttribLocation"), 2);
        // Unsigned bytes arrive normalised: 128 stays 128 on the way through.
        const OrvelTest::Rgba pixel = OrvelTest::readPixel(2, 2);
        EXPECT_EQ(pixel.r, 255);
        EXPECT_NEAR(pixel.g, 128, 1);
        EXPECT_EQ(pixel.b, 0);
    }
}

TEST_F(RendererGLTest, PointDrawCountsLargestBufferAndKeepsProgramPointSize) {
    auto points = makeMaterial(colouredVertexShader(0, 1), PASS_THROUGH);
    auto cloud = geometry(GL_POINTS, std::vector<Vertex>(10, Vertex{0, 0, 0}), 25, RED);
    // The position buffer says 10 vertices but holds 25, so reading 25 stays inside its storage.
    glBindBuffer(GL_ARRAY_BUFFER, cloud->getBuffers()[0]->getId());
    const std::vector<Vertex> storage(25, Vertex{0, 0, 0});
    glBufferData(GL_ARRAY_BUFFER, 25 * sizeof(Vertex), storage.data(), GL_STATIC_DRAW);

    GLuint query = 0;
    glGenQueries(1, &query);
    auto primitives = [&](std::int64_t first, std::int64_t count) {
        glBeginQuery(GL_PRIMITIVES_GENERATED, query);
        renderer.draw(points, cloud, first, count);
        glEndQuery(GL_PRIMITIVES_GENERATED);
        GLuint result = 0;
        glGetQueryObjectuiv(query, GL_QUERY_RESULT, &result);
        return result;
    };
    glDisable(GL_PROGRAM_POINT_SIZE);
    EXPECT_EQ(primitives(0, 0), 25u);
    EXPECT_EQ(glIsEnabled(GL_PROGRAM_POINT_SIZE), GL_TRUE);
    EXPECT_EQ(primitives(5, 3), 3u);
    glDeleteQueries(1, &query);
}

TEST_F(RendererGLTest, NullTargetDrawUsesBoundFrameBufferButClearBindsDefault) {
    auto red = makeMaterial(colouredVertexShader(0, 1), PASS_THROUGH);
    auto quads = geometry(GL_TRIANGLES, GRID, GRID.size(), RED);
    const std::uint32_t indices[6] = {0, 2, 3, 2, 5, 3};
    quads->setIndices(indices, 6, GL_UNSIGNED_INT, 4);
    GLint bound = -1;

    renderer.clear(); // into the target, which the null-target draw below must then still use
    renderer.setTarget(nullptr);
    renderer.draw(red, quads, 0, 0);
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &bound);
    EXPECT_EQ(static_cast<GLuint>(bound), target->getFramebuffer());
    EXPECT_TRUE(lit(1, 1));

    renderer.clear();
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &bound);
    EXPECT_EQ(bound, 0);

    // With a target, the draw binds it too.
    renderer.setTarget(target);
    renderer.draw(red, quads, 0, 0);
    glGetIntegerv(GL_FRAMEBUFFER_BINDING, &bound);
    EXPECT_EQ(static_cast<GLuint>(bound), target->getFramebuffer());
}

TEST_F(RendererGLTest, MaterialTexturesAreBoundToTheirUnits) {
    // Each sampler contributes one channel, so white means every sampler saw its own texture.
    auto sampling = makeMaterial(
        "#version 410 core\nin vec3 Position;\nvoid main() { gl_Position = vec4(Position, 1.0); }\n",
        "#version 410 core\nuniform sampler2D red;\nuniform sampler2D green;\n"
        "uniform sampler2D blue;\nout vec4 c;\nvoid main() {\n vec2 p = vec2(0.5);\n"
        " c = vec4(texture(red, p).r, texture(green, p).g, texture(blue, p).b, 1.0);\n}\n");
    const char* names[3] = {"red", "green", "blue"};
    const std::uint32_t colors[3] = {0xff0000ffu, 0xff00ff00u, 0xffff0000u}; // RGBA bytes in little endian
    std::shared_ptr<Texture> textures[3];
    for (int i = 0; i < 3; ++i) {
        textures[i] = makeTexture(1, 1, GL_RGBA);
        textures[i]->setData(&colors[i], 4);
        sampling->set(names[i], textures[i]);
    }
    auto quad = geometry(GL_TRIANGLE_STRIP, {{-1, -1, 0}, {1, -1, 0}, {-1, 1, 0}, {1, 1, 0}}, 0, RED);

    glActiveTexture(GL_TEXTURE5);
    renderer.clear();
    renderer.draw(sampling, quad, 0, 0);
    const OrvelTest::Rgba pixel = OrvelTest::readPixel(1, 1);
    EXPECT_EQ(pixel.r, 255);
    EXPECT_EQ(pixel.g, 255);
    EXPECT_EQ(pixel.b, 255);
    GLint active = 0;
    glGetIntegerv(GL_ACTIVE_TEXTURE, &active);
    EXPECT_EQ(active, GL_TEXTURE2);
    glActiveTexture(GL_TEXTURE0);
}
