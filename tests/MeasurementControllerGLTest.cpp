#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "common/IVRView.h"
#include "engine/Renderer.h"
#include "engine/Target.h"
#include "engine/Texture.h"
#include "tests/support/GLContext.h"
#include "vr/SharedMaterials.h"
#include "vr/objects/LineRenderer.h"
#include "vr/objects/MeasurementController.h"

namespace {

using Ko_1_1::Mat4d;
using Ko_1_1::Vec3d;
using VR::MeasurementData;

constexpr int SIZE = 128;
constexpr float LINE_WIDTH = 3.0f;

// Only the length slots are ever asked; the last length is kept to check what a label says.
class LengthHost final : public VR::IVRView {
public:
    std::string formatLength(float length) override {
        lastLength = length;
        char text[32];
        std::snprintf(text, sizeof(text), "%.2f", static_cast<double>(length));
        return text;
    }
    std::string getLengthUnitText() override { return "m"; }
    float lastLength = -1.0f;

    void queryPoints(float, unsigned short, unsigned short, float, float, Vec3d<double>, Vec3d<double>,
                     Vec3d<double>, std::vector<VR::Point3dRGBA>&) override {}
    std::vector<MeasurementData> getMeasurements() override { return {}; }
    std::vector<VR::AnnotationData> getAnnotations() override { return {}; }
    void reservedSlot3() override {}
    void getMeshes(std::vector<VR::MeshData>&) override {}
    bool getHtmlImage(const unsigned char*&, int&, int&) override { return false; }
    void sendHtmlPointerMove(int, int, bool) override {}
    void sendHtmlButton(int, int, bool) override {}
    void onVrClosed() override {}
    void onMeasurementFinished(const Vec3d<float>&, float, int) override {}
    void onMeasurementPointAdded(const Vec3d<float>&, float, int) override {}
    void getPendingMeasurement(MeasurementData&) override {}
    void onObjectClicked(Ko_1_1::StringVal*) override {}
    void onScreenshot(const std::vector<unsigned char>&, unsigned, unsigned, const Mat4d<float>&) override {}
    void setHeadsetKind(int) override {}
    bool takeFlyToRequest(Vec3d<float>&, float&, Vec3d<float>&) override { return false; }
    void setViewTransform(const Mat4d<float>&) override {}
    void reservedSlot17() override {}
    bool isHeightLocked() override { return false; }
    void reservedSlot19() override {}
    int getPointSize() override { return 1; }
    bool hasPendingMeasurement() override { return false; }
    void clearPendingMeasurement() override {}
    void reservedSlot25() override {}
    bool isMeshVisible() override { return false; }
    bool loadMeshData(Ko_1_1::StringVal* const&, std::vector<float>&, std::vector<float>&,
                      std::vector<unsigned int>&) override {
        return false;
    }
};

float distance(const Vec3d<float>& a, const Vec3d<float>& b) {
    return (a - b).length();
}

// A narrow 28-degree view (focal factor 4) down -z from the origin, head and eye at the origin: a point
// (x, y, -10) lands at pixel (64 + 25.6 x, 64 + 25.6 y), so a line from x = -2 to 2 spans columns 13 to
// 115, and its label, 0.32 of the view (20 pixels) high, stands on its middle.
Mat4d<float> projection() {
    return Mat4d<float>::perspective(SIZE, SIZE, -0.1f, -100.0f, 2.0f * std::atan(0.25f), 0.0f, 0.0f);
}

MeasurementData measurement(const std::string& uuid, std::vector<Vec3d<float>> points) {
    return MeasurementData{std::move(points), uuid};
}

MeasurementData across(const std::string& uuid, float y, float z = -10.0f) {
    // Endpoints scale with depth so that every such line covers the same columns.
    const float x = 0.2f * -z;
    return measurement(uuid, {{-x, y, z}, {x, y, z}});
}

unsigned readStencil(int x, int y) {
    GLuint depthStencil = 0;
    glReadPixels(x, y, 1, 1, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, &depthStencil);
    return depthStencil & 0xFFu;
}

bool near(const OrvelTest::Rgba& p, int r, int g, int b) {
    return std::abs(p.r - r) <= 2 && std::abs(p.g - g) <= 2 && std::abs(p.b - b) <= 2;
}
bool isLineColour(const OrvelTest::Rgba& p) {
    return near(p, 178, 77, 26);
}
bool isBlack(const OrvelTest::Rgba& p) {
    return p.r == 0 && p.g == 0 && p.b == 0;
}

// The rows of a column that show the line's colour.
int lineRows(int column) {
    int rows = 0;
    for (int y = 0; y < SIZE; ++y) {
        rows += isLineColour(OrvelTest::readPixel(column, y)) ? 1 : 0;
    }
    return rows;
}

class MeasurementControllerGLTest : public OrvelTest::GLTest {
protected:
    void SetUp() override {
        OrvelTest::GLTest::SetUp();
        auto color = std::make_shared<Brume::Texture>(SIZE, SIZE, GL_RGBA, GL_NEAREST, GL_NEAREST,
                                                      GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
        auto depth = std::make_shared<Brume::Texture>(SIZE, SIZE, GL_DEPTH_STENCIL, GL_NEAREST, GL_NEAREST,
                                                      GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
        renderer.setTarget(std::make_shared<Brume::Target>(color, depth));
        glViewport(0, 0, SIZE, SIZE);
        glEnable(GL_DEPTH_TEST);
        glEnable(GL_STENCIL_TEST);
        glStencilOp(GL_KEEP, GL_KEEP, GL_REPLACE);
        glClearColor(0, 0, 0, 0);
    }
    void TearDown() override {
        controller.reset();
        VR::SharedMaterials::releaseAll();
        renderer.setTarget(nullptr);
        glDisable(GL_DEPTH_TEST);
        glDisable(GL_STENCIL_TEST);
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        OrvelTest::GLTest::TearDown();
    }

    // Clears colour, depth and stencil (to `stencil`) and draws one pass of the controller.
    void drawPass(bool stencilPass, int stencil = 0) {
        renderer.clear();
        glStencilMask(0xFF);
        glClearStencil(stencil);
        glClear(GL_STENCIL_BUFFER_BIT);
        const Mat4d<float> identity;
        controller->draw(renderer, identity, identity, projection(), stencilPass);
    }

    LengthHost host;
    Brume::Renderer renderer;
    std::unique_ptr<MeasurementController> controller;
};

TEST_F(MeasurementControllerGLTest, HandleInputPlacesTwoPointsWithTriggerHysteresis) {
    controller = std::make_unique<MeasurementController>(LINE_WIDTH, &host);
    const Vec3d<float> origin{1.0f, 0.0f, 0.0f};
    struct Step {
        float trigger;
        bool hit;
        Vec3d<float> target;
        bool placed;
        int state;
        Vec3d<float> second; // also the target handed back
        const char* info;
    };
    const char* const none = "";
    const char* const refining = "Refining measurement\n          Please wait";
    const Step steps[] = {
        {0.95f, true, {1, 0, -2}, false, 0, {}, none},       // not a press
        {1.0f, false, {1, 0, -5}, false, 0, {}, none},       // a press without a hit places nothing
        {1.0f, true, {1, 0, -2}, false, 0, {}, none},        // still held: no second press
        {0.89f, true, {1, 0, -2}, false, 0, {}, none},       // released
        {1.0f, true, {1, 0, -2}, true, 1, {1, 0, -2}, none}, // first point, 2 from the origin
        {1.0f, true, {2.2f, 0, -1.6f}, false, 1, {2.2f, 0, -1.6f}, none}, // the end follows the hit
        {0.95f, false, {1, 3, -4}, false, 1, {1, 1.2f, -1.6f}, none},     // on the ray, 2 from the origin
        {1.0f, true, {1, 0, -3}, false, 1, {1, 0, -3}, none},             // 0.95 kept the latch
        {0.89f, false, {1, 0, -9}, false, 1, {1, 0, -3}, none}, // released; the ray distance is now 3
        {1.0f, true, {4, 0, -2}, true, 2, {4, 0, -2}, none},    // second point
        {0.5f, true, {9, 9, 9}, false, 2, {4, 0, -2}, none},
        {1.0f, true, {9, 9, 9}, false, 2, {4, 0, -2}, refining}, // waiting for the host
    };
    int row = 0;
    for (const Step& s : steps) {
        SCOPED_TRACE("step " + std::to_string(row++));
        Vec3d<float> target = s.target;
        EXPECT_EQ(controller->handleInput(s.trigger, s.hit, origin, target), s.placed);
        EXPECT_EQ(controller->getMeasuringState(), s.state);
        EXPECT_EQ(controller->getInfoText(), s.info);
        std::vector<Vec3d<float>> points{{7, 7, 7}};
        EXPECT_EQ(controller->getMeasurement(points), s.state == 2);
        if (s.state == 0) {
            continue;
        }
        EXPECT_LT(distance(controller->getSecondPoint(), s.second), 1e-5f);
        if (s.state == 1) {
            EXPECT_LT(distance(target, s.second), 1e-5f);
            EXPECT_FLOAT_EQ(host.lastLength, distance(controller->getFirstPoint(), s.second));
            EXPECT_EQ(points.size(), 1u); // left alone
        } else {
            ASSERT_EQ(points.size(), 2u);
            EXPECT_EQ(points[0], Vec3d<float>(1, 0, -2));
            EXPECT_EQ(points[1], Vec3d<float>(4, 0, -2));
        }
    }

    const std::shared_ptr<LineRenderer> finishedLine = controller->getCurrentLine();
    EXPECT_GT(finishedLine->getLabelWidthProportion(), 0.0f); // "refining..."
    controller->endMeasurement();
    EXPECT_EQ(controller->getMeasuringState(), 0);
    EXPECT_EQ(controller->getInfoText(), "");
    EXPECT_NE(controller->getCurrentLine(), finishedLine);
    std::vector<Vec3d<float>> points;
    EXPECT_FALSE(controller->getMeasurement(points));
}

TEST_F(MeasurementControllerGLTest, UpdateMeasurementsMatchesByUuid) {
    controller = std::make_unique<MeasurementController>(LINE_WIDTH, &host);
    controller->setMeasurements({across("a", 0), across("b", 1), across("c", 2)});
    const std::shared_ptr<LineRenderer> lineB = controller->getLine(4);

    // "a" removed, "b" moved to three points, "c" renamed to "c2", "d" added.
    controller->updateMeasurements({across("c2", 2), measurement("d", {{0, 0, 0}}),
                                    measurement("b", {{0, 0, -1}, {3, 0, -1}, {3, 4, -1}})});
    ASSERT_EQ(controller->getMeasurementCount(), 3u);
    EXPECT_EQ(controller->getUuidAtStencilIndex(3), "c2");
    EXPECT_EQ(controller->getUuidAtStencilIndex(4), "d");
    EXPECT_EQ(controller->getUuidAtStencilIndex(5), "b");
    for (unsigned outside : {0u, 1u, 2u, 6u}) {
        EXPECT_EQ(controller->getUuidAtStencilIndex(outside), "") << outside;
    }
    EXPECT_EQ(controller->getLine(5), lineB) << "a kept uuid keeps its line";
    EXPECT_EQ(lineB->getSegmentCount(), 2u);
    EXPECT_FLOAT_EQ(host.lastLength, 7.0f) << "a polyline is labelled with its total length";
    EXPECT_EQ(controller->getLine(4)->getSegmentCount(), 0u) << "one point draws nothing";

    controller->highlight(2); // below the range: ignored, not wrapped into it
}

TEST_F(MeasurementControllerGLTest, NormalPassDrawsLinesLabelsAndStencilValues) {
    controller = std::make_unique<MeasurementController>(LINE_WIDTH, &host);
    controller->setMeasurements({across("a", 0.1f), across("b", -1.5f)});
    drawPass(false);

    // Line "a" crosses row 66, "b" row 25; the label of "a" is a translucent white plate (grey over black)
    // with orange glyphs over the middle (rows 68 to 88), and is absent further along the line.
    EXPECT_TRUE(isLineColour(OrvelTest::readPixel(20, 66)));
    EXPECT_EQ(readStencil(20, 66), 3u);
    EXPECT_EQ(readStencil(100, 25), 4u);
    EXPECT_EQ(readStencil(20, 100), 0u);
    EXPECT_TRUE(isBlack(OrvelTest::readPixel(20, 78)));
    int plate = 0;
    int glyphs = 0;
    for (int y = 70; y < 86; ++y) {
        for (int x = 44; x < 84; ++x) {
            const OrvelTest::Rgba p = OrvelTest::readPixel(x, y);
            plate += (p.r == p.g && p.g == p.b && p.r > 60 && p.r < 100) ? 1 : 0;
            glyphs += (p.r > 100 && p.r > p.g + 40) ? 1 : 0;
        }
    }
    EXPECT_GT(plate, 100);
    EXPECT_GT(glyphs, 20);
    EXPECT_FALSE(glIsEnabled(GL_BLEND)) << "the label's blending is put back";

    controller->highlight(3);
    drawPass(false);
    EXPECT_TRUE(near(OrvelTest::readPixel(20, 66), 255, 153, 102));
    EXPECT_TRUE(isLineColour(OrvelTest::readPixel(100, 25)));
    controller->resetHighlight();
    drawPass(false);
    EXPECT_TRUE(isLineColour(OrvelTest::readPixel(20, 66)));
}

TEST_F(MeasurementControllerGLTest, StencilPassDrawsBroadBandThatLaterNormalPassesDoNot) {
    controller = std::make_unique<MeasurementController>(LINE_WIDTH, &host);
    controller->setMeasurements({across("a", 0.1f)});
    drawPass(true);
    EXPECT_EQ(readStencil(40, 66 + 40), 3u);
    EXPECT_EQ(readStencil(40, 66 - 40), 3u);
    EXPECT_EQ(readStencil(40, 66 + 55), 0u);

    drawPass(false);
    EXPECT_EQ(readStencil(40, 66 + 40), 0u);
    EXPECT_EQ(lineRows(40), 3);
}

TEST_F(MeasurementControllerGLTest, LineKeepsItsPixelWidthAtAnyDistance) {
    controller = std::make_unique<MeasurementController>(LINE_WIDTH, &host);
    controller->setMeasurements({across("near", 0.1f, -5.0f)});
    drawPass(false);
    // Column 34 lies between the arrow head and the label at both distances.
    const int nearRows = lineRows(34);
    controller->setMeasurements({across("far", 0.1f, -40.0f)});
    drawPass(false);
    EXPECT_EQ(lineRows(34), nearRows);
    EXPECT_EQ(nearRows, 3);
}

TEST_F(MeasurementControllerGLTest, ArrowHeadsOnlyOnceTheMeasurementIsFinished) {
    controller = std::make_unique<MeasurementController>(LINE_WIDTH, &host);
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
                count += isLineColour(OrvelTest::readPixel(x, y)) ? 1 : 0;
            }
        }
        return count;
    };
    drawPass(false, 7);
    EXPECT_TRUE(isLineColour(OrvelTest::readPixel(30, 66)));
    EXPECT_EQ(readStencil(30, 66), 0u) << "the measurement in progress names nothing";
    EXPECT_EQ(headPixels(), 0);

    controller->handleInput(1.0f, true, origin, second);
    drawPass(false, 7);
    EXPECT_GT(headPixels(), 8);
}

} // namespace
