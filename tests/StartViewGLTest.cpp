// Where the demo puts the user at the start, seen in whole runs on the simulated runtime: from there the left
// eye's first pictures show the scan over a good share of the view, be it an object, a room or wide ground.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "examples/DemoView.h"
#include "examples/SceneGenerator.h"
#include "examples/StartView.h"
#include "examples/VisibilityQuery.h"
#include "simvr/SimVR.h"
#include "vr/VRManager.h"

namespace {

// The share of the left eye's pixels the scan covers (the clear colour's alpha is 0) and the share of its
// height they span, once it covered a sixth of the picture for five frames or a minute went by. The head
// stands still at the start, the eyes are small and the controllers off (the tablet would cover the view).
std::pair<double, double> firstPictures(Demo::PointCloud cloud, const Ko_1_1::Vec3d<double>& start) {
    simvr_reset();
    simvr_setPaced(0);
    simvr_setRecommendedSize(378, 420);
    simvr_setDeviceConnected(1, 0);
    simvr_setDeviceConnected(2, 0);
    Demo::DemoView view(std::make_shared<const Demo::VisibilityQuery>(std::move(cloud)));
    VR::VRManager manager(
        {static_cast<float>(start.x), static_cast<float>(start.y), static_cast<float>(start.z)}, &view);
    EXPECT_EQ(manager.init(), VR::VRGlobals::NoError);
    std::pair<double, double> covered;
    int coveredFrames = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    view.setFrameCallback([&](std::uint64_t) {
        std::uint32_t width = 0;
        std::uint32_t height = 0;
        std::vector<std::uint8_t> rgba(simvr_lastSubmittedPicture(0, &width, &height, nullptr, 0));
        if (!rgba.empty() &&
            simvr_lastSubmittedPicture(0, nullptr, nullptr, rgba.data(), rgba.size()) == rgba.size()) {
            std::size_t pixels = 0;
            std::size_t bottom = height;
            std::size_t top = 0;
            for (std::size_t i = 3; i < rgba.size(); i += 4) {
                if (rgba[i] != 0) {
                    ++pixels;
                    bottom = std::min<std::size_t>(bottom, i / 4 / width);
                    top = i / 4 / width + 1;
                }
            }
            covered = {static_cast<double>(pixels) / (width * height),
                       top > bottom ? static_cast<double>(top - bottom) / height : 0.0};
        }
        coveredFrames = covered.first > 1.0 / 6.0 ? coveredFrames + 1 : 0;
        if (coveredFrames >= 5 || std::chrono::steady_clock::now() > deadline) {
            manager.closeVR();
        }
    });
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::NoError);
    simvr_reset();
    return covered;
}

// A 0.8 x 0.5 x 0.6 m box filled with points every centimetre, far from the world's origin as surveyed
// objects are.
Demo::PointCloud object() {
    Demo::PointCloud cloud;
    for (int i = 0; i <= 80; ++i) {
        for (int j = 0; j <= 50; ++j) {
            for (int k = 0; k <= 60; ++k) {
                cloud.addWorld(5120.25 + 0.01 * i, -3310.5 + 0.01 * j, 102.0 + 0.01 * k, 200, 40 + 2 * i, 90);
            }
        }
    }
    return cloud;
}

// The sample room, with stray points down to 3 m below its floor (multipath, noise).
Demo::PointCloud room() {
    Demo::PointCloud cloud = Demo::SceneGenerator::generateRoom(300000, 5);
    for (int i = 0; i < 1000; ++i) {
        cloud.addWorld(-5.0 + 0.01 * i, 3.0 - 0.002 * i, -3.0 + 0.002 * i, 200, 200, 200);
    }
    return cloud;
}

// Rolling ground 400 m x 300 m with a few metres of relief, a point a metre.
Demo::PointCloud terrain() {
    Demo::PointCloud cloud;
    for (int i = 0; i <= 400; ++i) {
        for (int j = 0; j <= 300; ++j) {
            const double z = 250.0 + 4.0 * std::sin(i / 37.0) + 3.0 * std::cos(j / 23.0);
            cloud.addWorld(630000.0 + i, 4800000.0 + j, z, 90,
                           static_cast<std::uint8_t>(90.0 + 10.0 * (z - 250.0)), 60);
        }
    }
    return cloud;
}

TEST(StartView, FirstPicturesShowTheScanOfEveryKind) {
    // An object is seen whole, with empty rows above and below it.
    const struct {
        const char* name;
        Demo::PointCloud (*make)();
        Demo::StartView::Kind kind;
        double maxSpan;
    } scans[] = {{"object", object, Demo::StartView::Kind::Object, 0.8},
                 {"room", room, Demo::StartView::Kind::Room, 1.0},
                 {"terrain", terrain, Demo::StartView::Kind::Outdoor, 1.0}};
    for (const auto& scan : scans) {
        SCOPED_TRACE(scan.name);
        Demo::PointCloud cloud = scan.make();
        cloud.recentre();
        const Demo::StartView start(cloud);
        EXPECT_EQ(start.kind(), scan.kind) << start.description();
        if (scan.kind == Demo::StartView::Kind::Room) {
            EXPECT_NEAR(start.position().z, 0.0, 0.05) << "the stray points below sank the floor";
        }
        const auto [pixels, span] = firstPictures(std::move(cloud), start.position());
        EXPECT_GT(pixels, 0.15) << start.description();
        EXPECT_GT(span, 0.3) << start.description();
        EXPECT_LE(span, scan.maxSpan) << start.description();
    }
}

} // namespace
