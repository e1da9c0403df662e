#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>

#include "engine/Renderer.h"
#include "tests/support/GLContext.h"
#include "vr/SharedMaterials.h"
#include "vr/input/TeleportRenderer.h"

namespace {

using OrvelTest::readPixel;

// An orthographic eye above the floor looking straight down: world (x, y) lands at pixel
// (32 + 32 x, 32 + 32 y) of the 64 x 64 target, and higher z is nearer.
const Ko_1_1::Mat4d<float> LOOK_DOWN({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1});
// The pad's centre lands at pixel (48, 48); its 0.25 radius covers 8 pixels around it.
const Ko_1_1::Vec3d<float> PAD{0.5f, 0.5f, 0.0f};

class TeleportRendererGLTest : public OrvelTest::GLTest {
protected:
    void SetUp() override {
        OrvelTest::GLTest::SetUp();
        OrvelTest::drawInto(renderer, 64, 64);
        teleport = std::make_unique<VR::TeleportRenderer>(1.0f, [this] { return now; });
        // Along the middle of pixel row 16, above the pad; pixel column 32 is 0.915 from the start.
        teleport->setLine({-0.9f, -0.484375f, 0.5f}, {0.9f, -0.484375f, 0.5f});
        teleport->setPadPosition(PAD);
    }
    void TearDown() override {
        teleport.reset();
        VR::SharedMaterials::releaseAll();
        renderer.setTarget(nullptr);
        OrvelTest::GLTest::TearDown();
    }

    Brume::Renderer renderer;
    std::unique_ptr<VR::TeleportRenderer> teleport;
    std::int64_t now = 0;
};

TEST_F(TeleportRendererGLTest, LineGreyFollowsTheHitAndPadShowsOnlyWhileActive) {
    // Bright dashes keep the grey, faint ones are 0.35 of it over the black clear; 100 ms on from 0 the
    // dashes have moved half a dash along the line.
    struct Case {
        int hits;
        bool active;
        std::int64_t ms;
        float grey;
    };
    for (const Case& c : {Case{1, false, 0, 220}, Case{0, false, 0, 150}, Case{1, true, 100, 220},
                          Case{0, true, 0, 150 * 0.35f}}) {
        SCOPED_TRACE(testing::Message() << "hits " << c.hits << " active " << c.active);
        now = c.ms * 1000000;
        teleport->setLineHitsTarget(c.hits);
        renderer.clear();
        teleport->draw(renderer, LOOK_DOWN, c.active);

        EXPECT_NEAR(readPixel(32, 16).g, c.grey, 1.0f);
        const OrvelTest::Rgba pad = readPixel(48, 48);
        EXPECT_EQ(pad.b > pad.r, c.active) << +pad.r << " " << +pad.g << " " << +pad.b;
        // Where the pad would be without its translation, and just beyond its rim.
        EXPECT_EQ(readPixel(32, 32).a, 0);
        EXPECT_EQ(readPixel(58, 48).a, 0);
    }
}

TEST_F(TeleportRendererGLTest, RestoresBlendAndCullingAndDrawsAZeroLengthLine) {
    const auto state = [] {
        std::array<GLint, 7> values{glIsEnabled(GL_BLEND), glIsEnabled(GL_CULL_FACE)};
        const GLenum names[] = {GL_BLEND_SRC_RGB, GL_BLEND_DST_RGB, GL_BLEND_SRC_ALPHA, GL_BLEND_DST_ALPHA,
                                GL_FRONT_FACE};
        for (std::size_t i = 0; i < 5; ++i) {
            glGetIntegerv(names[i], &values[i + 2]);
        }
        return values;
    };
    teleport->setLine(PAD, PAD);
    for (const bool on : {true, false}) {
        on ? glEnable(GL_BLEND) : glDisable(GL_BLEND);
        on ? glEnable(GL_CULL_FACE) : glDisable(GL_CULL_FACE);
        on ? glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ZERO)
           : glBlendFunc(GL_ONE, GL_ZERO);
        const std::array<GLint, 7> before = state();
        teleport->draw(renderer, LOOK_DOWN, false);
        teleport->draw(renderer, LOOK_DOWN, true);
        EXPECT_EQ(state(), before) << on;
        EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    }
}

} // namespace
