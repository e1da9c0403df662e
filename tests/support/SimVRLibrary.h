#pragma once

#include <string>

#include "simvr/SimVR.h"
#include "vr/openvr/OpenVRInterfaces.h"

namespace OrvelTest {

// The simulated runtime reached the way a client reaches an OpenVR runtime: the library loaded by file name
// and every entry point, interface and control function resolved by name. Opened once per test program and
// kept loaded, so the runtime's state lives as long as the program; tests start from `simvr_reset`.
class SimVRLibrary {
public:
    static SimVRLibrary& instance();

    // Null when the symbol is missing, which a test reports as a failure.
    void* symbol(const char* name) const;
    template <typename Function> Function function(const char* name) const {
        return reinterpret_cast<Function>(symbol(name));
    }
    bool loaded() const { return handle != nullptr; }
    const std::string& error() const { return loadError; }

    // Starts a session as a scene application and fetches the four interfaces; false when any step fails.
    bool start();

    vr::PFN_VR_InitInternal init = nullptr;
    vr::PFN_VR_ShutdownInternal shutdown = nullptr;
    vr::PFN_VR_IsHmdPresent isHmdPresent = nullptr;
    vr::PFN_VR_IsRuntimeInstalled isRuntimeInstalled = nullptr;
    vr::PFN_VR_GetGenericInterface getInterface = nullptr;

    vr::IVRSystem* system = nullptr;
    vr::IVRCompositor* compositor = nullptr;
    vr::IVRRenderModels* renderModels = nullptr;
    vr::IVRSettings* settings = nullptr;

private:
    SimVRLibrary();

    void* handle = nullptr;
    std::string loadError;
};

} // namespace OrvelTest

// Calls a control function of the loaded runtime by its name: SIMVR(simvr_setPaced)(0).
#define SIMVR(name) (::OrvelTest::SimVRLibrary::instance().function<decltype(&::name)>(#name))
