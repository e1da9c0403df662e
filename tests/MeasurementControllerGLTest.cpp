#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "engine/Renderer.h"
#include "engine/Target.h"
#include "tests/support/GLContext.h"
#include "tests/support/RecordingHost.h"
#include "vr/SharedMaterials.h"
#include "vr/objects/LineRenderer.h"
#include "vr/objects/MeasurementController.h"

namespace {

using Ko_1_1::Mat4d;
using Ko_1_1::Vec3d;
using OrvelTest::readPixel;
using VR::MeasurementData;

constexpr int SIZE = 128;

// A line from (-0.2 d, y, -d) to (0.2 d, y, -d): at any depth d it covers the same columns.
MeasurementData across(const std::string& uuid, float y, float d = 10.0f) {
    return MeasurementData{{{-0.2f * d, y, -d}, {0.2f * d, y, -d}}, uuid};
}

using OrvelTest::readStencil;

bool near(const OrvelTest::Rgba& p, int r, int g, int b) {
    return std::abs(p.r - r) <= 2 && std::abs(p.g - g) <= 2 && std::abs(p.b - b) <= 2;
}
bool isLineColour(int x, int y) {
    return near(readPixel(x, y), 178, 77, 26);
}

// A narrow 28-degree view (focal factor 4) down -z from the origin, head and eye at the origin: a point
// (x, y, -10) lands at pixel (64 + 25.6 x, 64 + 25.6 y), so a line from x = -2 to 2 spans columns 13 to
// 115, and its label, 0.32 of the view (20 pixels) high, stands on its middle.
class MeasurementControllerGLTest : public OrvelTest::GLTest {
protected:
    void SetUp() override {
        OrvelTest::GLTest::SetUp();
        OrvelTest::drawInto(renderer, SIZE, SIZE);
        controller = std::make_unique<MeasurementController>(3.0f, &host);
    }
    void TearDown() override {
        controller.reset();
        VR::SharedMaterials::releaseAll();
        renderer.setTarget(nullptr);
        OrvelTest::GLTest::TearDown();
    }

    // Clears colour, depth and stencil (to `stencil`) and draws one pass of the controller.
    void drawPass(bool stencilPass, int stencil = 0) {
        renderer.clear();
        glStencilMask(0xFF);
        glClearStencil(stencil);
        glClear(GL_STENCIL_BUFFER_BIT);
        const Mat4d<float> identity;
        const Mat4d<float> projection =
            Mat4d<float>::perspective(SIZE, SIZE, -0.1f, -100.0f, 2.0f * std::atan(0.25f), 0.0f, 0.0f);
        controller->draw(renderer, identity, identity, projection, stencilPass);
    }

    OrvelTest::RecordingHost host;
    Brume::Renderer renderer;
    std::unique_ptr<MeasurementController> controller;
};

TEST_F(MeasurementControllerGLTest, HandleInputPlacesTwoPointsWithTriggerHysteresis) {
    const Vec3d<float> origin{1.0f, 0.0f, 0.0f};
    struct Step {
        float trigger;
        bool hit;
        Vec3d<float> target;
        bool placed;
        int state;
        Vec3d<float> second; // also the target handed back
        bool refining;
    };
    const Step steps[] = {
        {0.95f, true, {1, 0, -2}, false, 0, {}, false},       // not a press
        {1.0f, false, {1, 0, -5}, false, 0, {}, false},       // a press without a hit places nothing
        {1.0f, true, {1, 0, -2}, false, 0, {}, false},        // still held: no second press
        {0.89f, true, {1, 0, -2}, false, 0, {}, false},       // released
        {1.0f, true, {1, 0, -2}, true, 1, {1, 0, -2}, false}, // first point, 2 from the origin
        {1.0f, true, {2.2f, 0, -1.6f}, false, 1, {2.2f, 0, -1.6f}, false}, // the end follows the hit
        {0.95f, false, {1, 3, -4}, false, 1, {1, 1.2f, -1.6f}, false},     // on the ray, 2 from the origin
        {1.0f, true, {1, 0, -3}, false, 1, {1, 0, -3}, false},             // 0.95 kept the latch
        {0.89f, false, {1, 0, -9}, false, 1, {1, 0, -3}, false}, // released; the ray distance is now 3
        {1.0f, true, {4, 0, -2}, true, 2, {4, 0, -2}, false},    // second point
        {0.5f, true, {9, 9, 9}, false, 2, {4, 0, -2}, false},
        {1.0f, true, {9, 9, 9}, false, 2, {4, 0, -2}, true}, // waiting for the host
    };
    int row = 0;
    for (const Step& s : steps) {
        SCOPED_TRACE("step " + std::to_string(row++));
        Vec3d<float> target = s.target;
        EXPECT_EQ(controller->handleInput(s.trigger, s.hit, origin, target), s.placed);
        EXPECT_EQ(controller->getMeasuringState(), s.state);
        EXPECT_EQ(controller->getInfoText(), s.refining ? "Refining measurement\n          Please wait" : "");
        std::vector<Vec3d<float>> points{{7, 7, 7}};
        EXPECT_EQ(controller->getMeasurement(points), s.state == 2);
        if (s.state != 0) {
            EXPECT_LT((controller->getSecondPoint() - s.second).length(), 1e-5f);
        }
        if (s.state == 1) {
            EXPECT_LT((target - s.second).length(), 1e-5f);
            EXPECT_EQ(points.size(), 1u) << "left alone";
        } else if (s.state == 2) {
            EXPECT_EQ(points, (std::vector<Vec3d<float>>{{1, 0, -2}, {4, 0, -2}}));
        }
    }

    const std::shared_ptr<LineRenderer> finishedLine = controller->getCurrentLine();
    controller->endMeasurement();
    EXPECT_EQ(controller->getMeasuringState(), 0);
    EXPECT_EQ(controller->getInfoText(), "");
    EXPECT_NE(controller->getCurrentLine(), finishedLine) << "the next measurement starts on a new line";
}

TEST_F(MeasurementControllerGLTest, UpdateMeasurementsMatchesByUuid) {
    controller->setMeasurements({across("a", 0), across("b", 1), across("c", 2)});
    const std::shared_ptr<LineRenderer> lineB = controller->getLine(4);

    // "a" removed, "b" moved to three points, "c" renamed to "c2", "d" added.
    controller->updateMeasurements({across("c2", 2), MeasurementData{{{0, 0, 0}}, "d"},
                                    MeasurementData{{{0, 0, -1}, {3, 0, -1}, {3, 4, -1}}, "b"}});
    ASSERT_EQ(controller->getMeasurementCount(), 3u);
    const char* const named[] = {"", "", "", "c2", "d", "b", ""};
    for (unsigned index = 0; index < 7; ++index) {
        EXPECT_EQ(controller->getUuidAtStencilIndex(index), named[index]) << index;
    }
    EXPECT_EQ(controller->getLine(5), lineB) << "a kept uuid keeps its line";
    EXPECT_EQ(lineB->getSegmentCount(), 2u);
    EXPECT_EQ(controller->getLine(4)->getSegmentCount(), 0u) << "one point draws nothing";
    controller->highlight(2); // below the range: ignored, not wrapped into it
}

TEST_F(MeasurementControllerGLTest, NormalPassDrawsLinesLabelsAndStencilValues) {
    controller->setMeasurements({across("a", 0.1f), across("b", -1.5f)});
    drawPass(false);

    // Line "a" crosses row 66, "b" row 25; the label of "a" is a translucent white plate (grey over black)
    // with orange glyphs over the middle (rows 68 to 88), and is absent further along the line.
    EXPECT_TRUE(isLineColour(20, 66));
    EXPECT_EQ(readStencil(20, 66), 3u);
    EXPECT_EQ(readStencil(100, 25), 4u);
    EXPECT_EQ(readStencil(20, 100), 0u);
    EXPECT_TRUE(near(readPixel(20, 78), 0, 0, 0));
    int plate = 0, glyphs = 0;
    for (int y = 70; y < 86; ++y) {
        for (int x = 44; x < 84; ++x) {
            const OrvelTest::Rgba p = readPixel(x, y);
            plate += (p.r == p.g && p.g == p.b && p.r > 60 && p.r < 100) ? 1 : 0;
            glyphs += (p.r > 100 && p.r > p.g + 40) ? 1 : 0;
        }
    }
    EXPECT_GT(plate, 100);
    EXPECT_GT(glyphs, 20);
    EXPECT_FALSE(glIsEnabled(GL_BLEND)) << "the label's blending is put back";

    controller->highlight(3);
    drawPass(false);
    EXPECT_TRUE(near(readPixel(20, 66), 255, 153, 102));
    EXPECT_TRUE(isLineColour(100, 25));
    controller->resetHighlight();
    drawPass(false);
    EXPECT_TRUE(isLineColour(20, 66));
}

// The stencil pass draws a broad band for picking; the normal pass draws 3 pixels wide at any distance.
TEST_F(MeasurementControllerGLTest, StencilBandIsBroadAndTheLineKeepsItsPixelWidth) {
    controller->setMeasurements({across("a", 0.1f)});
    drawPass(true);
    EXPECT_EQ(readStencil(40, 66 + 40), 3u);
    EXPECT_EQ(readStencil(40, 66 - 40), 3u);
    EXPECT_EQ(readStencil(40, 66 + 55), 0u);
    drawPass(false);
    EXPECT_EQ(readStencil(40, 66 + 40), 0u);

    // Column 34 lies between the arrow head and the label at every distance.
    for (float d : {5.0f, 10.0f, 40.0f}) {
        controller->setMeasurements({across("a", 0.01f * d, d)});
        drawPass(false);
        int rows = 0;
        for (int y = 0; y < SIZE; ++y) {
            rows += isLineColour(34, y) ? 1 : 0;
        }
        EXPECT_EQ(rows, 3) << "at " << d;
    }
}

TEST_F(MeasurementControllerGLTest, ArrowHeadsOnlyOnceTheMeasurementIsFinished) {
    const Vec3d<float> origin;
    Vec3d<float> first{-2.4f, 0.1f, -10};
    Vec3d<float> second{2.4f, 0.1f, -10};
    controller->handleInput(1.0f, true, origin, first);
    controller->handleInput(0.0f, true, origin, second);
    // The line runs from column 3 to 125 over rows 65 to 67; the heads (18 pixels long, 12 across at their
    // base) reach rows above it near both ends, clear of the label in the middle.
    auto headPixels = [] {
        int count = 0;
        for (int y = 68; y < 72; ++y) {
            for (int x : {6, 10, 14, 18, 110, 114, 118, 122}) {
                count += isLineColour(x, y) ? 1 : 0;
            }
        }
        return count;
    };
    drawPass(false, 7);
    EXPECT_TRUE(isLineColour(30, 66));
    EXPECT_EQ(readStencil(30, 66), 0u) << "the measurement in progress names nothing";
    EXPECT_EQ(headPixels(), 0);

    controller->handleInput(1.0f, true, origin, second);
    drawPass(false, 7);
    EXPECT_GT(headPixels(), 8);
}

} // namespace
