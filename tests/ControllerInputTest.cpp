// The input rules of both controller families, the speed curve, the picking spiral, the wall test and the
// teleport landing, as tables.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>
#include <utility>

#include "vr/input/ControllerInput.h"
#include "vr/input/LaserBeam.h"

using namespace VR::Input;

namespace {

vr::VRControllerState_t state(std::uint64_t buttons, float x, float y, float trigger) {
    vr::VRControllerState_t s{};
    s.ulButtonPressed = buttons;
    s.rAxis[0] = {x, y};
    s.rAxis[1] = {trigger, 0.0f};
    return s;
}

constexpr std::uint64_t PAD = std::uint64_t{1} << BUTTON_TOUCHPAD;
constexpr std::uint64_t A = std::uint64_t{1} << BUTTON_A;
constexpr std::uint64_t GRIP = std::uint64_t{1} << BUTTON_GRIP;
constexpr float NaN = std::numeric_limits<float>::quiet_NaN();

} // namespace

TEST(ControllerInput, ButtonsAndLocomotionOfBothFamilies) {
    struct Row {
        const char* what;
        bool thumbstick;
        vr::VRControllerState_t in;
        bool lastPad;
        float trigger;
        bool triggerPressed, primary, grip;
        float move, turn;
        bool lastPadAfter;
    };
    const Row rows[] = {
        {"wand trigger full", false, state(0, 0, 0, 1.0f), false, 1.0f, true, false, false, 1.0f, 0, false},
        {"wand trigger 0.999", false, state(0, 0, 0, 0.999f), false, 0.999f, false, false, false, 0.999f, 0,
         false},
        {"thumbstick trigger 0.981", true, state(0, 0, 0, 0.981f), false, 0.981f, true, false, false, 0.981f,
         0, false},
        {"negative trigger", false, state(0, 0, 0, -0.5f), false, 0, false, false, false, 0, 0, false},
        {"broken trigger", true, state(0, NaN, NaN, NaN), false, 0, false, false, false, 0, 0, false},
        {"grip, both families", true, state(GRIP, 0, 0, 0), false, 0, false, false, true, 0, 0, false},
        {"touchpad right turns", false, state(PAD, 0.8f, 0, 0), false, 0, false, true, false, 0, 52.35988f,
         true},
        {"touchpad held does not", false, state(PAD, 0.8f, 0, 0), true, 0, false, true, false, 0, 0, true},
        {"touchpad at 0.5 does not", false, state(PAD, 0.5f, 0, 0), false, 0, false, true, false, 0, 0, true},
        {"touchpad left turns", false, state(PAD, -0.9f, 0, 0), false, 0, false, true, false, 0, -52.35988f,
         true},
        {"touchpad released", false, state(0, 0.9f, 0, 0), true, 0, false, false, false, 0, 0, false},
        {"touchpad back", false, state(PAD, 0, -0.8f, 0.5f), false, 0.5f, false, true, false, -1.2f, 0, true},
        {"trigger never backward", false, state(0, 0, -0.8f, 0.3f), false, 0.3f, false, false, false, 0.3f, 0,
         false},
        {"stick in dead zone", true, state(0, 0.3f, 0.3f, 0), false, 0, false, false, false, 0, 0, false},
        {"stick and trigger", true, state(0, 0, 1.0f, 1.0f), false, 1, true, false, false, 1.7f, 0, false},
        {"stick back and trigger", true, state(0, 0, -1.0f, 1.0f), true, 1, true, false, false, -1.7f, 0,
         true},
        {"stick right", true, state(A, 1.0f, 0, 0), false, 0, false, true, false, 0, 2.8f, false},
        {"stick left, pad bit ignored", true, state(PAD, -0.65f, 0, 0), false, 0, false, false, false, 0,
         -1.4f, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const ControllerButtons b = readButtons(row.in, row.thumbstick);
        EXPECT_FLOAT_EQ(b.trigger, row.trigger);
        EXPECT_EQ(b.triggerPressed, row.triggerPressed);
        EXPECT_EQ(b.primaryPressed, row.primary);
        EXPECT_EQ(b.gripPressed, row.grip);
        bool lastPad = row.lastPad;
        const Locomotion l = leftLocomotion(row.in, b, row.thumbstick, lastPad);
        EXPECT_NEAR(l.move, row.move, 1e-6f);
        EXPECT_NEAR(l.turn, row.turn, 1e-5f);
        EXPECT_EQ(lastPad, row.lastPadAfter);
    }
}

TEST(ControllerInput, SpeedCurves) {
    const std::pair<float, float> thumbstick[] = {{-1.7f, -0.17f}, {0.0f, 0.0f},  {0.5f, 0.05f},
                                                  {0.7f, 0.07f},   {0.8f, 0.12f}, {0.9f, 0.17f},
                                                  {1.0f, 0.67f},   {1.7f, 4.17f}};
    for (const auto& [move, speed] : thumbstick) {
        EXPECT_NEAR(speedCurve(move, true), speed, 1e-5f) << move;
    }
    const std::pair<float, float> wand[] = {{-1.7f, -2.89f}, {0.5f, 0.25f}, {1.0f, 1.0f}};
    for (const auto& [move, speed] : wand) {
        EXPECT_NEAR(speedCurve(move, false), speed, 1e-5f) << move;
    }
}

TEST(ControllerInput, SpiralVisitsEveryOffsetWithinFourStepsOnce) {
    std::set<std::pair<int, int>> seen;
    for (const SpiralOffset& offset : pickSpiral()) {
        EXPECT_TRUE(std::abs(offset.i) <= 4 && std::abs(offset.j) <= 4);
        seen.insert({offset.i, offset.j});
    }
    EXPECT_EQ(seen.size(), pickSpiral().size());
    EXPECT_EQ(pickSpiral().front().i + pickSpiral().front().j, 0) << "from the centre";
}

TEST(ControllerInput, WallsAreSteeperThanFortyFiveDegrees) {
    auto tilted = [](double slope) {
        std::vector<Ko_1_1::Vec3d<double>> points;
        for (int i = 0; i < 5; ++i) {
            for (int j = 0; j < 5; ++j) {
                points.push_back({i * 0.1, j * 0.1, 4.0 + i * 0.1 * slope});
            }
        }
        return points;
    };
    const std::pair<double, bool> slopes[] = {{0.0, false}, {0.9, false}, {1.1, true}, {1000.0, true}};
    for (const auto& [slope, wall] : slopes) {
        Ko_1_1::Vec3d<double> normal;
        ASSERT_TRUE(fitPlane(tilted(slope), normal)) << slope;
        EXPECT_NEAR(normal.length(), 1.0, 1e-9);
        EXPECT_EQ(isWall(normal), wall) << slope;
    }
    Ko_1_1::Vec3d<double> normal;
    EXPECT_FALSE(fitPlane({{0, 0, 0}, {1, 1, 1}}, normal));
    EXPECT_FALSE(fitPlane({{0, 0, 0}, {1, 1, 1}, {2, 2, 2}, {3, 3, 3}}, normal));
}

TEST(ControllerInput, TeleportLandsOverFloorsAndBackFromWalls) {
    const Ko_1_1::Vec3d<float> head{0.0f, 0.0f, 1.7f};
    auto landing = [&](bool wall, Ko_1_1::Vec3d<float> hit) {
        return hit + landingOffset(wall, hit, head, 1.7f);
    };
    const auto floor = landing(false, {3.0f, 4.0f, 0.0f});
    EXPECT_FLOAT_EQ(floor.z, 1.7f);
    EXPECT_FLOAT_EQ(floor.x, 3.0f);
    // Far walls: halfway. Near ones: one unit back toward the user, even behind the head.
    const auto far = landing(true, {10.0f, 0.0f, 1.7f});
    EXPECT_NEAR(far.x, 5.0f, 1e-6f);
    const auto near = landing(true, {1.5f, 0.0f, 1.7f});
    EXPECT_NEAR(near.x, 0.5f, 1e-6f);
    const auto onHead = landing(true, head);
    EXPECT_TRUE(std::isfinite(onHead.x) && std::isfinite(onHead.z));
}

TEST(LaserBeam, CylinderSpansFromTheControllerToTheRayEnd) {
    const Ko_1_1::Vec3d<float> start{1, 2, 3};
    const Ko_1_1::Vec3d<float> end{1, 5, 7};
    const auto m = VR::LaserBeam::placement(start, end);
    auto apply = [&](Ko_1_1::Vec3d<float> p) {
        return (m * Ko_1_1::Mat4d<float>::translationMatrix(p)).translation();
    };
    EXPECT_NEAR((apply({0, 0, 0}) - start).length(), 0.0f, 1e-6f);
    EXPECT_NEAR((apply({0, 0, -1}) - end).length(), 0.0f, 1e-5f);
    EXPECT_NEAR((apply({0.5f, 0, 0}) - start).length(), VR::LaserBeam::RADIUS, 1e-6f);
    EXPECT_NEAR((apply({0, 0.5f, 0}) - start).dot(end - start), 0.0f, 1e-6f);
    EXPECT_EQ(VR::LaserBeam::placement(start, start), (Ko_1_1::Mat4d<float>()));
}
