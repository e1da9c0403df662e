#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "common/IVRView.h"
#include "engine/Renderer.h"
#include "engine/Target.h"
#include "engine/Texture.h"
#include "tests/support/GLContext.h"
#include "tests/support/Messages.h"
#include "text/Bitmap.h"
#include "vr/objects/MeshRenderer.h"

namespace {

using Ko_1_1::Mat4d;
using Ko_1_1::Vec3d;
using VR::MeshData;

constexpr int SIZE = 64;

// The host side: hands over the test's meshes and answers every other slot with nothing.
class MeshHost final : public VR::IVRView {
public:
    std::vector<MeshData> meshes;

    void getMeshes(std::vector<MeshData>& out) override { out = meshes; }

    void queryPoints(float, unsigned short, unsigned short, float, float, Vec3d<double>, Vec3d<double>,
                     Vec3d<double>, std::vector<VR::Point3dRGBA>&) override {}
    std::vector<VR::MeasurementData> getMeasurements() override { return {}; }
    std::vector<VR::AnnotationData> getAnnotations() override { return {}; }
    void reservedSlot3() override {}
    bool getHtmlImage(const unsigned char*&, int&, int&) override { return false; }
    void sendHtmlPointerMove(int, int, bool) override {}
    void sendHtmlButton(int, int, bool) override {}
    void onVrClosed() override {}
    void onMeasurementFinished(const Vec3d<float>&, float, int) override {}
    void onMeasurementPointAdded(const Vec3d<float>&, float, int) override {}
    void getPendingMeasurement(VR::MeasurementData&) override {}
    void onObjectClicked(Ko_1_1::StringVal*) override {}
    void onScreenshot(const std::vector<unsigned char>&, unsigned, unsigned, const Mat4d<float>&) override {}
    void setHeadsetKind(int) override {}
    bool takeFlyToRequest(Vec3d<float>&, float&, Vec3d<float>&) override { return false; }
    void setViewTransform(const Mat4d<float>&) override {}
    void reservedSlot17() override {}
    bool isHeightLocked() override { return false; }
    void reservedSlot19() override {}
    int getPointSize() override { return 1; }
    std::string getLengthUnitText() override { return {}; }
    std::string formatLength(float) override { return {}; }
    bool hasPendingMeasurement() override { return false; }
    void clearPendingMeasurement() override {}
    void reservedSlot25() override {}
    bool isMeshVisible() override { return true; }
    bool loadMeshData(Ko_1_1::StringVal* const&, std::vector<float>&, std::vector<float>&,
                      std::vector<unsigned int>&) override {
        return false;
    }
};

// The camera sits at the origin looking down -z with 90 degrees vertically on the square target, so a
// point (x, y, -5) lands at pixel (32 + 32 x / 5, 32 + 32 y / 5): z = -5 and x, y in -5..5 fill the target.
Mat4d<float> projection() {
    return Mat4d<float>::perspective(SIZE, SIZE, -0.1f, -100.0f, 1.5707964f, 0.0f, 0.0f);
}

// Two triangles spanning x0..x1 and y0..y1 at z = -5, facing the camera.
MeshData quad(float x0, float x1, float y0, float y1) {
    MeshData mesh;
    mesh.positions = {{x0, y0, -5}, {x1, y0, -5}, {x0, y1, -5}, {x1, y1, -5}};
    mesh.indices = {0, 1, 2, 2, 1, 3};
    mesh.mode = GL_TRIANGLES;
    return mesh;
}

MeshData colouredQuad(float x0, float x1, MeshData::Color color) {
    MeshData mesh = quad(x0, x1, -5, 5);
    mesh.colors.assign(4, color);
    return mesh;
}

MeshData texturedQuad(float x0, float x1, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    MeshData mesh = quad(x0, x1, -5, 5);
    mesh.texCoords = {{0, 0}, {1, 0}, {0, 1}, {1, 1}};
    std::vector<unsigned char> pixels;
    for (int i = 0; i < 4; ++i) {
        pixels.insert(pixels.end(), {r, g, b, 255});
    }
    mesh.texture = std::make_shared<Bitmap>(2, 2, 4, pixels);
    return mesh;
}

// A vertical line through the middle of pixel column 48, top to bottom.
MeshData blueLine() {
    MeshData mesh;
    const float x = 16.5f * 5.0f / 32.0f;
    mesh.positions = {{x, -5, -5}, {x, 5, -5}};
    mesh.colors = {{0, 0, 255}, {0, 0, 255}};
    mesh.indices = {0, 1};
    mesh.mode = GL_LINES;
    return mesh;
}

unsigned readStencil(int x, int y) {
    GLuint depthStencil = 0;
    glReadPixels(x, y, 1, 1, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, &depthStencil);
    return depthStencil & 0xFFu;
}

// Whether any pixel of row 32 around the line's column holds blue.
bool lineVisible() {
    for (int x = 46; x <= 50; ++x) {
        if (OrvelTest::readPixel(x, 32).b > 200) {
            return true;
        }
    }
    return false;
}

class MeshRendererGLTest : public OrvelTest::GLTest {
protected:
    // A square colour + depth-stencil target, bound, cleared to black with stencil 0, depth test on.
    void useTarget() {
        auto color = std::make_shared<Brume::Texture>(SIZE, SIZE, GL_RGBA, GL_NEAREST, GL_NEAREST,
                                                      GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
        auto depth = std::make_shared<Brume::Texture>(SIZE, SIZE, GL_DEPTH_STENCIL, GL_NEAREST, GL_NEAREST,
                                                      GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
        renderer.setTarget(std::make_shared<Brume::Target>(color, depth));
        glViewport(0, 0, SIZE, SIZE);
        glEnable(GL_DEPTH_TEST);
        clear();
    }
    void clear() {
        glClearColor(0, 0, 0, 0);
        glClearStencil(0);
        renderer.clear();
        glClear(GL_STENCIL_BUFFER_BIT);
    }
    void draw(MeshRenderer& meshes, bool stencilPass, const Mat4d<float>& lightFrame = {}) {
        meshes.drawMeshes(renderer, projection(), Mat4d<float>(), lightFrame, stencilPass);
    }
    void TearDown() override {
        glDisable(GL_STENCIL_TEST);
        glStencilFunc(GL_ALWAYS, 0, 0xFFFFFFFF);
        glStencilMask(0xFF);
        glDisable(GL_DEPTH_TEST);
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        // The target's GL objects go while the context that made them is still current.
        renderer.setTarget(nullptr);
        OrvelTest::GLTest::TearDown();
    }

    MeshHost host;
    Brume::Renderer renderer;
};

// The same orange wall lit twice: once facing the first light, once with the light frame turned half
// round so that only the second, opposite light reaches the side the camera sees.
TEST_F(MeshRendererGLTest, LightsColouredTrianglesFromBothSidesNeverBlack) {
    host.meshes = {colouredQuad(-5, 5, {200, 100, 0})};
    MeshRenderer meshes(&host);
    meshes.buildMeshes();
    useTarget();

    draw(meshes, false);
    const OrvelTest::Rgba facing = OrvelTest::readPixel(32, 32);
    clear();
    draw(meshes, false, Mat4d<float>::rotation({0, 1, 0}, 3.14159265f));
    const OrvelTest::Rgba away = OrvelTest::readPixel(32, 32);

    EXPECT_GT(facing.r, away.r + 30) << "the side facing the first light is the brighter";
    EXPECT_GT(away.r, 55) << "the second light lights the other side beyond the ambient share";
    for (const OrvelTest::Rgba& p : {facing, away}) {
        // The vertex colour is scaled, not replaced: green stays half of red, blue stays off.
        EXPECT_LE(std::abs(2 * p.g - p.r), 4);
        EXPECT_EQ(p.b, 0);
    }
}

TEST_F(MeshRendererGLTest, DrawsEachTexturedMeshWithItsOwnTexture) {
    host.meshes = {texturedQuad(-5, 0, 255, 0, 0), texturedQuad(0, 5, 0, 255, 0)};
    MeshRenderer meshes(&host);
    meshes.buildMeshes();
    useTarget();
    draw(meshes, false);

    const OrvelTest::Rgba left = OrvelTest::readPixel(16, 32);
    const OrvelTest::Rgba right = OrvelTest::readPixel(48, 32);
    EXPECT_GT(left.r, 100);
    EXPECT_EQ(left.g, 0);
    EXPECT_GT(right.g, 100);
    EXPECT_EQ(right.r, 0);
}

// Red triangles on the left half, a blue line on the right half.
TEST_F(MeshRendererGLTest, PickingPassMarksTrianglesAndLeavesLinesOut) {
    host.meshes = {colouredQuad(-5, 0, {255, 0, 0}), blueLine()};
    MeshRenderer meshes(&host);
    meshes.buildMeshes();
    useTarget();

    draw(meshes, false);
    EXPECT_GT(OrvelTest::readPixel(16, 32).r, 100);
    EXPECT_TRUE(lineVisible());
    EXPECT_EQ(readStencil(16, 32), 0u) << "the normal pass leaves stencil to its caller";

    clear();
    glEnable(GL_STENCIL_TEST);
    glStencilOp(GL_KEEP, GL_KEEP, GL_REPLACE);
    // Whatever function and mask were set before, the picking pass writes its own value.
    glStencilFunc(GL_NEVER, 7, 0x0F);
    glStencilMask(0x00);
    draw(meshes, true);
    EXPECT_EQ(readStencil(16, 32), static_cast<unsigned>(MeshRenderer::STENCIL_INDEX));
    EXPECT_FALSE(lineVisible());
    for (int x = 33; x < SIZE; ++x) {
        EXPECT_EQ(readStencil(x, 32), 0u) << "column " << x;
    }
}

TEST_F(MeshRendererGLTest, AcceptsOneUntexturedTriangleAndOneLineRecordOnly) {
    struct Case {
        std::vector<MeshData> meshes;
        std::string message;
    };
    const Case cases[] = {
        {{colouredQuad(-5, 0, {1, 2, 3}), colouredQuad(0, 5, {1, 2, 3})}, "Attribute is already in use."},
        {{blueLine(), blueLine()}, "Attribute is already in use."},
        {{colouredQuad(-5, 0, {1, 2, 3}), blueLine(), texturedQuad(0, 5, 1, 2, 3),
          texturedQuad(0, 5, 1, 2, 3)},
         "<no exception>"},
    };
    for (const Case& c : cases) {
        host.meshes = c.meshes;
        MeshRenderer meshes(&host);
        EXPECT_EQ(OrvelTest::thrownMessage([&] { meshes.buildMeshes(); }), c.message)
            << c.meshes.size() << " meshes";
    }
}

TEST_F(MeshRendererGLTest, WithoutMeshesDrawsNothing) {
    MeshRenderer meshes(&host);
    meshes.buildMeshes();
    useTarget();
    glEnable(GL_STENCIL_TEST);
    glStencilOp(GL_KEEP, GL_KEEP, GL_REPLACE);
    draw(meshes, false);
    draw(meshes, true);
    for (int x : {0, 32, 63}) {
        const OrvelTest::Rgba p = OrvelTest::readPixel(x, 32);
        EXPECT_EQ(p.r + p.g + p.b, 0);
        EXPECT_EQ(readStencil(x, 32), 0u);
    }
}

} // namespace
