#include "vr/RunRecorder.h"

#include <algorithm>

namespace VR {

namespace {

constexpr double NANOSECONDS_PER_MILLISECOND = 1e6;
constexpr double NANOSECONDS_PER_SECOND = 1e9;

int highestBit(std::uint64_t value) {
#if defined(__GNUC__)
    return 63 - __builtin_clzll(value);
#else
    int bit = 0;
    while ((value >> 1) != 0) {
        value >>= 1;
        ++bit;
    }
    return bit;
#endif
}

// The one writer may use a plain load and store instead of a locked read-modify-write.
template <typename T> void bump(std::atomic<T>& value, T by) {
    value.store(value.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
}

} // namespace

int RunRecorder::Histogram::bucketOf(std::uint64_t value) {
    if (value < static_cast<std::uint64_t>(STEPS)) {
        return static_cast<int>(value);
    }
    const int exponent = highestBit(value);
    if (exponent > MAX_EXPONENT) {
        return BUCKETS - 1;
    }
    const int step = static_cast<int>((value >> (exponent - STEP_BITS)) & (STEPS - 1));
    return STEPS + (exponent - STEP_BITS) * STEPS + step;
}

std::uint64_t RunRecorder::Histogram::valueOf(int bucket) {
    if (bucket < STEPS) {
        return static_cast<std::uint64_t>(bucket);
    }
    const int shift = (bucket - STEPS) / STEPS;
    const auto step = static_cast<std::uint64_t>((bucket - STEPS) % STEPS);
    const std::uint64_t low = (static_cast<std::uint64_t>(STEPS) + step) << shift;
    return low + ((std::uint64_t{1} << shift) >> 1);
}

void RunRecorder::Histogram::add(std::int64_t value) {
    const auto v = static_cast<std::uint64_t>(std::max<std::int64_t>(0, value));
    bump(counts[static_cast<std::size_t>(bucketOf(v))], std::uint32_t{1});
    bump(sum, v);
    if (v > max.load(std::memory_order_relaxed)) {
        max.store(v, std::memory_order_relaxed);
    }
}

RunStatistics::Spread RunRecorder::Histogram::spread(double unit) const {
    // One copy, so the count and the percentiles agree although the writer goes on.
    std::array<std::uint32_t, BUCKETS> local;
    std::uint64_t samples = 0;
    for (int i = 0; i < BUCKETS; ++i) {
        local[static_cast<std::size_t>(i)] =
            counts[static_cast<std::size_t>(i)].load(std::memory_order_relaxed);
        samples += local[static_cast<std::size_t>(i)];
    }
    RunStatistics::Spread result;
    if (samples == 0) {
        return result;
    }
    const std::uint64_t largest = max.load(std::memory_order_relaxed);
    auto percentile = [&](std::uint64_t permille) {
        const std::uint64_t rank = std::max<std::uint64_t>(1, (samples * permille + 999) / 1000);
        std::uint64_t seen = 0;
        for (int i = 0; i < BUCKETS; ++i) {
            seen += local[static_cast<std::size_t>(i)];
            if (seen >= rank) {
                // A bucket's middle may lie above every sample in it.
                return static_cast<double>(std::min(valueOf(i), largest)) / unit;
            }
        }
        return static_cast<double>(largest) / unit;
    };
    result.samples = samples;
    result.p50 = percentile(500);
    result.p95 = percentile(950);
    result.p99 = percentile(990);
    // The sum may already hold a sample the copy missed.
    result.mean =
        std::min(static_cast<double>(sum.load(std::memory_order_relaxed)) / static_cast<double>(samples),
                 static_cast<double>(largest)) /
        unit;
    result.max = static_cast<double>(largest) / unit;
    return result;
}

void RunRecorder::runStarted(std::int64_t now) {
    startTime.store(now, std::memory_order_relaxed);
}

void RunRecorder::frameEnded(std::int64_t frameNanoseconds, std::int64_t renderCpuNanoseconds,
                             std::int64_t now) {
    frames.add(frameNanoseconds);
    renderCpu.add(renderCpuNanoseconds);
    lastFrameEnd.store(now, std::memory_order_relaxed);
}

void RunRecorder::runEnded(std::int64_t now) {
    if (lastFrameEnd.load(std::memory_order_relaxed) == 0) {
        lastFrameEnd.store(now, std::memory_order_relaxed);
    }
    ended.store(true, std::memory_order_release);
}

void RunRecorder::pointsShown(std::int64_t sincePoseNanoseconds) {
    poseToPoints.add(sincePoseNanoseconds);
}

void RunRecorder::queryAnswered(std::int64_t nanoseconds) {
    queries.add(nanoseconds);
}

void RunRecorder::batchPublished(std::int64_t points) {
    batches.add(points);
}

void RunRecorder::qualityTime(int level, std::int64_t nanoseconds) {
    if (level >= 1 && level <= 3 && nanoseconds > 0) {
        bump(qualityNanoseconds[static_cast<std::size_t>(level - 1)], nanoseconds);
    }
}

RunStatistics RunRecorder::snapshot(std::int64_t now) const {
    RunStatistics s;
    s.frameMs = frames.spread(NANOSECONDS_PER_MILLISECOND);
    s.frames = s.frameMs.samples;
    s.renderCpuMs = renderCpu.spread(NANOSECONDS_PER_MILLISECOND);
    s.queryMs = queries.spread(NANOSECONDS_PER_MILLISECOND);
    s.pointsPerBatch = batches.spread(1.0);
    s.poseToPointsMs = poseToPoints.spread(NANOSECONDS_PER_MILLISECOND);
    for (std::size_t level = 0; level < s.secondsAtQuality.size(); ++level) {
        s.secondsAtQuality[level] =
            static_cast<double>(qualityNanoseconds[level].load(std::memory_order_relaxed)) /
            NANOSECONDS_PER_SECOND;
    }
    const std::int64_t start = startTime.load(std::memory_order_relaxed);
    if (start != 0) {
        const std::int64_t end =
            ended.load(std::memory_order_acquire) ? lastFrameEnd.load(std::memory_order_relaxed) : now;
        s.seconds = static_cast<double>(std::max<std::int64_t>(0, end - start)) / NANOSECONDS_PER_SECOND;
    }
    return s;
}

} // namespace VR
