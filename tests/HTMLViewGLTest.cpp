#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "engine/Renderer.h"
#include "engine/Target.h"
#include "engine/Texture.h"
#include "tests/support/GLContext.h"
#include "vr/SharedMaterials.h"
#include "vr/objects/DoubleBufferedTexture.h"
#include "vr/objects/HTMLView.h"

namespace {

using Ko_1_1::Mat4d;
using Ko_1_1::Vec3d;

struct PageEvent {
    bool button; // sendHtmlButton, else sendHtmlPointerMove
    int x;
    int y;
    bool state;
    bool operator==(const PageEvent& o) const {
        return button == o.button && x == o.x && y == o.y && state == o.state;
    }
};

std::ostream& operator<<(std::ostream& out, const PageEvent& e) {
    return out << (e.button ? "button(" : "move(") << e.x << ", " << e.y << ", " << e.state << ")";
}

// A host that only serves a page and records what the tablet sends it.
class PageHost final : public VR::IVRView {
public:
    void showPage(int w, int h, std::vector<unsigned char> bgra) {
        width = w;
        height = h;
        pixels = std::move(bgra);
        fresh = true;
    }
    bool getHtmlImage(const unsigned char*& data, int& w, int& h) override {
        if (!fresh) {
            return false;
        }
        fresh = false;
        data = pixels.data();
        w = width;
        h = height;
        return true;
    }
    void sendHtmlPointerMove(int x, int y, bool state) override { events.push_back({false, x, y, state}); }
    void sendHtmlButton(int x, int y, bool state) override { events.push_back({true, x, y, state}); }

    void queryPoints(float, unsigned short, unsigned short, float, float, Vec3d<double>, Vec3d<double>,
                     Vec3d<double>, std::vector<VR::Point3dRGBA>&) override {}
    std::vector<VR::MeasurementData> getMeasurements() override { return {}; }
    std::vector<VR::AnnotationData> getAnnotations() override { return {}; }
    void reservedSlot3() override {}
    void getMeshes(std::vector<VR::MeshData>&) override {}
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
    std::string getLengthUnitText() override { return "m"; }
    std::string formatLength(float) override { return ""; }
    bool hasPendingMeasurement() override { return false; }
    void clearPendingMeasurement() override {}
    void reservedSlot25() override {}
    bool isMeshVisible() override { return false; }
    bool loadMeshData(Ko_1_1::StringVal* const&, std::vector<float>&, std::vector<float>&,
                      std::vector<unsigned int>&) override {
        return false;
    }

    std::vector<PageEvent> events;

private:
    int width = 0;
    int height = 0;
    std::vector<unsigned char> pixels;
    bool fresh = false;
};

class HTMLViewGLTest : public OrvelTest::GLTest {
protected:
    void TearDown() override {
        glDisable(GL_STENCIL_TEST);
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        renderer.setTarget(nullptr);
        VR::SharedMaterials::releaseAll();
        OrvelTest::GLTest::TearDown();
    }
    Brume::Renderer renderer;
};

constexpr int PAGE_WIDTH = 600;
constexpr int PAGE_HEIGHT = 300;

// A controller pointing down -z at the tablet (identity pose, 0.6 wide) from 1 m in front, aimed at the
// middle of page pixel (x, y).
Mat4d<float> aimAt(int x, int y) {
    return Mat4d<float>::translationMatrix({-0.3f + 0.6f * (static_cast<float>(x) + 0.5f) / PAGE_WIDTH,
                                            0.3f - 0.6f * (static_cast<float>(y) + 0.5f) / PAGE_HEIGHT,
                                            1.0f});
}

TEST_F(HTMLViewGLTest, TurnsTheRayIntoPageEvents) {
    PageHost host;
    HTMLView tablet(host);
    host.showPage(PAGE_WIDTH, PAGE_HEIGHT, std::vector<unsigned char>(PAGE_WIDTH * PAGE_HEIGHT * 4, 0));
    tablet.draw(renderer, Mat4d<float>(), nullptr, false);

    const Mat4d<float> pressAt = aimAt(100, 100);
    const Mat4d<float> nearby = aimAt(150, 50); // 50 pixels away in both directions: still a click
    const Mat4d<float> away = aimAt(100, 151);
    struct Frame {
        Mat4d<float> controller;
        bool button;
        bool hit;
        std::vector<PageEvent> events;
    };
    std::vector<Frame> frames{
        // The page's corners belong to it; behind the controller, or beside the page, is a miss.
        {Mat4d<float>::translationMatrix({-0.3f, 0.3f, 1}), false, true, {{false, 0, 0, true}}},
        {Mat4d<float>::translationMatrix({0.3f, -0.3f, 1}), false, true, {{false, 600, 300, true}}},
        {Mat4d<float>::translationMatrix({0.31f, 0, 1}), false, false, {}},
        {Mat4d<float>::translationMatrix({0, 0, -1}), false, false, {}},
        {Mat4d<float>::translationMatrix({0, 0, 0}), false, false, {}},
        // A shaky click: button down and up, no move.
        {pressAt, true, true, {{true, 100, 100, false}}},
        {nearby, true, true, {}},
        {nearby, true, true, {}},
        {nearby, false, true, {{true, 150, 50, true}}},
        // Moving further starts a drag at the press, then follows the ray.
        {pressAt, true, true, {{true, 100, 100, false}}},
        {away, true, true, {{false, 100, 100, false}}},
        {nearby, true, true, {{false, 150, 50, false}}},
        {nearby, false, true, {{true, 150, 50, true}}},
    };
    // A long press: the drag starts at the press on the 21st frame after it.
    frames.push_back({pressAt, true, true, {{true, 100, 100, false}}});
    for (int i = 1; i <= 20; ++i) {
        frames.push_back({pressAt, true, true, {}});
    }
    frames.push_back({nearby, true, true, {{false, 100, 100, false}}});
    frames.push_back({nearby, true, true, {{false, 150, 50, false}}});
    frames.push_back({nearby, false, true, {{true, 150, 50, true}}});

    const Mat4d<float> tabletPose;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        host.events.clear();
        Vec3d<float> hitPoint;
        EXPECT_EQ(tablet.handleInput(tabletPose, frames[i].controller, frames[i].button, hitPoint),
                  frames[i].hit)
            << "frame " << i;
        EXPECT_EQ(host.events, frames[i].events) << "frame " << i;
    }

    // A turned and moved tablet: the ray along the tablet's own axis meets it where it was aimed.
    const Mat4d<float> turned =
        Mat4d<float>::translationMatrix({1, 2, 3}) * Mat4d<float>::rotation({1, 0.5f, 0}, -0.7853982f);
    host.events.clear();
    Vec3d<float> hitPoint;
    ASSERT_TRUE(tablet.handleInput(turned, turned * aimAt(450, 75), false, hitPoint));
    EXPECT_EQ(host.events, (std::vector<PageEvent>{{false, 450, 75, true}}));
    const Vec3d<float> expected = turned * Vec3d<float>(0.3f * 0.5f + 0.0005f, 0.3f * 0.5f - 0.001f, 0);
    EXPECT_NEAR((hitPoint - expected).length(), 0.0f, 1e-4f);
}

TEST_F(HTMLViewGLTest, ReplacesPageTexturesOnlyForANewSize) {
    PageHost host;
    HTMLView tablet(host);
    tablet.draw(renderer, Mat4d<float>(), nullptr, false);
    EXPECT_EQ(tablet.getPageTexture(), nullptr);

    host.showPage(4, 2, std::vector<unsigned char>(4 * 2 * 4, 0));
    tablet.draw(renderer, Mat4d<float>(), nullptr, false);
    const auto first = tablet.getPageTexture();
    ASSERT_NE(first, nullptr);
    const auto front = first->front();
    const auto back = first->back();

    host.showPage(4, 2, std::vector<unsigned char>(4 * 2 * 4, 1));
    tablet.draw(renderer, Mat4d<float>(), nullptr, false);
    EXPECT_EQ(tablet.getPageTexture(), first);
    EXPECT_EQ(std::make_pair(first->front(), first->back()), std::make_pair(back, front));

    tablet.draw(renderer, Mat4d<float>(), nullptr, false); // nothing new: the page stays
    EXPECT_EQ(first->front(), back);

    host.showPage(2, 4, std::vector<unsigned char>(2 * 4 * 4, 0));
    tablet.draw(renderer, Mat4d<float>(), nullptr, false);
    const auto resized = tablet.getPageTexture();
    for (const auto& old : {front, back}) {
        EXPECT_NE(resized->front(), old);
        EXPECT_NE(resized->back(), old);
    }
    EXPECT_EQ(std::make_pair(resized->front()->getWidth(), resized->front()->getHeight()),
              std::make_pair(2, 4));
    EXPECT_EQ(std::make_pair(resized->back()->getWidth(), resized->back()->getHeight()),
              std::make_pair(2, 4));
}

unsigned readStencil(int x, int y) {
    GLuint depthStencil = 0;
    glReadPixels(x, y, 1, 1, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, &depthStencil);
    return depthStencil & 0xFFu;
}

TEST_F(HTMLViewGLTest, ShowsThePageUprightInTheHostsColours) {
    constexpr int SIZE = 128;
    auto color = std::make_shared<Brume::Texture>(SIZE, SIZE, GL_RGBA, GL_NEAREST, GL_NEAREST,
                                                  GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
    auto depth = std::make_shared<Brume::Texture>(SIZE, SIZE, GL_DEPTH_STENCIL, GL_NEAREST, GL_NEAREST,
                                                  GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
    renderer.setTarget(std::make_shared<Brume::Target>(color, depth));
    glViewport(0, 0, SIZE, SIZE);
    glEnable(GL_STENCIL_TEST);
    glStencilOp(GL_KEEP, GL_KEEP, GL_REPLACE);
    glClearColor(0, 0, 0, 0);
    glStencilMask(0xFF);
    glClear(GL_STENCIL_BUFFER_BIT);
    renderer.clear();

    // 2 x 2 BGRA, top row first: red, green / blue, white.
    PageHost host;
    host.showPage(2, 2, {0, 0, 255, 255, 0, 255, 0, 255, 255, 0, 0, 255, 255, 255, 255, 255});
    HTMLView tablet(host);
    // Twice the tablet's size: it covers pixels 26 to 102.
    Mat4d<float> mvp;
    mvp.at(0, 0) = 2;
    mvp.at(1, 1) = 2;
    tablet.draw(renderer, mvp, nullptr, true);

    const struct {
        int x, y;
        OrvelTest::Rgba color;
    } expected[] = {{30, 98, {255, 0, 0, 255}},
                    {98, 98, {0, 255, 0, 255}},
                    {30, 30, {0, 0, 255, 255}},
                    {98, 30, {255, 255, 255, 255}},
                    {10, 10, {0, 0, 0, 0}}};
    for (const auto& e : expected) {
        const OrvelTest::Rgba p = OrvelTest::readPixel(e.x, e.y);
        EXPECT_EQ(std::vector<int>({p.r, p.g, p.b, p.a}),
                  std::vector<int>({e.color.r, e.color.g, e.color.b, e.color.a}))
            << e.x << ", " << e.y;
    }
    EXPECT_EQ(readStencil(64, 64), HTMLView::STENCIL_START_INDEX);
    EXPECT_EQ(readStencil(10, 10), 0u);

    // Without VR the tablet fills a view of its own, wherever the given matrix would put it.
    tablet.setVrEnabled(false);
    renderer.clear();
    tablet.draw(renderer, Mat4d<float>::translationMatrix({5, 0, 0}), nullptr, false);
    EXPECT_EQ(OrvelTest::readPixel(10, 118).r, 255);
    EXPECT_EQ(OrvelTest::readPixel(118, 10).g, 255);
}

} // namespace
