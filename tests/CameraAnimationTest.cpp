#include <gtest/gtest.h>

#include <cstdint>

#include "vr/input/CameraAnimationVR.h"

namespace {

using Ko_1_1::Vec3d;

constexpr std::int64_t SECOND = 1000000000;

// The clock stands wherever the test puts `now`.
class CameraAnimationVRTest : public ::testing::Test {
protected:
    CameraAnimationVR make(double duration) {
        return {{1, 2, 3}, {5, -2, 7}, {0, 0, 0.5f}, {0.25f, 0, -1.5f}, duration, [this] { return now; }};
    }
    std::int64_t now = 42 * SECOND;
};

TEST_F(CameraAnimationVRTest, InterpolatesLinearlyAndStaysAtTheEnd) {
    const CameraAnimationVR animation = make(2.0);
    struct Case {
        std::int64_t elapsed;
        double progress;
        Vec3d<float> position;
        Vec3d<float> angles;
    };
    for (const Case& c :
         {Case{0, 0.0, {1, 2, 3}, {0, 0, 0.5f}}, Case{SECOND, 0.5, {3, 0, 5}, {0.125f, 0, -0.5f}},
          Case{2 * SECOND, 1.0, {5, -2, 7}, {0.25f, 0, -1.5f}},
          Case{7 * SECOND, 3.5, {5, -2, 7}, {0.25f, 0, -1.5f}}}) {
        now = 42 * SECOND + c.elapsed;
        EXPECT_DOUBLE_EQ(animation.progress(), c.progress) << c.elapsed;
        EXPECT_EQ(animation.getPosition(), c.position) << c.elapsed;
        EXPECT_EQ(animation.getAngles(), c.angles) << c.elapsed;
        EXPECT_EQ(animation.isFinished(), c.progress >= 1.0) << c.elapsed;
    }
}

TEST_F(CameraAnimationVRTest, NonPositiveDurationEndsAtOnceOnTheEndValues) {
    for (const double duration : {0.0, -1.0}) {
        const CameraAnimationVR animation = make(duration);
        EXPECT_TRUE(animation.isFinished());
        EXPECT_EQ(animation.getPosition(), (Vec3d<float>{5, -2, 7}));
        EXPECT_EQ(animation.getAngles(), (Vec3d<float>{0.25f, 0, -1.5f}));
    }
}

} // namespace
