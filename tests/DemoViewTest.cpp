#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "examples/DemoView.h"

// The viewer reaches the host only through the interface, so the test does too.
TEST(DemoView, AnswersPointQueryAndKeepsScreenshotAndFrames) {
    Demo::PointCloud cloud(Ko_1_1::Vec3d<double>{100.0, 200.0, 0.0});
    cloud.addWorld(100.0, 205.0, 1.5, 9, 8, 7);
    Demo::DemoView demo(std::make_shared<const Demo::VisibilityQuery>(std::move(cloud)));
    std::vector<std::uint64_t> frames;
    demo.setFrameCallback([&frames](std::uint64_t frame) { frames.push_back(frame); });
    VR::IVRView& view = demo;

    std::vector<VR::Point3dRGBA> points;
    view.queryPoints(1.2f, 100, 100, 0.02f, 1000.0f, {100.0, 200.0, 1.5}, {0, 0, 1}, {0, -1, 0}, points);
    ASSERT_EQ(points.size(), 1u);
    EXPECT_NEAR(points[0].z, -5.0f, 1e-4f);
    EXPECT_EQ(points[0].r, 9);

    std::vector<unsigned char> rgba;
    unsigned width = 0, height = 0;
    EXPECT_FALSE(demo.lastScreenshot(rgba, width, height));
    view.onScreenshot({1, 2, 3, 4, 5, 6, 7, 8}, 2, 1, Ko_1_1::Mat4d<float>{});
    ASSERT_TRUE(demo.lastScreenshot(rgba, width, height));
    EXPECT_EQ(rgba, (std::vector<unsigned char>{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(width, 2u);
    EXPECT_EQ(height, 1u);

    view.setViewTransform(Ko_1_1::Mat4d<float>{});
    view.setViewTransform(Ko_1_1::Mat4d<float>{});
    EXPECT_EQ(frames, (std::vector<std::uint64_t>{1, 2}));
}
