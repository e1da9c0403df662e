#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "vr/RunStatistics.h"

namespace VR {

// Collects the figures of one VR run while it goes on, for snapshots taken from any thread. Owned by the VR
// renderer, which hands it to the point grabber and the point renderer. Every figure has a single writer:
// frames and pose-to-points latencies come from the render thread, query times, batch sizes and quality
// times from the point grabber thread. Recording neither allocates nor locks (fixed histograms of relaxed
// atomics), so it costs next to nothing per frame; a snapshot may miss samples being recorded meanwhile.
class RunRecorder {
public:
    // Non-negative integers (nanoseconds, point counts), 64 buckets per doubling: exact below 128, within
    // 1/64 of the value above; values beyond 2^45 count as the largest bucket.
    class Histogram {
    public:
        static constexpr int STEP_BITS = 6;
        static constexpr int STEPS = 1 << STEP_BITS;
        static constexpr int MAX_EXPONENT = 44;
        static constexpr int BUCKETS = STEPS + (MAX_EXPONENT - STEP_BITS + 1) * STEPS;

        // Single writer only.
        void add(std::int64_t value);
        // The figures divided by unit (1e6 turns nanoseconds into milliseconds).
        RunStatistics::Spread spread(double unit) const;

        static int bucketOf(std::uint64_t value);
        // The value a bucket stands for: its middle.
        static std::uint64_t valueOf(int bucket);

    private:
        std::array<std::atomic<std::uint32_t>, BUCKETS> counts{};
        std::atomic<std::uint64_t> sum{0};
        std::atomic<std::uint64_t> max{0};
    };

    // Render thread.
    void runStarted(std::int64_t now);
    void frameEnded(std::int64_t frameNanoseconds, std::int64_t renderCpuNanoseconds, std::int64_t now);
    void runEnded(std::int64_t now);
    void pointsShown(std::int64_t sincePoseNanoseconds);

    // Point grabber thread.
    void queryAnswered(std::int64_t nanoseconds);
    void batchPublished(std::int64_t points);
    // level 1 to 3; others are ignored.
    void qualityTime(int level, std::int64_t nanoseconds);

    // Any thread; now is the monotonic clock the run's times come from.
    RunStatistics snapshot(std::int64_t now) const;

private:
    Histogram frames;
    Histogram renderCpu;
    Histogram queries;
    Histogram batches;
    Histogram poseToPoints;
    std::array<std::atomic<std::int64_t>, 3> qualityNanoseconds{};
    // 0 until the loop starts, and until it ends.
    std::atomic<std::int64_t> startTime{0};
    std::atomic<std::int64_t> lastFrameEnd{0};
    std::atomic<bool> ended{false};
};

} // namespace VR
