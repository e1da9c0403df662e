#include "examples/SimulatedRuntime.h"

#include <cmath>
#include <type_traits>

#include "examples/RuntimeLibrary.h"

namespace Demo {

SimulatedRuntime::SimulatedRuntime(const RuntimeLibrary& library) {
    auto resolve = [&](auto& function, const char* name) {
        function = library.function<std::remove_reference_t<decltype(function)>>(name);
        return function != nullptr;
    };
    complete = resolve(setPaced, "simvr_setPaced") && resolve(setPoseScript, "simvr_setPoseScript") &&
               resolve(setDevicePose, "simvr_setDevicePose") &&
               resolve(setDeviceVelocity, "simvr_setDeviceVelocity") &&
               resolve(initCount, "simvr_initCount") &&
               resolve(lastSubmittedPicture, "simvr_lastSubmittedPicture");
}

void SimulatedRuntime::startLookAround() {
    if (!complete) {
        return;
    }
    setPaced(1);
    setPoseScript(&SimulatedRuntime::lookAround, this);
}

// The headset stands at eye height in the tracking space's origin (y up) and turns slowly left and right, as
// someone looking around a room would.
void SimulatedRuntime::lookAround(std::uint64_t, double seconds, void* user) {
    const SimulatedRuntime& runtime = *static_cast<const SimulatedRuntime*>(user);
    const float yaw = static_cast<float>(0.6 * std::sin(seconds * 0.4));
    const float c = std::cos(yaw);
    const float s = std::sin(yaw);
    const float pose[12] = {c, 0.0f, s, 0.0f, 0.0f, 1.0f, 0.0f, 1.7f, -s, 0.0f, c, 0.0f};
    runtime.setDevicePose(0, pose);
    const float angular[3] = {0.0f, static_cast<float>(0.24 * std::cos(seconds * 0.4)), 0.0f};
    const float still[3] = {0.0f, 0.0f, 0.0f};
    runtime.setDeviceVelocity(0, still, angular);
}

std::uint32_t SimulatedRuntime::sessionsStarted() const {
    return complete ? initCount() : 0u;
}

bool SimulatedRuntime::lastLeftEyePicture(std::vector<unsigned char>& rgba, unsigned& width,
                                          unsigned& height) const {
    if (!complete) {
        return false;
    }
    std::uint32_t w = 0;
    std::uint32_t h = 0;
    rgba.resize(lastSubmittedPicture(0, &w, &h, nullptr, 0));
    // During a session the picture may change size between the two calls; then nothing was copied.
    if (rgba.empty() || lastSubmittedPicture(0, &w, &h, rgba.data(), rgba.size()) != rgba.size()) {
        return false;
    }
    width = w;
    height = h;
    return true;
}

} // namespace Demo
