// The run's figures from whole runs on the simulated runtime, reached through the library's loading path.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "simvr/SimVR.h"
#include "tests/support/RecordingHost.h"
#include "vr/VRManager.h"

using OrvelTest::RecordingHost;

namespace {

class RunStatisticsTest : public ::testing::Test {
protected:
    void SetUp() override {
        simvr_reset();
        simvr_setPaced(0);
        simvr_setRecommendedSize(160, 120);
    }
    void TearDown() override { simvr_reset(); }
};

// 49 points straight ahead: all in the centre pass, none in the periphery, so every batch holds 49.
void answerStraightAhead(RecordingHost& host) {
    host.pointQuery = [](float, unsigned short, unsigned short, float, float, Ko_1_1::Vec3d<double>,
                         Ko_1_1::Vec3d<double>, Ko_1_1::Vec3d<double>, std::vector<VR::Point3dRGBA>& points) {
        for (int i = 0; i < 49; ++i) {
            points.push_back({0.01f * static_cast<float>(i % 7), 0.01f * static_cast<float>(i / 7), -1.0f,
                              255, 255, 255, 255});
        }
    };
}

// Windows counts a thread's CPU time in scheduler ticks (15.6 ms), so a short frame's may read as 0 there.
void expectOrdered(const VR::RunStatistics::Spread& s, const char* what, bool coarse = false) {
    if (coarse) {
        EXPECT_GE(s.p50, 0.0) << what;
    } else {
        EXPECT_GT(s.p50, 0.0) << what;
    }
    EXPECT_LE(s.p50, s.p95) << what;
    EXPECT_LE(s.p95, s.p99) << what;
    EXPECT_LE(s.p99, s.max) << what;
}

} // namespace

// The run ends from the host's per-frame callback once points were drawn, which also reads the figures
// while the run goes on; a second manager in the same process starts from zero.
TEST_F(RunStatisticsTest, FiguresAgreeWithTheRunAndStartFromZeroForTheNext) {
    RecordingHost host;
    answerStraightAhead(host);
    VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
    std::uint64_t frame = 0;
    bool countsAgreed = true;
    std::int64_t heldGLObjects = 0;
    host.onViewTransform = [&] {
        const VR::RunStatistics during = manager.getStatistics();
        countsAgreed = countsAgreed && during.frames == frame && during.frameMs.samples == frame;
        heldGLObjects = std::max(heldGLObjects, during.glObjects);
        ++frame;
        if ((frame >= 20 && during.poseToPointsMs.samples > 0) || frame == 5000) {
            manager.closeVR();
        }
    };
    const auto began = std::chrono::steady_clock::now();
    ASSERT_EQ(manager.init(), VR::VRGlobals::NoError);
    ASSERT_EQ(manager.runRenderLoop(), VR::VRGlobals::NoError);
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();

    const VR::RunStatistics s = manager.getStatistics();
    EXPECT_TRUE(countsAgreed) << "a snapshot during the run counts the frames completed so far";
    EXPECT_GT(heldGLObjects, 10);
    EXPECT_EQ(s.glObjects, 0) << "every GL object made for the run is deleted at its end";
    EXPECT_EQ(s.frames, static_cast<std::uint64_t>(host.count("setViewTransform")));
    EXPECT_EQ(s.renderCpuMs.samples, s.frames);
    expectOrdered(s.frameMs, "frame");
#if defined(_WIN32)
    expectOrdered(s.renderCpuMs, "render CPU", true);
#else
    expectOrdered(s.renderCpuMs, "render CPU");
#endif
    EXPECT_LE(s.renderCpuMs.p50, s.frameMs.p50) << "one thread's CPU time within a frame never exceeds it";
    EXPECT_GT(s.seconds, 0.0);
    EXPECT_LE(s.seconds, wall);
    EXPECT_LE(s.frameMs.mean * static_cast<double>(s.frames), s.seconds * 1000.0 + 1e-6);

    EXPECT_EQ(s.queryMs.samples, static_cast<std::uint64_t>(host.count("queryPoints")));
    EXPECT_GE(s.queryMs.samples, s.pointsPerBatch.samples);
    ASSERT_GE(s.pointsPerBatch.samples, 2u);
    EXPECT_EQ(s.pointsPerBatch.p50, 49.0);
    EXPECT_EQ(s.pointsPerBatch.max, 49.0);
    ASSERT_GE(s.poseToPointsMs.samples, 1u);
    EXPECT_LE(s.poseToPointsMs.samples, s.pointsPerBatch.samples);
    expectOrdered(s.poseToPointsMs, "pose to points");

    // The grabber runs from set-up to teardown, so its levels' times cover the loop and fit in the call.
    const double atQuality = s.secondsAtQuality[0] + s.secondsAtQuality[1] + s.secondsAtQuality[2];
    EXPECT_GE(atQuality, 0.9 * s.seconds);
    EXPECT_LE(atQuality, wall + 0.5);

    RecordingHost second;
    answerStraightAhead(second);
    VR::VRManager next({0.0f, 0.0f, 0.0f}, &second);
    EXPECT_EQ(next.getStatistics().frames, 0u);
    int frames = 0;
    second.onViewTransform = [&] {
        if (++frames == 3) {
            next.closeVR();
        }
    };
    ASSERT_EQ(next.init(), VR::VRGlobals::NoError);
    ASSERT_EQ(next.runRenderLoop(), VR::VRGlobals::NoError);
    const VR::RunStatistics t = next.getStatistics();
    EXPECT_EQ(t.frames, 3u);
    EXPECT_EQ(t.glObjects, 0);
    EXPECT_EQ(t.queryMs.samples, static_cast<std::uint64_t>(second.count("queryPoints")));
    EXPECT_EQ(manager.getStatistics().frames, s.frames) << "the first run's figures stay as they were";
}
