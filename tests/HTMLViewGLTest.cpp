#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <vector>

#include "engine/Renderer.h"
#include "engine/Target.h"
#include "tests/support/GLContext.h"
#include "tests/support/RecordingHost.h"
#include "vr/SharedMaterials.h"
#include "vr/objects/DoubleBufferedTexture.h"
#include "vr/objects/HTMLView.h"

namespace {

using Ko_1_1::Mat4d;
using Ko_1_1::Vec3d;
// {button (else pointer move), x, y, state}
using PageEvent = std::tuple<bool, int, int, bool>;

constexpr int PAGE_WIDTH = 600;
constexpr int PAGE_HEIGHT = 300;

class HTMLViewGLTest : public OrvelTest::GLTest {
protected:
    // The tablet makes its GL objects on construction, so only once the context is current.
    void SetUp() override {
        OrvelTest::GLTest::SetUp();
        tablet = std::make_unique<HTMLView>(host);
    }
    void TearDown() override {
        tablet.reset();
        renderer.setTarget(nullptr);
        VR::SharedMaterials::releaseAll();
        OrvelTest::GLTest::TearDown();
    }
    // The events the tablet sent the host since the last call.
    std::vector<PageEvent> newEvents() {
        std::vector<PageEvent> events;
        const auto all = host.htmlEvents();
        for (; seen < all.size(); ++seen) {
            events.emplace_back(all[seen].button, all[seen].x, all[seen].y, all[seen].state);
        }
        return events;
    }
    void showPage(int width, int height, unsigned char value) {
        host.setPage(std::vector<unsigned char>(static_cast<std::size_t>(width * height * 4), value), width,
                     height);
        tablet->draw(renderer, Mat4d<float>(), nullptr, false);
    }

    OrvelTest::RecordingHost host;
    std::unique_ptr<HTMLView> tablet;
    Brume::Renderer renderer;
    std::size_t seen = 0;
};

// A controller pointing down -z at the tablet (identity pose, 0.6 wide) from 1 m in front, aimed at the
// middle of page pixel (x, y).
Mat4d<float> aimAt(int x, int y) {
    return Mat4d<float>::translationMatrix({-0.3f + 0.6f * (static_cast<float>(x) + 0.5f) / PAGE_WIDTH,
                                            0.3f - 0.6f * (static_cast<float>(y) + 0.5f) / PAGE_HEIGHT,
                                            1.0f});
}

TEST_F(HTMLViewGLTest, TurnsTheRayIntoPageEvents) {
    showPage(PAGE_WIDTH, PAGE_HEIGHT, 0);
    const Mat4d<float> pressAt = aimAt(100, 100);
    const Mat4d<float> nearby = aimAt(150, 50); // 50 pixels away in both directions: still a click
    const Mat4d<float> away = aimAt(100, 151);
    const PageEvent press{true, 100, 100, false};
    const PageEvent release{true, 150, 50, true};
    const PageEvent dragFromPress{false, 100, 100, false};
    const PageEvent dragNearby{false, 150, 50, false};
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
        {pressAt, true, true, {press}},
        {nearby, true, true, {}},
        {nearby, false, true, {release}},
        // Moving further starts a drag at the press, then follows the ray.
        {pressAt, true, true, {press}},
        {away, true, true, {dragFromPress}},
        {nearby, true, true, {dragNearby}},
        {nearby, false, true, {release}},
        // A long press: the drag starts at the press on the 21st frame after it.
        {pressAt, true, true, {press}},
    };
    frames.insert(frames.end(), 20, {pressAt, true, true, {}});
    frames.push_back({nearby, true, true, {dragFromPress}});
    frames.push_back({nearby, true, true, {dragNearby}});
    frames.push_back({nearby, false, true, {release}});

    Vec3d<float> hitPoint;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(tablet->handleInput(Mat4d<float>(), frames[i].controller, frames[i].button, hitPoint),
                  frames[i].hit)
            << "frame " << i;
        EXPECT_EQ(newEvents(), frames[i].events) << "frame " << i;
    }

    // A turned and moved tablet: the ray along the tablet's own axis meets it where it was aimed.
    const Mat4d<float> turned =
        Mat4d<float>::translationMatrix({1, 2, 3}) * Mat4d<float>::rotation({1, 0.5f, 0}, -0.7853982f);
    ASSERT_TRUE(tablet->handleInput(turned, turned * aimAt(450, 75), false, hitPoint));
    EXPECT_EQ(newEvents(), (std::vector<PageEvent>{{false, 450, 75, true}}));
    const Vec3d<float> expected = turned * Vec3d<float>(0.3f * 0.5f + 0.0005f, 0.3f * 0.5f - 0.001f, 0);
    EXPECT_NEAR((hitPoint - expected).length(), 0.0f, 1e-4f);
}

// The page's two textures swap at each new page of the same size and are only remade for a new size.
TEST_F(HTMLViewGLTest, ReplacesPageTexturesOnlyForANewSize) {
    showPage(4, 2, 0);
    const auto first = tablet->getPageTexture();
    ASSERT_NE(first, nullptr);
    const auto shown = std::make_pair(first->front(), first->back());
    showPage(4, 2, 1);
    tablet->draw(renderer, Mat4d<float>(), nullptr, false); // nothing new: the page stays
    EXPECT_EQ(tablet->getPageTexture(), first);
    EXPECT_EQ(std::make_pair(first->back(), first->front()), shown);

    showPage(2, 4, 0);
    for (const auto& texture : {tablet->getPageTexture()->front(), tablet->getPageTexture()->back()}) {
        EXPECT_TRUE(texture != shown.first && texture != shown.second);
        EXPECT_EQ(std::make_pair(texture->getWidth(), texture->getHeight()), std::make_pair(2, 4));
    }
}

using OrvelTest::readStencil;

TEST_F(HTMLViewGLTest, ShowsThePageUprightInTheHostsColours) {
    constexpr int SIZE = 128;
    OrvelTest::drawInto(renderer, SIZE, SIZE);
    renderer.clear();

    // 2 x 2 BGRA, top row first: red, green / blue, white.
    host.setPage({0, 0, 255, 255, 0, 255, 0, 255, 255, 0, 0, 255, 255, 255, 255, 255}, 2, 2);
    // Twice the tablet's size: it covers pixels 26 to 102.
    Mat4d<float> mvp;
    mvp.at(0, 0) = 2;
    mvp.at(1, 1) = 2;
    tablet->draw(renderer, mvp, nullptr, true);

    const struct {
        int x, y;
        std::vector<int> rgba;
    } expected[] = {{30, 98, {255, 0, 0, 255}},
                    {98, 98, {0, 255, 0, 255}},
                    {30, 30, {0, 0, 255, 255}},
                    {98, 30, {255, 255, 255, 255}},
                    {10, 10, {0, 0, 0, 0}}};
    for (const auto& e : expected) {
        const OrvelTest::Rgba p = OrvelTest::readPixel(e.x, e.y);
        EXPECT_EQ(std::vector<int>({p.r, p.g, p.b, p.a}), e.rgba) << e.x << ", " << e.y;
    }
    EXPECT_EQ(readStencil(64, 64), HTMLView::STENCIL_START_INDEX);
    EXPECT_EQ(readStencil(10, 10), 0u);

    // Without VR the tablet fills a view of its own, wherever the given matrix would put it.
    tablet->setVrEnabled(false);
    renderer.clear();
    tablet->draw(renderer, Mat4d<float>::translationMatrix({5, 0, 0}), nullptr, false);
    EXPECT_EQ(OrvelTest::readPixel(10, 118).r, 255);
    EXPECT_EQ(OrvelTest::readPixel(118, 10).g, 255);
}

} // namespace
