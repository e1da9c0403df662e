#include "vr/input/ControllerInput.h"

#include <algorithm>
#include <cmath>

namespace VR::Input {

namespace {

bool buttonDown(const vr::VRControllerState_t& state, int button) {
    return (state.ulButtonPressed & (std::uint64_t{1} << button)) != 0;
}

// A value that always has the sign of x, zero counted as positive.
float withSignOf(float magnitude, float x) {
    return x < 0.0f ? -magnitude : magnitude;
}

constexpr float SNAP_TURN = 52.35988f;
constexpr float TOUCHPAD_THRESHOLD = 0.5f;
constexpr float STICK_DEAD_ZONE = 0.3f;

} // namespace

ControllerButtons readButtons(const vr::VRControllerState_t& state, bool thumbstick) {
    ControllerButtons buttons;
    // NaN from a broken driver fails both comparisons and ends up as a released trigger.
    const float raw = state.rAxis[1].x;
    buttons.trigger = raw >= 1.0f ? 1.0f : (raw > 0.0f ? raw : 0.0f);
    buttons.triggerPressed = thumbstick ? buttons.trigger > 0.98f : buttons.trigger == 1.0f;
    buttons.primaryPressed = buttonDown(state, thumbstick ? BUTTON_A : BUTTON_TOUCHPAD);
    buttons.gripPressed = buttonDown(state, BUTTON_GRIP);
    return buttons;
}

Locomotion leftLocomotion(const vr::VRControllerState_t& state, const ControllerButtons& buttons,
                          bool thumbstick, bool& lastTouchpadPressed) {
    const float x = std::isfinite(state.rAxis[0].x) ? state.rAxis[0].x : 0.0f;
    const float y = std::isfinite(state.rAxis[0].y) ? state.rAxis[0].y : 0.0f;
    Locomotion result;
    if (thumbstick) {
        result.turn = withSignOf(4.0f * (std::max(std::fabs(x), STICK_DEAD_ZONE) - STICK_DEAD_ZONE), x);
        // The trigger is added before the sign: stick back with the trigger pulled goes back faster.
        result.move =
            withSignOf(std::max(std::fabs(y), STICK_DEAD_ZONE) - STICK_DEAD_ZONE + buttons.trigger, y);
        return result;
    }
    const bool touchpad = buttons.primaryPressed;
    if (!lastTouchpadPressed && touchpad && std::fabs(x) > TOUCHPAD_THRESHOLD) {
        result.turn = withSignOf(SNAP_TURN, x);
    }
    lastTouchpadPressed = touchpad;
    if (touchpad && std::fabs(y) > TOUCHPAD_THRESHOLD) {
        result.move = withSignOf(buttons.trigger + 0.7f, y);
    } else {
        // The trigger alone only ever moves forward.
        result.move = buttons.trigger;
    }
    return result;
}

float speedCurve(float move, bool thumbstick) {
    if (!thumbstick) {
        return move * std::fabs(move);
    }
    if (move < 0.7f) {
        return move * 0.1f;
    }
    if (move < 0.9f) {
        return (move - 0.7f) * 0.5f + 0.07f;
    }
    return (move - 0.9f) * 5.0f + 0.17f;
}

const std::vector<SpiralOffset>& pickSpiral() {
    static const std::vector<SpiralOffset> offsets = [] {
        std::vector<SpiralOffset> result;
        int i = 0;
        int j = 0;
        int di = 0;
        int dj = -1;
        for (int step = 0; step < 64; ++step) {
            if (std::abs(i) <= 4 && std::abs(j) <= 4) {
                result.push_back({i, j});
            }
            if (i == j || (i < 0 && i == -j) || (i > 0 && i == 1 - j)) {
                const int turned = -dj;
                dj = di;
                di = turned;
            }
            i += di;
            j += dj;
        }
        return result;
    }();
    return offsets;
}

bool fitPlane(const std::vector<Ko_1_1::Vec3d<double>>& points, Ko_1_1::Vec3d<double>& normal) {
    if (points.size() < 3) {
        return false;
    }
    Ko_1_1::Vec3d<double> centre;
    for (const auto& p : points) {
        centre += p;
    }
    centre = centre * (1.0 / static_cast<double>(points.size()));
    double xx = 0, xy = 0, xz = 0, yy = 0, yz = 0, zz = 0;
    for (const auto& p : points) {
        const Ko_1_1::Vec3d<double> r = p - centre;
        xx += r.x * r.x;
        xy += r.x * r.y;
        xz += r.x * r.z;
        yy += r.y * r.y;
        yz += r.y * r.z;
        zz += r.z * r.z;
    }
    // The normal is the direction of least spread. Solving the normal equations with the component of
    // largest determinant held at 1 is well conditioned for every orientation of the plane.
    const double detX = yy * zz - yz * yz;
    const double detY = xx * zz - xz * xz;
    const double detZ = xx * yy - xy * xy;
    const double largest = std::max({detX, detY, detZ});
    const double spread = xx + yy + zz;
    // Points on a line (or one spot) span no plane.
    if (!(largest > 1e-12 * spread * spread) || !std::isfinite(largest)) {
        return false;
    }
    Ko_1_1::Vec3d<double> n;
    if (largest == detX) {
        n = {detX, xz * yz - xy * zz, xy * yz - xz * yy};
    } else if (largest == detY) {
        n = {xz * yz - xy * zz, detY, xy * xz - yz * xx};
    } else {
        n = {xy * yz - xz * yy, xy * xz - yz * xx, detZ};
    }
    const double length = n.length();
    if (!(length > 0.0)) {
        return false;
    }
    normal = n * (1.0 / length);
    return true;
}

bool isWall(const Ko_1_1::Vec3d<double>& normal) {
    const double horizontal = std::sqrt(normal.x * normal.x + normal.y * normal.y);
    // The slope angle |atan(nz / horizontal)|, also for a level surface, whose horizontal part is 0.
    return std::atan2(std::fabs(normal.z), horizontal) <= 0.7853981633974483;
}

Ko_1_1::Vec3d<float> landingOffset(bool wall, const Ko_1_1::Vec3d<float>& hit,
                                   const Ko_1_1::Vec3d<float>& head, float headHeight) {
    if (!wall) {
        return {0.0f, 0.0f, headHeight};
    }
    const Ko_1_1::Vec3d<float> v = hit - head;
    const float length = v.length();
    if (length >= 2.0f) {
        return v * -0.5f;
    }
    if (length > 0.0f) {
        return v * (-1.0f / length);
    }
    return {};
}

} // namespace VR::Input
