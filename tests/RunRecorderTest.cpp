#include <gtest/gtest.h>

#include <cstdint>

#include "vr/RunRecorder.h"

using Histogram = VR::RunRecorder::Histogram;

// Point counts of small batches must come out exact; nanosecond figures within the bucket width, never
// above the largest sample, ordered.
TEST(RunRecorder, PercentilesAreExactForSmallValuesAndCloseForLarge) {
    Histogram small;
    for (int v = 1; v <= 100; ++v) {
        small.add(v);
    }
    small.add(-3); // a clock that went back counts as 0
    const auto s = small.spread(1.0);
    EXPECT_EQ(s.samples, 101u);
    EXPECT_EQ(s.p50, 50.0);
    EXPECT_EQ(s.p95, 95.0);
    EXPECT_EQ(s.p99, 99.0);
    EXPECT_EQ(s.max, 100.0);
    EXPECT_DOUBLE_EQ(s.mean, 5050.0 / 101.0);

    Histogram large;
    for (std::int64_t ms = 1; ms <= 1000; ++ms) {
        large.add(ms * 1000000);
    }
    const auto l = large.spread(1e6);
    EXPECT_NEAR(l.p50, 500.0, 500.0 / 64);
    EXPECT_NEAR(l.p99, 990.0, 990.0 / 64);
    EXPECT_EQ(l.max, 1000.0);
    EXPECT_EQ(Histogram().spread(1.0).samples, 0u);

    for (std::uint64_t v = 1; v < (std::uint64_t{1} << 45); v = v * 3 + 1) {
        const double back = static_cast<double>(Histogram::valueOf(Histogram::bucketOf(v)));
        EXPECT_NEAR(back, static_cast<double>(v), static_cast<double>(v) / 64.0) << v;
    }
}

TEST(RunRecorder, SnapshotTimesTheRunAndEachQualityLevel) {
    const std::int64_t second = 1000000000;
    VR::RunRecorder recorder;
    EXPECT_EQ(recorder.snapshot(5 * second).seconds, 0.0) << "no run yet";
    recorder.runStarted(1 * second);
    recorder.frameEnded(second / 100, second / 200, 1 * second + second / 100);
    recorder.frameEnded(second / 100, second / 200, 1 * second + second / 50);
    EXPECT_DOUBLE_EQ(recorder.snapshot(3 * second).seconds, 2.0) << "a running loop counts up to now";
    recorder.runEnded(4 * second);
    recorder.qualityTime(2, 3 * second / 2);
    recorder.qualityTime(0, second);
    recorder.qualityTime(4, second);

    const VR::RunStatistics s = recorder.snapshot(9 * second);
    EXPECT_EQ(s.frames, 2u);
    EXPECT_DOUBLE_EQ(s.seconds, 0.02) << "an ended run lasts until its last frame's end";
    EXPECT_NEAR(s.frameMs.p50, 10.0, 10.0 / 64);
    EXPECT_NEAR(s.renderCpuMs.p50, 5.0, 5.0 / 64);
    EXPECT_EQ(s.secondsAtQuality[0], 0.0);
    EXPECT_EQ(s.secondsAtQuality[1], 1.5);
    EXPECT_EQ(s.secondsAtQuality[2], 0.0);
}
