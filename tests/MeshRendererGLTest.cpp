#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "engine/Renderer.h"
#include "engine/Target.h"
#include "tests/support/GLContext.h"
#include "tests/support/Messages.h"
#include "tests/support/RecordingHost.h"
#include "text/Bitmap.h"
#include "vr/objects/MeshRenderer.h"

namespace {

using Ko_1_1::Mat4d;
using OrvelTest::readPixel;
using VR::MeshData;

constexpr int SIZE = 64;

// Two triangles spanning x0..x1 and y -5..5 at z = -5, facing the camera, in one colour or a 1 x 1 texture
// of it.
MeshData quad(float x0, float x1, MeshData::Color color, bool textured = false) {
    MeshData mesh;
    mesh.positions = {{x0, -5, -5}, {x1, -5, -5}, {x0, 5, -5}, {x1, 5, -5}};
    mesh.indices = {0, 1, 2, 2, 1, 3};
    mesh.mode = GL_TRIANGLES;
    if (!textured) {
        mesh.colors.assign(4, color);
        return mesh;
    }
    mesh.texCoords = {{0, 0}, {1, 0}, {0, 1}, {1, 1}};
    mesh.texture =
        std::make_shared<Bitmap>(1, 1, 4, std::vector<unsigned char>{color.r, color.g, color.b, 255});
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

using OrvelTest::readStencil;

// Whether any pixel of row 32 around the line's column holds blue.
bool lineVisible() {
    for (int x = 46; x <= 50; ++x) {
        if (readPixel(x, 32).b > 200) {
            return true;
        }
    }
    return false;
}

// A square colour + depth-stencil target, cleared to black with stencil 0, depth test on. The camera sits
// at the origin looking down -z with 90 degrees vertically, so a point (x, y, -5) lands at pixel
// (32 + 32 x / 5, 32 + 32 y / 5): z = -5 and x, y in -5..5 fill the target.
class MeshRendererGLTest : public OrvelTest::GLTest {
protected:
    void SetUp() override {
        OrvelTest::GLTest::SetUp();
        OrvelTest::drawInto(renderer, SIZE, SIZE);
    }
    void clear() {
        glClearColor(0, 0, 0, 0);
        glClearStencil(0);
        renderer.clear();
        glClear(GL_STENCIL_BUFFER_BIT);
    }
    void draw(MeshRenderer& meshes, bool stencilPass, const Mat4d<float>& lightFrame = {}) {
        const Mat4d<float> projection =
            Mat4d<float>::perspective(SIZE, SIZE, -0.1f, -100.0f, 1.5707964f, 0.0f, 0.0f);
        meshes.drawMeshes(renderer, projection, Mat4d<float>(), lightFrame, stencilPass);
    }
    void TearDown() override {
        // The target's GL objects go while the context that made them is still current.
        renderer.setTarget(nullptr);
        OrvelTest::GLTest::TearDown();
    }

    OrvelTest::RecordingHost host;
    Brume::Renderer renderer;
};

// The same orange wall lit twice: once facing the first light, once with the light frame turned half
// round so that only the second, opposite light reaches the side the camera sees.
TEST_F(MeshRendererGLTest, LightsColouredTrianglesFromBothSidesNeverBlack) {
    host.meshes = {quad(-5, 5, {200, 100, 0})};
    MeshRenderer meshes(&host);
    meshes.buildMeshes();

    draw(meshes, false);
    const OrvelTest::Rgba facing = readPixel(32, 32);
    clear();
    draw(meshes, false, Mat4d<float>::rotation({0, 1, 0}, 3.14159265f));
    const OrvelTest::Rgba away = readPixel(32, 32);

    EXPECT_GT(facing.r, away.r + 30) << "the side facing the first light is the brighter";
    EXPECT_GT(away.r, 55) << "the second light lights the other side beyond the ambient share";
    for (const OrvelTest::Rgba& p : {facing, away}) {
        // The vertex colour is scaled, not replaced: green stays half of red, blue stays off.
        EXPECT_LE(std::abs(2 * p.g - p.r), 4);
        EXPECT_EQ(p.b, 0);
    }
}

TEST_F(MeshRendererGLTest, DrawsEachTexturedMeshWithItsOwnTexture) {
    host.meshes = {quad(-5, 0, {255, 0, 0}, true), quad(0, 5, {0, 255, 0}, true)};
    MeshRenderer meshes(&host);
    meshes.buildMeshes();
    draw(meshes, false);

    const OrvelTest::Rgba left = readPixel(16, 32);
    const OrvelTest::Rgba right = readPixel(48, 32);
    EXPECT_TRUE(left.r > 100 && left.g == 0);
    EXPECT_TRUE(right.g > 100 && right.r == 0);
}

// Red triangles on the left half, a blue line on the right half; with no meshes nothing is drawn.
TEST_F(MeshRendererGLTest, PickingPassMarksTrianglesAndLeavesLinesOut) {
    host.meshes = {quad(-5, 0, {255, 0, 0}), blueLine()};
    MeshRenderer meshes(&host);
    meshes.buildMeshes();

    draw(meshes, false);
    EXPECT_GT(readPixel(16, 32).r, 100);
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

    clear();
    host.meshes.clear();
    MeshRenderer none(&host);
    none.buildMeshes();
    draw(none, false);
    draw(none, true);
    for (int x : {0, 32, 63}) {
        const OrvelTest::Rgba p = readPixel(x, 32);
        EXPECT_EQ(p.r + p.g + p.b, 0);
        EXPECT_EQ(readStencil(x, 32), 0u);
    }
}

// Vertex colours and lines each fill one record that all meshes of their kind would share.
TEST_F(MeshRendererGLTest, AcceptsOneUntexturedTriangleAndOneLineRecordOnly) {
    for (const MeshData& twice : {quad(-5, 0, {1, 2, 3}), blueLine()}) {
        host.meshes = {twice, twice};
        MeshRenderer meshes(&host);
        EXPECT_EQ(OrvelTest::thrownMessage([&] { meshes.buildMeshes(); }), "Attribute is already in use.");
    }
}

} // namespace
