#pragma once

#include <cstdint>
#include <vector>

#include "simvr/SimVR.h"

namespace Demo {

class RuntimeLibrary;

// The simulated runtime's control API, resolved from the library the program opened, so that the program
// links no runtime and the same binary runs on an installed one. Present only when that library is the
// simulated runtime. There it stands in for the person wearing the headset: it paces frames like a real
// headset, turns the head slowly, and hands back the pictures the viewer submitted.
//
// Owned by the program; the library must stay open as long as this object is used. The pose script it
// installs runs on the viewer's render thread and touches nothing of this object but the function pointers.
class SimulatedRuntime {
public:
    explicit SimulatedRuntime(const RuntimeLibrary& library);

    // True when the library exports every control function used here, which an installed runtime never does.
    bool present() const { return complete; }

    // Paced frames and a look-around from eye height at the tracking space's origin.
    void startLookAround();
    // Successful session starts since the library was loaded: proof that the viewer runs on this runtime.
    std::uint32_t sessionsStarted() const;
    // The left eye's last submitted picture (RGBA, rows bottom-up); false when none was submitted.
    bool lastLeftEyePicture(std::vector<unsigned char>& rgba, unsigned& width, unsigned& height) const;

private:
    static void lookAround(std::uint64_t frame, double seconds, void* user);

    bool complete = false;
    decltype(&simvr_setPaced) setPaced = nullptr;
    decltype(&simvr_setPoseScript) setPoseScript = nullptr;
    decltype(&simvr_setDevicePose) setDevicePose = nullptr;
    decltype(&simvr_setDeviceVelocity) setDeviceVelocity = nullptr;
    decltype(&simvr_initCount) initCount = nullptr;
    decltype(&simvr_lastSubmittedPicture) lastSubmittedPicture = nullptr;
};

} // namespace Demo
