#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "engine/Buffer.h"
#include "engine/Geometry.h"
#include "engine/Renderer.h"
#include "engine/Target.h"
#include "engine/Texture.h"
#include "tests/support/GLContext.h"
#include "vr/SharedMaterials.h"
#include "vr/VrModelRenderer.h"
#include "vr/openvr/OpenVRTypes.h"

namespace {

constexpr int SIZE = 64;

// A square over [-1, 1]^2 in the z = 0 plane with texture coordinates 0..1, as OpenVR delivers a model:
// vertex records of position, normal and texture coordinate, and exactly six 16-bit indices.
struct SquareModel {
    std::vector<vr::RenderModel_Vertex_t> vertices = {
        {{{-1, -1, 0}}, {{0, 0, 1}}, {0, 0}},
        {{{1, -1, 0}}, {{0, 0, 1}}, {1, 0}},
        {{{-1, 1, 0}}, {{0, 0, 1}}, {0, 1}},
        {{{1, 1, 0}}, {{0, 0, 1}}, {1, 1}},
    };
    std::vector<std::uint16_t> indices = {0, 1, 2, 2, 1, 3};
    std::vector<std::uint8_t> pixels;

    // 2 x 2 texels; the first row of data is the bottom row (v = 0).
    explicit SquareModel(std::vector<std::uint8_t> rgba) : pixels(std::move(rgba)) {}

    vr::RenderModel_t model() const {
        vr::RenderModel_t m{};
        m.rVertexData = vertices.data();
        m.unVertexCount = static_cast<std::uint32_t>(vertices.size());
        m.rIndexData = indices.data();
        m.unTriangleCount = 2;
        m.diffuseTextureId = 7;
        return m;
    }

    vr::RenderModel_TextureMap_t texture() const {
        vr::RenderModel_TextureMap_t t{};
        t.unWidth = 2;
        t.unHeight = 2;
        t.rubTextureMapData = pixels.data();
        return t;
    }
};

// Scales the square to a quarter of the viewport side and moves its centre to (x, y) in clip space.
Ko_1_1::Mat4d<float> placed(float x, float y) {
    return Ko_1_1::Mat4d<float>({0.25f, 0, 0, 0, 0, 0.25f, 0, 0, 0, 0, 1, 0, x, y, 0, 1});
}

void expectPixel(int x, int y, std::uint8_t r, std::uint8_t g, std::uint8_t b, const char* why) {
    const OrvelTest::Rgba p = OrvelTest::readPixel(x, y);
    EXPECT_EQ(p.r, r) << why << " at " << x << "," << y;
    EXPECT_EQ(p.g, g) << why << " at " << x << "," << y;
    EXPECT_EQ(p.b, b) << why << " at " << x << "," << y;
}

// The shared controller program belongs to the context it was made in; each test has its own.
class VrModelRendererGLTest : public OrvelTest::GLTest {
protected:
    void TearDown() override {
        VR::SharedMaterials::releaseAll();
        OrvelTest::GLTest::TearDown();
    }
};

TEST_F(VrModelRendererGLTest, DrawsTexturedModelsWithOneSharedProgram) {
    auto color = std::make_shared<Brume::Texture>(SIZE, SIZE, GL_RGBA, GL_NEAREST, GL_NEAREST,
                                                  GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
    auto depth = std::make_shared<Brume::Texture>(SIZE, SIZE, GL_DEPTH_COMPONENT, GL_NEAREST, GL_NEAREST,
                                                  GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
    auto target = std::make_shared<Brume::Target>(color, depth);
    Brume::Renderer renderer;
    renderer.setTarget(target);
    glViewport(0, 0, SIZE, SIZE);
    glClearColor(0, 0, 0, 1);
    renderer.clear();

    // Texels: red bottom-left, green bottom-right, blue top-left, white top-right.
    const SquareModel first({255, 0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 255, 255, 255, 255, 255});
    // A single colour, yellow, for the second model.
    const SquareModel second({255, 255, 0, 255, 255, 255, 0, 255, 255, 255, 0, 255, 255, 255, 0, 255});

    VR::VrModelRenderer a("first", first.model(), first.texture());
    VR::VrModelRenderer b("second", second.model(), second.texture());

    EXPECT_NE(a.getTexture(), b.getTexture());

    // The first model at the lower left, the second at the lower right, the first again at the top: the
    // texture must follow the model on every draw even though both draw with the same program.
    a.draw(renderer, placed(-0.5f, -0.5f));
    GLint programOfFirst = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &programOfFirst);
    b.draw(renderer, placed(0.5f, -0.5f));
    GLint programOfSecond = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &programOfSecond);
    EXPECT_NE(programOfFirst, 0);
    EXPECT_EQ(programOfFirst, programOfSecond);
    a.draw(renderer, placed(-0.5f, 0.5f));

    // The square spans 16 pixels around its centre; pixels two in from its corners see one texel only.
    // Lower-left square centred on pixel (16, 16): corners at 8 and 24.
    expectPixel(10, 10, 255, 0, 0, "first model, bottom-left texel");
    expectPixel(22, 10, 0, 255, 0, "first model, bottom-right texel");
    expectPixel(10, 22, 0, 0, 255, "first model, top-left texel");
    expectPixel(22, 22, 255, 255, 255, "first model, top-right texel");
    expectPixel(48, 16, 255, 255, 0, "second model");
    expectPixel(10, 42, 255, 0, 0, "first model drawn again after the second");
    expectPixel(22, 54, 255, 255, 255, "first model drawn again after the second");
    expectPixel(4, 4, 0, 0, 0, "outside every model");
    expectPixel(48, 48, 0, 0, 0, "outside every model");

    // Copies share the GPU objects; a copy draws exactly what its source draws.
    VR::VrModelRenderer copy(a);
    EXPECT_EQ(copy.getGeometry(), a.getGeometry());
    EXPECT_EQ(copy.getTexture(), a.getTexture());
    EXPECT_EQ(copy.getName(), "first");
    copy.draw(renderer, placed(0.5f, 0.5f));
    expectPixel(42, 42, 255, 0, 0, "copy of the first model");
    expectPixel(54, 54, 255, 255, 255, "copy of the first model");

    b = a;
    EXPECT_EQ(b.getGeometry(), a.getGeometry());
    EXPECT_EQ(b.getTexture(), a.getTexture());
    EXPECT_EQ(b.getName(), "first");

    renderer.setTarget(nullptr);
}

} // namespace
