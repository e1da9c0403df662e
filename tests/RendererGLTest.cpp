#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/Mat4d.h"
#include "engine/Buffer.h"
#include "engine/Exception.h"
#include "engine/GLFunctions.h"
#include "engine/Geometry.h"
#include "engine/Material.h"
#include "engine/Renderer.h"
#include "engine/Shader.h"
#include "engine/Target.h"
#include "engine/Texture.h"
#include "tests/support/GLContext.h"
#include "tests/support/Messages.h"

using namespace Brume;
using OrvelTest::makeMaterial;
using OrvelTest::makeTexture;
using OrvelTest::thrownMessage;

namespace {

using Layout = std::vector<Buffer::Attribute>;

struct Vertex {
    float x, y, z;
};
struct Color {
    std::uint8_t r, g, b, a;
};

// Six vertices along the bottom and top edges of clip space: x = -1, 0, 1.
const std::vector<Vertex> GRID = {{-1, -1, 0}, {0, -1, 0}, {1, -1, 0}, {-1, 1, 0}, {0, 1, 0}, {1, 1, 0}};

// Reads inputs at the given locations; the colour passes straight through.
std::string colouredVertexShader(int positionLocation, int colorLocation) {
    return "#version 410 core\nlayout(location = " + std::to_string(positionLocation) +
           ") in vec3 Position;\nlayout(location = " + std::to_string(colorLocation) +
           ") in vec4 VertexColor;\nout vec4 color;\n"
           "void main() { color = VertexColor; gl_Position = vec4(Position, 1.0); }\n";
}
const char* const PASS_THROUGH = "#version 410 core\nin vec4 color;\nout vec4 fragColor;\n"
                                 "void main() { fragColor = color; }\n";

GLint integer(GLenum name) {
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
}

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

    // Positions, and as many colour records as given.
    static std::shared_ptr<Geometry> geometry(const std::vector<Vertex>& positions, std::size_t colors = 0,
                                              Color color = {255, 0, 0, 255}) {
        auto result = std::make_shared<Geometry>(GL_TRIANGLES);
        auto position = std::make_shared<Buffer>(GL_STATIC_DRAW, 12, Layout{{"Position", GL_FLOAT, 3, 0}});
        position->setData(positions);
        result->addBuffer(position);
        if (colors > 0) {
            auto colour =
                std::make_shared<Buffer>(GL_STATIC_DRAW, 4, Layout{{"VertexColor", GL_UNSIGNED_BYTE, 4, 0}});
            colour->setData(std::vector<Color>(colors, color));
            result->addBuffer(colour);
        }
        return result;
    }

    static bool lit(int x, int y) { return OrvelTest::readPixel(x, y).a != 0; }

    std::shared_ptr<Target> target;
    Renderer renderer;
};

} // namespace

TEST_F(RendererGLTest, EngineFailuresCarryTheirFixedMessages) {
    Buffer buffer(GL_DYNAMIC_DRAW, 8, {{"Value", GL_FLOAT, 2, 0}});
    buffer.setData(std::vector<float>{1, 2, 3, 4});
    const float two[2] = {7, 8};
    Geometry geometry(GL_TRIANGLES);
    geometry.addBuffer(std::make_shared<Buffer>(GL_STATIC_DRAW, 12, Layout{{"Position", GL_FLOAT, 3, 0}}));
    auto material = makeMaterial("#version 410 core\nin vec3 Position;\nuniform float unused;\n"
                                 "void main() { gl_Position = vec4(Position, 1.0); }\n",
                                 "#version 410 core\nout vec4 c;\nvoid main() { c = vec4(1.0); }\n");
    // A case that makes a buffer of the stride and layout.
    auto makesBuffer = [](std::size_t stride, Layout layout) {
        return [=] { Buffer(GL_STATIC_DRAW, stride, layout); };
    };

    const auto clash = std::make_shared<Buffer>(GL_STATIC_DRAW, 4, Layout{{"Position", GL_FLOAT, 1, 0}});

    const struct {
        std::function<void()> action;
        const char* message;
    } cases[] = {
        {[] { Buffer::Attribute("Position", GL_FLOAT, 5, 0); }, "Number of components must be 1, 2, 3 or 4."},
        // The largest end counts, not the last attribute's.
        {makesBuffer(15, {{"Color", GL_UNSIGNED_BYTE, 4, 12}, {"Position", GL_FLOAT, 3, 0}}),
         "Attributes require bigger stride than specified"},
        {makesBuffer(12, {{"Index", GL_INT, 1, 0}}), "Unknown attribute type encountered"},
        // Stride 0 skips the size checks but not the name check.
        {makesBuffer(0, {{"uv", GL_INT, 3, 0}, {"uv", GL_FLOAT, 3, 0}}),
         "Attributes with duplicate names encountered"},
        // An exact fit, names differing in case and zero components are accepted.
        {makesBuffer(16, {{"Position", GL_FLOAT, 3, 0},
                          {"position", GL_FLOAT, 0, 0},
                          {"Color", GL_UNSIGNED_BYTE, 4, 12}}),
         "<no exception>"},
        {[&] { buffer.subData(two, 2, 8); }, "<no exception>"}, // ends exactly at the uploaded size
        {[&] { buffer.subData(two, 2, 9); }, "Buffer::subData out of bounds"},
        // Only the name matters for a clash, not type or offset.
        {[&] { geometry.addBuffer(clash); }, "Attribute is already in use."},
        {[] { makeTexture(1, 1, GL_RGB); }, "Invalid texture format."},
        {[] { Target(nullptr, nullptr); }, "colorBuffer must not be nullptr"},
        {[] { Target(makeTexture(4, 4, GL_RGBA), nullptr); }, "depthBuffer must not be nullptr"},
        // A depth texture cannot be a colour attachment: GL itself rejects it.
        {[] { Target(makeTexture(4, 4, GL_DEPTH_COMPONENT), makeTexture(4, 4, GL_DEPTH_COMPONENT)); },
         "Frame buffer incomplete."},
        {[] { loadShaderFile("/no/such/folder/Missing.vrt", GL_VERTEX_SHADER); },
         "Failed to open shader file."},
        // Declared but optimised away, or misspelt: both are inactive.
        {[&] { material->set("unused", 1.0f); }, "unused is not an active uniform variable."},
        {[&] { material->set("tex", makeTexture(1, 1, GL_RGBA)); }, "tex is not an active uniform variable."},
        // Another thread has no context current: it must not be answered from this thread's cached limit.
        {[] {
             maxTextureSize();
             std::string message;
             std::thread([&] { message = thrownMessage(maxTextureSize); }).join();
             throw Exception(message);
         },
         "No OpenGL rendering context found."},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(thrownMessage(c.action), c.message);
    }
    EXPECT_EQ(geometry.getBuffers().size(), 1u) << "a clashing buffer is not added";
    EXPECT_TRUE(material->getTextures().empty());

    // A compile failure carries the compiler's log.
    const std::string log = thrownMessage(
        [] { Shader("#version 410 core\nvoid main() { undeclared = 1.0; }\n", GL_FRAGMENT_SHADER); });
    EXPECT_NE(log.find("undeclared"), std::string::npos) << log;
}

TEST_F(RendererGLTest, DrawsIndexedRangeWithUniformsAndTextures) {
    // Each sampler contributes one channel, so (255, 255, 128) means every sampler saw its own texture and
    // the tint reached the program.
    auto sampling = makeMaterial(
        "#version 410 core\nin vec3 Position;\nuniform mat4 transform;\n"
        "void main() { gl_Position = transform * vec4(Position, 1.0); }\n",
        "#version 410 core\nuniform sampler2D red;\nuniform sampler2D green;\nuniform sampler2D blue;\n"
        "uniform vec4 tint;\nout vec4 c;\nvoid main() {\n vec2 p = vec2(0.5);\n"
        " c = tint * vec4(texture(red, p).r, texture(green, p).g, texture(blue, p).b, 1.0);\n}\n");
    const char* names[3] = {"red", "green", "blue"};
    const std::uint32_t colors[3] = {0xff0000ffu, 0xff00ff00u, 0xffff0000u}; // RGBA bytes in little endian
    for (int i = 0; i < 3; ++i) {
        auto texture = makeTexture(1, 1, GL_RGBA);
        texture->setData(&colors[i], 4);
        sampling->set(names[i], texture);
    }
    const float tint[4] = {1, 1, 0.5f, 1};
    sampling->set("tint", tint);
    // Moves the right half onto the left half; transposed, the translation would end up in w.
    Ko_1_1::Mat4d<float> transform;
    transform.at(0, 3) = -1.0f;
    sampling->set("transform", transform);

    auto quads = geometry(GRID);
    // Left half: two triangles; right half: two more. Only the right half is drawn.
    const std::uint32_t indices[12] = {0, 1, 3, 1, 4, 3, 1, 2, 4, 2, 5, 4};
    quads->setIndices(indices, 12, GL_UNSIGNED_INT, 4);
    glActiveTexture(GL_TEXTURE5);
    renderer.clear();
    renderer.draw(sampling, quads, 6, 6);
    const OrvelTest::Rgba pixel = OrvelTest::readPixel(1, 1);
    EXPECT_EQ(pixel.r, 255);
    EXPECT_EQ(pixel.g, 255);
    EXPECT_NEAR(pixel.b, 128, 1);
    EXPECT_TRUE(lit(0, 3));
    EXPECT_FALSE(lit(2, 1));
    EXPECT_FALSE(lit(3, 3));
    EXPECT_EQ(integer(GL_ACTIVE_TEXTURE), GL_TEXTURE2) << "left on the last sampler's unit";
    glActiveTexture(GL_TEXTURE0);
}

TEST_F(RendererGLTest, AttributesAreSetUpByNameOnEveryDraw) {
    auto first = makeMaterial(colouredVertexShader(0, 1), PASS_THROUGH);
    auto swapped = makeMaterial(colouredVertexShader(1, 0), PASS_THROUGH);
    auto quad = geometry({{-1, -1, 0}, {1, -1, 0}, {-1, 1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}}, 6,
                         Color{255, 128, 0, 255});
    for (const auto& material : {first, swapped, first}) {
        renderer.clear();
        renderer.draw(material, quad, 0, 0);
        // Unsigned bytes arrive normalised: 128 stays 128 on the way through.
        const OrvelTest::Rgba pixel = OrvelTest::readPixel(2, 2);
        EXPECT_EQ(pixel.r, 255);
        EXPECT_NEAR(pixel.g, 128, 1);
        EXPECT_EQ(pixel.b, 0);
    }
}

TEST_F(RendererGLTest, BindingsOutsideWhatIsDrawnAreLeftAlone) {
    // Texture work happens on unit 0 and leaves the active unit and every unit's binding as they were.
    GLuint drawn[2] = {};
    glGenTextures(2, drawn);
    glBindTexture(GL_TEXTURE_2D, drawn[0]);
    glActiveTexture(GL_TEXTURE3);
    glBindTexture(GL_TEXTURE_2D, drawn[1]);
    auto texture = makeTexture(4, 4, GL_RGBA, GL_LINEAR_MIPMAP_LINEAR);
    const std::uint32_t pixels[16] = {};
    texture->setData(pixels, 4);
    EXPECT_TRUE(texture->isComplete()) << "setData generates the mipmaps";
    EXPECT_EQ(thrownMessage([] { makeTexture(1, 1, GL_RGB); }), "Invalid texture format.");
    EXPECT_EQ(integer(GL_ACTIVE_TEXTURE), GL_TEXTURE3);
    EXPECT_EQ(static_cast<GLuint>(integer(GL_TEXTURE_BINDING_2D)), drawn[1]);
    glActiveTexture(GL_TEXTURE0);
    EXPECT_EQ(static_cast<GLuint>(integer(GL_TEXTURE_BINDING_2D)), drawn[0]);
    glDeleteTextures(2, drawn);

    // A target that fails leaves no frame buffer bound.
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    thrownMessage(
        [] { Target(makeTexture(4, 4, GL_DEPTH_COMPONENT), makeTexture(4, 4, GL_DEPTH_COMPONENT)); });
    EXPECT_EQ(integer(GL_FRAMEBUFFER_BINDING), 0);

    // Without a target a draw goes to whatever frame buffer is bound, but clear binds the default one.
    auto red = makeMaterial(colouredVertexShader(0, 1), PASS_THROUGH);
    auto quads = geometry(GRID, GRID.size());
    const std::uint32_t indices[6] = {0, 2, 3, 2, 5, 3};
    quads->setIndices(indices, 6, GL_UNSIGNED_INT, 4);
    renderer.clear();
    renderer.setTarget(nullptr);
    renderer.draw(red, quads, 0, 0);
    EXPECT_EQ(static_cast<GLuint>(integer(GL_FRAMEBUFFER_BINDING)), target->getFramebuffer());
    EXPECT_TRUE(lit(1, 1));
    renderer.clear();
    EXPECT_EQ(integer(GL_FRAMEBUFFER_BINDING), 0);
    renderer.setTarget(target);
    renderer.draw(red, quads, 0, 0);
    EXPECT_EQ(static_cast<GLuint>(integer(GL_FRAMEBUFFER_BINDING)), target->getFramebuffer());
}

TEST_F(RendererGLTest, BgrUploadsWithTheGivenAlignmentAndWithoutMipmaps) {
    // Rows of a 3x2 BGR image are 9 bytes long: only alignment 1 finds the second row at byte 9.
    auto bgr = makeTexture(3, 2, GL_BGR, GL_LINEAR);
    unsigned char pixels[18];
    for (int i = 0; i < 18; ++i) {
        pixels[i] = static_cast<unsigned char>(i + 1);
    }
    bgr->setData(pixels, 1);
    unsigned char rgba[24] = {};
    GLint level1 = 0;
    glBindTexture(GL_TEXTURE_2D, bgr->getId());
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 1, GL_TEXTURE_WIDTH, &level1);
    EXPECT_EQ(rgba[12], 12); // second row, first pixel: blue 10, green 11, red 12
    EXPECT_EQ(rgba[14], 10);
    EXPECT_EQ(level1, 0); // GL_LINEAR wants no mipmaps, so none were made
    glBindTexture(GL_TEXTURE_2D, 0);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
}
