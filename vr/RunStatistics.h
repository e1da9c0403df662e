#pragma once

#include <array>
#include <cstdint>

namespace VR {

// The figures of one VR run, as a plain copy: VRManager::getStatistics hands one out from any thread, during
// the run (figures so far) and after it. Times are in milliseconds unless a name says otherwise.
// Percentiles come from histograms with 64 steps per doubling, so they are exact for small integers and
// within 1/64 of the value elsewhere; a spread without samples holds zeros.
struct RunStatistics {
    struct Spread {
        std::uint64_t samples = 0;
        double p50 = 0.0;
        double p95 = 0.0;
        double p99 = 0.0;
        double mean = 0.0;
        double max = 0.0;
    };

    // Frames completed by the frame loop, and seconds from the first frame's start to the last one's end
    // (to now while the loop runs).
    std::uint64_t frames = 0;
    double seconds = 0.0;
    // Each frame from its start to its end, pose wait included.
    Spread frameMs;
    // CPU time of the render thread in each frame, without the time spent inside the host's view.
    Spread renderCpuMs;
    // Each point query the host answered, wall-clock time on the point grabber thread.
    Spread queryMs;
    // Points in each batch the point grabber published.
    Spread pointsPerBatch;
    // From the head pose a batch was queried for to the first frame that drew it, one sample a batch.
    Spread poseToPointsMs;
    // Seconds the point grabber spent at quality level 1, 2 and 3.
    std::array<double, 3> secondsAtQuality{};
    // GL objects (buffers, vertex arrays, textures, framebuffers, shaders, programs) the viewer holds at
    // the moment; after the run, those it failed to delete.
    std::int64_t glObjects = 0;
};

} // namespace VR
