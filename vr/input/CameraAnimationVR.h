#pragma once

#include <cstdint>
#include <functional>

#include "common/Vec3d.h"
#include "platform/Export.h"
#include "platform/Platform.h"

// A short glide of the camera from one position and set of view angles (radians about x, y and z) to
// another, timed on a monotonic clock so that it lasts the same whatever the frame rate. The renderer holds
// the running one through std::shared_ptr and asks it for values once a frame until it is finished. Angles
// are interpolated component by component without wrapping: whoever makes one picks the way round.
// Render thread only.
class ORVEL_VR_EXPORT CameraAnimationVR {
public:
    // Nanoseconds; only differences are used.
    using Clock = std::function<std::int64_t()>;

    // The animation starts now (the clock is read here). A duration of zero or less makes it finished at
    // once, with the end values.
    CameraAnimationVR(const Ko_1_1::Vec3d<float>& startPosition, const Ko_1_1::Vec3d<float>& endPosition,
                      const Ko_1_1::Vec3d<float>& startAngles, const Ko_1_1::Vec3d<float>& endAngles,
                      double duration, Clock clock = Platform::monotonicNanoseconds);

    // Elapsed time as a share of the duration, not clamped: above 1 once the animation is over.
    double progress() const;
    Ko_1_1::Vec3d<float> getPosition() const;
    Ko_1_1::Vec3d<float> getAngles() const;
    bool isFinished() const { return progress() >= 1.0; }

    const Ko_1_1::Vec3d<float>& getStartPosition() const { return startPosition; }
    const Ko_1_1::Vec3d<float>& getEndPosition() const { return endPosition; }
    const Ko_1_1::Vec3d<float>& getStartAngles() const { return startAngles; }
    const Ko_1_1::Vec3d<float>& getEndAngles() const { return endAngles; }
    double getDuration() const { return duration; }

private:
    // The interpolation weight of the end values, in [0, 1].
    float weight() const;

    Clock clock;
    std::int64_t startTime;
    double duration;
    Ko_1_1::Vec3d<float> startPosition;
    Ko_1_1::Vec3d<float> endPosition;
    Ko_1_1::Vec3d<float> startAngles;
    Ko_1_1::Vec3d<float> endAngles;
};
