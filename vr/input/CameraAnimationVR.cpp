#include "vr/input/CameraAnimationVR.h"

#include <algorithm>
#include <utility>

namespace {

Ko_1_1::Vec3d<float> lerp(const Ko_1_1::Vec3d<float>& start, const Ko_1_1::Vec3d<float>& end, float t) {
    return start * (1.0f - t) + end * t;
}

} // namespace

CameraAnimationVR::CameraAnimationVR(const Ko_1_1::Vec3d<float>& startPosition,
                                     const Ko_1_1::Vec3d<float>& endPosition,
                                     const Ko_1_1::Vec3d<float>& startAngles,
                                     const Ko_1_1::Vec3d<float>& endAngles, double duration, Clock clock)
    : clock(std::move(clock)), startTime(this->clock()), duration(duration), startPosition(startPosition),
      endPosition(endPosition), startAngles(startAngles), endAngles(endAngles) {}

double CameraAnimationVR::progress() const {
    // Dividing by a zero duration would give NaN on the first frame (0 / 0), which no comparison finishes.
    if (!(duration > 0.0)) {
        return 1.0;
    }
    const double elapsed = static_cast<double>(clock() - startTime) * 1e-9;
    return elapsed / duration;
}

float CameraAnimationVR::weight() const {
    // The lower bound only matters for a clock that runs backwards, which an injected one may do.
    return static_cast<float>(std::clamp(progress(), 0.0, 1.0));
}

Ko_1_1::Vec3d<float> CameraAnimationVR::getPosition() const {
    return lerp(startPosition, endPosition, weight());
}

Ko_1_1::Vec3d<float> CameraAnimationVR::getAngles() const {
    return lerp(startAngles, endAngles, weight());
}
