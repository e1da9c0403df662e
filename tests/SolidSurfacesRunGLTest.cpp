// The demo host's answers drawn by the viewer in whole runs on the simulated runtime, at the headset's full
// eye size: where a surface fills the middle of the view, the middle of the submitted picture is surface,
// not background, and nothing behind the surface shows through.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "examples/DemoView.h"
#include "examples/SceneGenerator.h"
#include "examples/VisibilityQuery.h"
#include "simvr/SimVR.h"
#include "vr/VRManager.h"

namespace {

struct Picture {
    std::vector<std::uint8_t> rgba;
    std::uint32_t width = 0;
    std::uint32_t height = 0;

    // Background is what nothing was drawn over: the clear colour's alpha of 0.
    double backgroundInMiddleThird() const {
        std::size_t background = 0;
        std::size_t all = 0;
        for (std::uint32_t y = height / 3; y < 2 * height / 3; ++y) {
            for (std::uint32_t x = width / 3; x < 2 * width / 3; ++x) {
                background += rgba[(static_cast<std::size_t>(y) * width + x) * 4 + 3] == 0 ? 1 : 0;
                ++all;
            }
        }
        return static_cast<double>(background) / static_cast<double>(all);
    }
    std::size_t redPixels() const {
        std::size_t n = 0;
        for (std::size_t i = 0; i + 3 < rgba.size(); i += 4) {
            n += rgba[i] > 200 && rgba[i + 1] < 60 && rgba[i + 2] < 60 ? 1 : 0;
        }
        return n;
    }
};

// Runs the demo host's view of the cloud with the head standing still at `start` + 1.7 m, looking down the
// host's +y, until the left eye's middle third has stayed closed for five frames (or a minute went by); the
// last left-eye picture.
Picture viewOf(Demo::PointCloud cloud, Ko_1_1::Vec3d<float> start) {
    simvr_reset();
    simvr_setPaced(0);
    auto query = std::make_shared<const Demo::VisibilityQuery>(std::move(cloud));
    Demo::DemoView view(query);
    VR::VRManager manager(start, &view);
    EXPECT_EQ(manager.init(), VR::VRGlobals::NoError);
    Picture picture;
    // Generous for a loaded machine: batches arrive from the grabber thread whenever it gets to them.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    int closedFrames = 0;
    view.setFrameCallback([&](std::uint64_t frame) {
        picture.rgba.resize(simvr_lastSubmittedPicture(0, &picture.width, &picture.height, nullptr, 0));
        simvr_lastSubmittedPicture(0, nullptr, nullptr, picture.rgba.data(), picture.rgba.size());
        const bool closed = frame > 10 && !picture.rgba.empty() && picture.backgroundInMiddleThird() <= 0.02;
        closedFrames = closed ? closedFrames + 1 : 0;
        if (closedFrames >= 5 || std::chrono::steady_clock::now() > deadline) {
            manager.closeVR();
        }
    });
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::NoError);
    simvr_reset();
    return picture;
}

// A grey wall `distance` ahead across the whole view, scanned every 3 cm (sparser than the query's pixels
// at every distance here), with a red box a metre behind it.
Demo::PointCloud sparseWallWithBoxBehind(double distance) {
    Demo::PointCloud cloud({0, 0, 0});
    const double half = 2.0 * distance + 2.0;
    for (double x = -half; x <= half; x += 0.03) {
        for (double z = 1.7 - half; z <= 1.7 + half; z += 0.03) {
            cloud.addWorld(x, distance, z, 150, 150, 150);
        }
    }
    for (double x = -0.3; x <= 0.3; x += 0.01) {
        for (double z = 1.4; z <= 2.0; z += 0.01) {
            cloud.addWorld(x, distance + 1.0, z, 255, 0, 0);
        }
    }
    return cloud;
}

TEST(SolidSurfaces, SparseWallIsClosedAndHidesWhatIsBehindItAtEveryDistance) {
    for (const double distance : {1.0, 4.0, 10.0}) {
        SCOPED_TRACE(testing::Message() << distance << " m");
        const Picture picture = viewOf(sparseWallWithBoxBehind(distance), {0.0f, 0.0f, 0.0f});
        EXPECT_LE(picture.backgroundInMiddleThird(), 0.02);
        EXPECT_EQ(picture.redPixels(), 0u) << "the box behind the wall shows through";
    }
}

TEST(SolidSurfaces, SampleRoomIsClosedWhereTheUserLooks) {
    const Picture picture = viewOf(Demo::SceneGenerator::generateRoom(), {0.0f, 0.0f, 0.0f});
    EXPECT_LE(picture.backgroundInMiddleThird(), 0.02);
}

} // namespace
