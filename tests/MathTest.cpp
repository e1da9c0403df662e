#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "common/IVRView.h"
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

void expectNear(const Mat4d<float>& actual, const Mat4d<float>& expected, float tolerance = 1e-5f) {
    for (int i = 0; i < 16; ++i) {
        EXPECT_NEAR(actual[i], expected[i], tolerance) << "index " << i;
    }
}

} // namespace

TEST(Vec3d, ArithmeticDotCrossLength) {
    const Vec3d<float> a(1, 2, 3);
    const Vec3d<float> b(4, -5, 6);
    EXPECT_EQ(a - b * 2.0f, Vec3d<float>(-7, 12, -9));
    EXPECT_EQ(a.dot(b), 4 - 10 + 18);
    EXPECT_EQ(Vec3d<float>(1, 0, 0).cross(Vec3d<float>(0, 1, 0)), Vec3d<float>(0, 0, 1));
    EXPECT_EQ(a.cross(b).dot(a), 0);
    EXPECT_FLOAT_EQ(Vec3d<float>(3, 4, 12).length(), 13);
}

TEST(Vec3d, NormalizeTreatsOnlyVanishingVectorsAsZero) {
    // Short vectors are still normalised: the zero test works at 1e-16 resolution of the squared length.
    const struct {
        Vec3d<float> in;
        bool normalised;
        Vec3d<float> out;
    } cases[] = {{{0, 0, 0}, false, {1, 0, 0}},
                 {{0, 0, 0.01f}, true, {0, 0, 1}},
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

TEST(Mat4d, StorageIsColumnMajorAndListTakesAtMostSixteenValues) {
    const Mat4d<float> m{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17};
    EXPECT_EQ(m[15], 15);
    EXPECT_EQ(m.at(1, 3), 13) << "row 1, column 3 is index 4 * 3 + 1";
    const Mat4d<float> partial{1, 2};
    EXPECT_EQ(partial[1], 2);
    EXPECT_EQ(partial[2], 0);
    EXPECT_EQ(partial[15], 0);
}

TEST(Mat4d, ProductAppliesRightOperandFirst) {
    Mat4d<float> rotate;
    rotate.setRotation({0, 0, 1}, PI / 2);
    Mat4d<float> move;
    move.setTranslation({10, 0, 0});
    // Rotate first, then move: (1,0,0) -> (0,1,0) -> (10,1,0).
    expectNear((move * rotate) * Vec3d<float>(1, 0, 0), {10, 1, 0});
    // Move first, then rotate: (1,0,0) -> (11,0,0) -> (0,11,0).
    expectNear((rotate * move) * Vec3d<float>(1, 0, 0), {0, 11, 0});
    expectNear(Mat4d<float>() * move, move);
}

TEST(Mat4d, SetRotationTurnsCounterClockwiseAboutTheAxis) {
    Mat4d<float> m;
    m.setTranslation({5, 6, 7});
    m.setRotation({0, 0, 1}, PI / 2);
    expectNear(m.transformDirection({1, 0, 0}), {0, 1, 0});
    expectNear(m.transformDirection({0, 1, 0}), {-1, 0, 0});
    expectNear(m.translation(), {5, 6, 7});
    EXPECT_EQ(m[15], 1);

    // The axis need not be unit length.
    Mat4d<float> aboutX;
    aboutX.setRotation({3, 0, 0}, PI / 2);
    expectNear(aboutX.transformDirection({0, 1, 0}), {0, 0, 1});

    // A zero axis resets the rotation block and leaves everything else alone.
    Mat4d<float> z{2, 2, 2, 9, 2, 2, 2, 9, 2, 2, 2, 9, 5, 6, 7, 8};
    z.setRotation({0, 0, 0}, 1.0f);
    expectNear(z, Mat4d<float>{1, 0, 0, 9, 0, 1, 0, 9, 0, 0, 1, 9, 5, 6, 7, 8});
}

TEST(Mat4d, SetTranslationAndIdentityRotationTouchOnlyTheirElements) {
    Mat4d<float> m{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    m.setTranslation({-1, -2, -3});
    EXPECT_EQ(m, (Mat4d<float>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, -1, -2, -3, 1}));
    m.setIdentityRotation();
    EXPECT_EQ(m, (Mat4d<float>{1, 0, 0, 4, 0, 1, 0, 8, 0, 0, 1, 12, -1, -2, -3, 1}));
}

TEST(Mat4d, PerspectiveMapsNearAndFarToClipRange) {
    const Mat4d<float> p = Mat4d<float>::perspective(1500, 1500, -0.2f, -1000, PI / 4, 0, 0);
    EXPECT_FLOAT_EQ(p[0], 1 / std::tan(PI / 8));
    EXPECT_EQ(p[11], -1);
    EXPECT_NEAR((p * Vec3d<float>(0, 0, -0.2f)).z, -1, 1e-4);
    EXPECT_NEAR((p * Vec3d<float>(0, 0, -1000)).z, 1, 1e-4);
    // The top of the field of view at some depth lands on the top edge.
    EXPECT_NEAR((p * Vec3d<float>(0, 5 * std::tan(PI / 8), -5)).y, 1, 1e-5);

    const Mat4d<float> wide = Mat4d<float>::perspective(200, 100, -0.5f, -10, PI / 2, 0.25f, -0.5f);
    EXPECT_FLOAT_EQ(wide[0], 0.5f);
    EXPECT_FLOAT_EQ(wide[8], 0.25f / (200 * -0.5f));
    EXPECT_FLOAT_EQ(wide[9], -0.5f / (100 * -0.5f));

    const Mat4d<float> infinite =
        Mat4d<float>::perspective(1, 1, -0.2f, -std::numeric_limits<float>::infinity(), PI / 4, 0, 0);
    EXPECT_EQ(infinite[10], -1);
    EXPECT_FLOAT_EQ(infinite[14], 0.4f);
}

TEST(Mat4d, AffineInverseUndoesRotationScaleAndTranslation) {
    Mat4d<float> rotate;
    rotate.setRotation({1, 2, 3}, 0.7f);
    Mat4d<float> scale{2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0.5f, 0, 0, 0, 0, 1};
    Mat4d<float> move;
    move.setTranslation({4, -5, 6});
    const Mat4d<float> m = move * rotate * scale;
    expectNear(m * m.affineInverse(), Mat4d<float>());
    expectNear(m.affineInverse() * m, Mat4d<float>());
    const Vec3d<float> p(0.3f, -2, 8);
    expectNear(m.affineInverse() * (m * p), p, 1e-4f);
}

#if defined(__GNUC__) && !defined(_WIN32)
namespace {

// On the Itanium C++ ABI a pointer to a virtual member function holds 1 + the byte offset of its entry in
// the virtual table, so the slot each operation occupies can be read without an instance.
template <typename F> std::size_t slotOf(F function) {
    struct Representation {
        std::uintptr_t pointer;
        std::ptrdiff_t adjustment;
    };
    static_assert(sizeof(F) == sizeof(Representation), "unexpected member pointer size");
    Representation r;
    std::memcpy(&r, &function, sizeof(r));
    EXPECT_EQ(r.pointer % 2, 1u) << "not a virtual function";
    return (r.pointer - 1) / sizeof(void*);
}

} // namespace

TEST(IVRView, OperationsOccupyTheirSlots) {
    using V = VR::IVRView;
    EXPECT_EQ(slotOf(&V::queryPoints), 0u);
    EXPECT_EQ(slotOf(&V::getMeasurements), 1u);
    EXPECT_EQ(slotOf(&V::getAnnotations), 2u);
    EXPECT_EQ(slotOf(&V::reservedSlot3), 3u);
    EXPECT_EQ(slotOf(&V::getMeshes), 4u);
    EXPECT_EQ(slotOf(&V::getHtmlImage), 5u);
    EXPECT_EQ(slotOf(&V::sendHtmlPointerMove), 6u);
    EXPECT_EQ(slotOf(&V::sendHtmlButton), 7u);
    EXPECT_EQ(slotOf(&V::onVrClosed), 8u);
    EXPECT_EQ(slotOf(&V::onMeasurementFinished), 9u);
    EXPECT_EQ(slotOf(&V::onMeasurementPointAdded), 10u);
    EXPECT_EQ(slotOf(&V::getPendingMeasurement), 11u);
    EXPECT_EQ(slotOf(&V::onObjectClicked), 12u);
    EXPECT_EQ(slotOf(&V::onScreenshot), 13u);
    EXPECT_EQ(slotOf(&V::setHeadsetKind), 14u);
    EXPECT_EQ(slotOf(&V::takeFlyToRequest), 15u);
    EXPECT_EQ(slotOf(&V::setViewTransform), 16u);
    EXPECT_EQ(slotOf(&V::reservedSlot17), 17u);
    EXPECT_EQ(slotOf(&V::isHeightLocked), 18u);
    EXPECT_EQ(slotOf(&V::reservedSlot19), 19u);
    EXPECT_EQ(slotOf(&V::getPointSize), 20u);
    EXPECT_EQ(slotOf(&V::getLengthUnitText), 21u);
    EXPECT_EQ(slotOf(&V::formatLength), 22u);
    EXPECT_EQ(slotOf(&V::hasPendingMeasurement), 23u);
    EXPECT_EQ(slotOf(&V::clearPendingMeasurement), 24u);
    EXPECT_EQ(slotOf(&V::reservedSlot25), 25u);
    EXPECT_EQ(slotOf(&V::isMeshVisible), 26u);
    EXPECT_EQ(slotOf(&V::loadMeshData), 27u);
}
#endif
