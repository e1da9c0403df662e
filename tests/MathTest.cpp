#include <gtest/gtest.h>

#include <cmath>

#include "common/Mat4d.h"
#include "common/Vec3d.h"

using Ko_1_1::Mat4d;
using Ko_1_1::Vec3d;

namespace {

constexpr float PI = 3.14159265358979f;

void expectNear(const Vec3d<float>& actual, const Vec3d<float>& expected, float tolerance = 1e-5f) {
    EXPECT_NEAR(actual.x, expected.x, tolerance);
    EXPECT_NEAR(actual.y, expected.y, tolerance);
    EXPECT_NEAR(actual.z, expected.z, tolerance);
}

} // namespace

TEST(Vec3d, NormalizeTreatsOnlyVanishingVectorsAsZero) {
    // Short vectors are still normalised: the zero test works at 1e-16 resolution of the squared length.
    const struct {
        Vec3d<float> in;
        bool normalised;
        Vec3d<float> out;
    } cases[] = {{{0, 0, 0}, false, {1, 0, 0}},
                 {{0, 1e-7f, 0}, true, {0, 1, 0}},
                 {{0, 0, 1e-9f}, false, {1, 0, 0}},
                 {{3, 0, -4}, true, {0.6f, 0, -0.8f}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.in.x << ", " << c.in.y << ", " << c.in.z);
        Vec3d<float> v = c.in;
        EXPECT_EQ(v.normalize(), c.normalised);
        expectNear(v, c.out);
    }
}

TEST(Mat4d, ColumnMajorProductAppliesRightOperandFirst) {
    const Mat4d<float> m{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17};
    EXPECT_EQ(m.at(1, 3), 13) << "row 1, column 3 is index 4 * 3 + 1";

    Mat4d<float> rotate;
    rotate.setRotation({0, 0, 1}, PI / 2); // counter-clockwise about z
    Mat4d<float> move;
    move.setTranslation({10, 0, 0});
    // Rotate first, then move: (1,0,0) -> (0,1,0) -> (10,1,0); the other way round: (11,0,0) -> (0,11,0).
    expectNear((move * rotate) * Vec3d<float>(1, 0, 0), {10, 1, 0});
    expectNear((rotate * move) * Vec3d<float>(1, 0, 0), {0, 11, 0});

    // Setting the rotation keeps the translation; a non-unit axis is normalised.
    move.setRotation({3, 0, 0}, PI / 2);
    expectNear(move * Vec3d<float>(0, 1, 0), {10, 0, 1});
}

TEST(Mat4d, PerspectiveMapsNearAndFarToClipRange) {
    const Mat4d<float> p = Mat4d<float>::perspective(1500, 1500, -0.2f, -1000, PI / 4, 0, 0);
    EXPECT_NEAR((p * Vec3d<float>(0, 0, -0.2f)).z, -1, 1e-4);
    EXPECT_NEAR((p * Vec3d<float>(0, 0, -1000)).z, 1, 1e-4);
    // The top of the field of view at some depth lands on the top edge.
    EXPECT_NEAR((p * Vec3d<float>(0, 5 * std::tan(PI / 8), -5)).y, 1, 1e-5);
}

TEST(Mat4d, AffineInverseUndoesRotationScaleAndTranslation) {
    Mat4d<float> rotate;
    rotate.setRotation({1, 2, 3}, 0.7f);
    const Mat4d<float> scale{2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0.5f, 0, 0, 0, 0, 1};
    Mat4d<float> move;
    move.setTranslation({4, -5, 6});
    const Mat4d<float> m = move * rotate * scale;
    const Vec3d<float> p(0.3f, -2, 8);
    expectNear(m.affineInverse() * (m * p), p, 1e-4f);
    expectNear(m * (m.affineInverse() * p), p, 1e-4f);
}
