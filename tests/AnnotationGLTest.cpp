#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "engine/Renderer.h"
#include "engine/Target.h"
#include "tests/support/GLContext.h"
#include "vr/SharedMaterials.h"
#include "vr/objects/AnnotationController.h"
#include "vr/objects/AnnotationRenderer.h"
#include "vr/objects/LabelRenderer.h"

namespace {

using Ko_1_1::Mat4d;
using Ko_1_1::Vec3d;
using OrvelTest::readPixel;
using OrvelTest::Rgba;

using OrvelTest::readStencil;

bool isBlack(const Rgba& p) {
    return p.r == 0 && p.g == 0 && p.b == 0;
}
// Pixels drawn in the label's foreground colour (0.1, 0.3, 0.7).
bool isForeground(const Rgba& p) {
    return std::abs(p.r - 26) <= 2 && std::abs(p.g - 77) <= 2 && std::abs(p.b - 179) <= 2;
}

class AnnotationGLTest : public OrvelTest::GLTest {
protected:
    // A colour + depth-stencil target, cleared to black, that writes the stencil reference wherever a
    // fragment lands.
    void useTarget(int width, int height) { OrvelTest::drawInto(renderer, width, height); }
    void clear() {
        glClearColor(0, 0, 0, 0);
        glStencilMask(0xFF);
        glClearStencil(0);
        glClear(GL_STENCIL_BUFFER_BIT);
        renderer.clear();
    }
    void TearDown() override {
        renderer.setTarget(nullptr);
        VR::SharedMaterials::releaseAll();
        OrvelTest::GLTest::TearDown();
    }

    Brume::Renderer renderer;
};

TEST_F(AnnotationGLTest, LabelShowsItsTextOnAPlateSizedToTheText) {
    useTarget(256, 128);
    // One world unit is half the target's height: the 0.1 high plate is 12.8 pixels high.
    Mat4d<float> mvp;
    mvp.at(0, 0) = 1.0f;
    mvp.at(1, 1) = 2.0f;
    // The plate's extent in pixels along the middle row and the middle column, drawn afresh.
    LabelRenderer label;
    const auto plateSize = [&] {
        clear();
        label.draw(renderer, mvp);
        std::pair<int, int> size{0, 0};
        for (int i = 0; i < 256; ++i) {
            size.first += isBlack(readPixel(i, 64)) ? 0 : 1;
            size.second += i < 128 && !isBlack(readPixel(128, i)) ? 1 : 0;
        }
        return size;
    };
    EXPECT_EQ(plateSize(), std::make_pair(0, 0)) << "a label without text draws nothing";
    label.setText("Measuring");
    label.setVisible(false);
    EXPECT_EQ(plateSize(), std::make_pair(0, 0)) << "a hidden label draws nothing";

    label.setVisible(true);
    const std::pair<int, int> shortPlate = plateSize();
    EXPECT_NEAR(shortPlate.second, 13, 1);
    EXPECT_GT(shortPlate.first, shortPlate.second);
    label.setText("Measuring distance");
    const std::pair<int, int> longPlate = plateSize();
    EXPECT_GT(longPlate.first, shortPlate.first + 20);
    EXPECT_EQ(longPlate.second, shortPlate.second);
}

VR::AnnotationData annotation(const std::string& uuid, const std::string& text, Vec3d<double> at = {}) {
    return {at, text, uuid};
}

TEST_F(AnnotationGLTest, ControllerFollowsTheHostsListByUuid) {
    AnnotationController controller(1.0f);
    const auto& entries = controller.getEntries();
    controller.updateAnnotations({annotation("a", "A"), annotation("b", "B"), annotation("c", "C")});
    const std::vector<AnnotationController::Entry> first = entries;
    controller.updateAnnotations({annotation("a", "A"), annotation("b", "B"), annotation("c", "C")});
    ASSERT_EQ(entries.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(entries[i].renderer, first[i].renderer) << "entry " << i << " was rebuilt";
    }

    // b and a go, c stays with the host's new text and place, d is added behind it.
    controller.updateAnnotations({annotation("d", "D"), annotation("c", "C2", {1, 2, 3})});
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].uuid, "c");
    EXPECT_EQ(entries[0].renderer, first[2].renderer);
    EXPECT_EQ(entries[0].renderer->getText(), "C2");
    EXPECT_EQ(entries[0].renderer->getPosition(), Vec3d<float>(1, 2, 3));
    EXPECT_EQ(entries[1].uuid, "d");

    // Stencil values name entries from 128 on; anything else names nothing, and highlights nothing.
    const std::pair<unsigned, const char*> named[] = {{0, ""}, {127, ""}, {128, "c"}, {129, "d"}, {130, ""}};
    const auto opacities = [&] {
        return std::make_pair(entries[0].renderer->getOpacity(), entries[1].renderer->getOpacity());
    };
    for (const auto& n : named) {
        EXPECT_EQ(controller.getUuidAtStencilIndex(n.first), n.second) << n.first;
        if (*n.second == '\0') {
            controller.highlight(n.first);
        }
    }
    EXPECT_EQ(opacities(), std::make_pair(0.3f, 0.3f));
    controller.highlight(129);
    EXPECT_EQ(opacities(), std::make_pair(0.3f, 1.0f));
    controller.updateAnnotations({});
    EXPECT_TRUE(entries.empty());
}

TEST_F(AnnotationGLTest, DrawsArrowAndLabelThatWriteTheirStencilValues) {
    constexpr int SIZE = 128;
    useTarget(SIZE, SIZE);
    AnnotationController controller(1.0f);
    controller.addAnnotation(annotation("first", "测量点 A"));
    controller.addAnnotation(annotation("second", "B", {0.45, 0, -0.35}));

    // The head stands 1.5 m in front of the first place (z-up world), level with its plate's centre, and
    // looks along +y: the head's x is the world's x, its y the world's z. With 45 degrees on 128 pixels one
    // metre there is 103 pixels, so world (x, z) lands at pixel (64 + 103 x, 64 + 103 (z - 0.325)).
    const float plateCentre = AnnotationRenderer::LIFT + 64 * AnnotationRenderer::METRES_PER_PIXEL;
    Mat4d<float> headPose({1, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, -1.5f, plateCentre, 1});
    const Mat4d<float> worldToHead = headPose.affineInverse();
    const Mat4d<float> projection = Mat4d<float>::perspective(SIZE, SIZE, -0.1f, -100.0f, 0.7853982f, 0, 0);
    // Draws afresh and counts the pixels that pass the test.
    const auto draw = [&](bool (*test)(const Rgba&)) {
        clear();
        controller.draw(renderer, projection * worldToHead, worldToHead, Mat4d<float>(), projection, true);
        int count = 0;
        for (int i = 0; i < SIZE * SIZE; ++i) {
            count += test(readPixel(i % SIZE, i / SIZE)) ? 1 : 0;
        }
        return count;
    };
    // Text and plate: glyphs in the foreground colour on a white plate at 0.3 (grey over black), which a
    // highlight makes opaque.
    EXPECT_GT(draw([](const Rgba& p) { return p.r == p.g && p.g == p.b && std::abs(p.r - 77) <= 2; }), 100);
    EXPECT_GT(draw(isForeground), 100);

    const auto row = [&](float z) { return static_cast<int>(64 + 103 * (z - plateCentre)); };
    // The shaft is two pixels wide; the head narrows from ten pixels to its tip on the place over ten
    // pixels, so six pixels above the tip it is six wide.
    const int shaftRow = row(0.15f);
    EXPECT_TRUE(isForeground(readPixel(64, shaftRow)));
    EXPECT_TRUE(isBlack(readPixel(66, shaftRow)));
    EXPECT_TRUE(isForeground(readPixel(66, row(0.0f) + 6)));
    EXPECT_TRUE(isBlack(readPixel(64, row(0.0f) - 2))) << "the tip ends on the place";
    EXPECT_EQ(readStencil(64, shaftRow), 128u);

    // The first plate around the middle, the second one's right of and below it.
    EXPECT_FALSE(isBlack(readPixel(64, 64)));
    EXPECT_EQ(readStencil(64, 64), 128u);
    EXPECT_EQ(readStencil(64 + 46, row(AnnotationRenderer::LIFT - 0.35f + 0.07f)), 129u);
    EXPECT_EQ(readStencil(4, 124), 0u);
    EXPECT_TRUE(isBlack(readPixel(4, 124)));

    controller.highlight(128);
    EXPECT_GT(draw([](const Rgba& p) { return p.r == p.g && p.g == p.b && p.r >= 253; }), 100);
}

} // namespace
