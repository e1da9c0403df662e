#pragma once

#include <cstdint>
#include <string>

#include "vr/openvr/OpenVRInterfaces.h"

namespace VR {

// The OpenVR API library, opened by file name at run time and never linked: a machine without the
// runtime must still load the viewer. Resolves the library's C entry points, runs the start-up sequence
// of a scene application and hands out the other interfaces lazily, fetching them again whenever the
// runtime's init token changes (a shutdown and a new start invalidate every interface pointer).
// Owned by MinimalOpenVR; render thread only.
class OpenVRLibrary {
public:
    // "openvr_api.dll", "libopenvr_api.so" or "libopenvr_api.dylib".
    static const char* const LIBRARY_NAME;

    OpenVRLibrary() = default;
    // Shuts a running session down before the library is closed, so nothing is left calling into it.
    ~OpenVRLibrary();
    OpenVRLibrary(const OpenVRLibrary&) = delete;
    OpenVRLibrary& operator=(const OpenVRLibrary&) = delete;

    // Opens the library from the executable's folder, then through the loader's search path, and resolves
    // every entry point. False, with the reason in loadError(), when the file cannot be opened or lacks an
    // entry point. Once loaded, further calls return true at once.
    bool load();
    bool isLoaded() const { return handle != nullptr; }
    const std::string& loadError() const { return error; }

    bool isRuntimeInstalled() const;
    bool isHmdPresent() const;
    const char* initErrorDescription(vr::EVRInitError initError) const;
    bool isInterfaceVersionValid(const char* version) const;

    // Starts the runtime as a scene application; null with *initError set when that fails.
    vr::IVRSystem* initScene(vr::EVRInitError* initError);
    // Ends the session started by initScene; nothing when none is running.
    void shutdown();

    // Null when the runtime does not provide the interface; the error of the fetch goes to *initError
    // when given (None when the pointer was already at hand).
    vr::IVRCompositor* compositor(vr::EVRInitError* initError = nullptr);
    vr::IVRRenderModels* renderModels(vr::EVRInitError* initError = nullptr);
    vr::IVRSettings* settings(vr::EVRInitError* initError = nullptr);

private:
    void* fetch(void*& cached, const char* version, vr::EVRInitError* initError);
    void forgetStaleInterfaces();

    void* handle = nullptr;
    std::string error;
    bool running = false;

    vr::PFN_VR_InitInternal initInternal = nullptr;
    vr::PFN_VR_ShutdownInternal shutdownInternal = nullptr;
    vr::PFN_VR_IsHmdPresent isHmdPresentFn = nullptr;
    vr::PFN_VR_IsRuntimeInstalled isRuntimeInstalledFn = nullptr;
    vr::PFN_VR_RuntimePath runtimePath = nullptr;
    vr::PFN_VR_GetVRInitErrorAsSymbol initErrorAsSymbol = nullptr;
    vr::PFN_VR_GetVRInitErrorAsEnglishDescription initErrorAsEnglishDescription = nullptr;
    vr::PFN_VR_GetGenericInterface getGenericInterface = nullptr;
    vr::PFN_VR_IsInterfaceVersionValid isInterfaceVersionValidFn = nullptr;
    vr::PFN_VR_GetInitToken getInitToken = nullptr;

    std::uint32_t token = 0;
    void* compositorInterface = nullptr;
    void* renderModelsInterface = nullptr;
    void* settingsInterface = nullptr;
};

} // namespace VR
