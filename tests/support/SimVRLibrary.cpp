#include "tests/support/SimVRLibrary.h"

#include "platform/Platform.h"

namespace OrvelTest {

SimVRLibrary& SimVRLibrary::instance() {
    static SimVRLibrary library;
    return library;
}

SimVRLibrary::SimVRLibrary() {
    handle = Platform::openLibrary(SIMVR_LIBRARY_PATH);
    if (handle == nullptr) {
        loadError = Platform::libraryError();
        return;
    }
    init = function<vr::PFN_VR_InitInternal>("VR_InitInternal");
    shutdown = function<vr::PFN_VR_ShutdownInternal>("VR_ShutdownInternal");
    isHmdPresent = function<vr::PFN_VR_IsHmdPresent>("VR_IsHmdPresent");
    isRuntimeInstalled = function<vr::PFN_VR_IsRuntimeInstalled>("VR_IsRuntimeInstalled");
    getInterface = function<vr::PFN_VR_GetGenericInterface>("VR_GetGenericInterface");
}

void* SimVRLibrary::symbol(const char* name) const {
    return handle != nullptr ? Platform::librarySymbol(handle, name) : nullptr;
}

bool SimVRLibrary::start() {
    if (init == nullptr || getInterface == nullptr) {
        return false;
    }
    vr::EVRInitError error = vr::VRInitError_Unknown;
    init(&error, vr::VRApplication_Scene);
    if (error != vr::VRInitError_None) {
        return false;
    }
    system = static_cast<vr::IVRSystem*>(getInterface(vr::IVRSystem_Version, &error));
    compositor = static_cast<vr::IVRCompositor*>(getInterface(vr::IVRCompositor_Version, &error));
    renderModels = static_cast<vr::IVRRenderModels*>(getInterface(vr::IVRRenderModels_Version, &error));
    settings = static_cast<vr::IVRSettings*>(getInterface(vr::IVRSettings_Version, &error));
    return system != nullptr && compositor != nullptr && renderModels != nullptr && settings != nullptr;
}

} // namespace OrvelTest
