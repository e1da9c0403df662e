// The OpenVR API library's C entry points, served by the simulated runtime.

#include <cstdio>
#include <cstring>
#include <string>

#include "simvr/SimCompositor.h"
#include "simvr/SimRenderModels.h"
#include "simvr/SimRuntime.h"
#include "simvr/SimSettings.h"
#include "simvr/SimSystem.h"

namespace {

using SimVR::SimRuntime;

SimVR::SimSystem systemInterface;
SimVR::SimCompositor compositorInterface;
SimVR::SimRenderModels renderModelsInterface;
SimVR::SimSettings settingsInterface;

struct InterfaceEntry {
    const char* version;
    void* object;
};

const InterfaceEntry INTERFACES[] = {
    {vr::IVRSystem_Version, static_cast<vr::IVRSystem*>(&systemInterface)},
    {vr::IVRCompositor_Version, static_cast<vr::IVRCompositor*>(&compositorInterface)},
    {vr::IVRRenderModels_Version, static_cast<vr::IVRRenderModels*>(&renderModelsInterface)},
    {vr::IVRSettings_Version, static_cast<vr::IVRSettings*>(&settingsInterface)},
};

// The interface served under a version string, null when none is (unknown or switched off).
void* findInterface(SimRuntime::State& state, const char* version) {
    if (version == nullptr) {
        return nullptr;
    }
    for (const InterfaceEntry& entry : INTERFACES) {
        if (std::strcmp(entry.version, version) != 0) {
            continue;
        }
        for (const std::string& unavailable : state.unavailableInterfaces) {
            if (unavailable == version) {
                return nullptr;
            }
        }
        return entry.object;
    }
    return nullptr;
}

struct InitErrorText {
    vr::EVRInitError error;
    const char* symbol;
    const char* description;
};

const InitErrorText INIT_ERRORS[] = {
    {vr::VRInitError_None, "VRInitError_None", "No Error (0)"},
    {vr::VRInitError_Unknown, "VRInitError_Unknown", "Unknown Error (1)"},
    {vr::VRInitError_Init_InstallationNotFound, "VRInitError_Init_InstallationNotFound",
     "Installation Not Found (100)"},
    {vr::VRInitError_Init_InstallationCorrupt, "VRInitError_Init_InstallationCorrupt",
     "Installation Corrupt (101)"},
    {vr::VRInitError_Init_VRClientDLLNotFound, "VRInitError_Init_VRClientDLLNotFound",
     "vrclient Shared Lib Not Found (102)"},
    {vr::VRInitError_Init_FileNotFound, "VRInitError_Init_FileNotFound", "File Not Found (103)"},
    {vr::VRInitError_Init_FactoryNotFound, "VRInitError_Init_FactoryNotFound",
     "Factory Function Not Found (104)"},
    {vr::VRInitError_Init_InterfaceNotFound, "VRInitError_Init_InterfaceNotFound",
     "Interface Not Found (105)"},
    {vr::VRInitError_Init_InvalidInterface, "VRInitError_Init_InvalidInterface", "Invalid Interface (106)"},
    {vr::VRInitError_Init_UserConfigDirectoryInvalid, "VRInitError_Init_UserConfigDirectoryInvalid",
     "User Config Directory Invalid (107)"},
    {vr::VRInitError_Init_HmdNotFound, "VRInitError_Init_HmdNotFound", "Hmd Not Found (108)"},
    {vr::VRInitError_Init_NotInitialized, "VRInitError_Init_NotInitialized", "Not Initialized (109)"},
    {vr::VRInitError_Init_PathRegistryNotFound, "VRInitError_Init_PathRegistryNotFound",
     "Installation path could not be located (110)"},
};

const InitErrorText* findInitError(vr::EVRInitError error) {
    for (const InitErrorText& text : INIT_ERRORS) {
        if (text.error == error) {
            return &text;
        }
    }
    return nullptr;
}

// Errors this runtime has no text for are described by number, in a buffer of the calling thread.
const char* unknownInitError(vr::EVRInitError error) {
    thread_local char text[48];
    std::snprintf(text, sizeof(text), "Unknown error (%d)", static_cast<int>(error));
    return text;
}

void setInitError(vr::EVRInitError* out, vr::EVRInitError error) {
    if (out != nullptr) {
        *out = error;
    }
}

} // namespace

extern "C" {

SIMVR_API uint32_t VR_InitInternal(vr::EVRInitError* error, vr::EVRApplicationType type) {
    return SimRuntime::instance().locked([&](SimRuntime::State& state) -> uint32_t {
        state.lastApplicationType = type;
        int32_t scripted = vr::VRInitError_None;
        if (state.nextInitError < state.initErrors.size()) {
            scripted = state.initErrors[state.nextInitError++];
        }
        vr::EVRInitError result = vr::VRInitError_None;
        if (!state.installed) {
            result = vr::VRInitError_Init_InstallationNotFound;
        } else if (!state.hmdPresent) {
            result = vr::VRInitError_Init_HmdNotFound;
        } else {
            result = static_cast<vr::EVRInitError>(scripted);
        }
        setInitError(error, result);
        if (result != vr::VRInitError_None) {
            return 0;
        }
        state.initialized = true;
        // Never 0, and never the token of an earlier session: clients re-fetch interfaces when it changes.
        if (++state.initToken == 0) {
            state.initToken = 1;
        }
        ++state.initCount;
        state.sessionStart = SimRuntime::Clock::now();
        state.sessionFrames = 0;
        state.modelPollsLeft.clear();
        state.texturePollsLeft.clear();
        return state.initToken;
    });
}

SIMVR_API void VR_ShutdownInternal() {
    SimRuntime::instance().locked([](SimRuntime::State& state) {
        if (state.initialized) {
            state.initialized = false;
            ++state.shutdownCount;
        }
    });
}

SIMVR_API bool VR_IsHmdPresent() {
    return SimRuntime::instance().locked(
        [](SimRuntime::State& state) { return state.installed && state.hmdPresent; });
}

SIMVR_API bool VR_IsRuntimeInstalled() {
    return SimRuntime::instance().locked([](SimRuntime::State& state) { return state.installed; });
}

SIMVR_API const char* VR_RuntimePath() {
    const bool installed = VR_IsRuntimeInstalled();
    return installed ? "simvr" : nullptr;
}

SIMVR_API const char* VR_GetVRInitErrorAsSymbol(vr::EVRInitError error) {
    const InitErrorText* text = findInitError(error);
    return text != nullptr ? text->symbol : unknownInitError(error);
}

SIMVR_API const char* VR_GetVRInitErrorAsEnglishDescription(vr::EVRInitError error) {
    const InitErrorText* text = findInitError(error);
    return text != nullptr ? text->description : unknownInitError(error);
}

SIMVR_API void* VR_GetGenericInterface(const char* interfaceVersion, vr::EVRInitError* error) {
    return SimRuntime::instance().locked([&](SimRuntime::State& state) -> void* {
        if (!state.initialized) {
            setInitError(error, vr::VRInitError_Init_NotInitialized);
            return nullptr;
        }
        void* object = findInterface(state, interfaceVersion);
        setInitError(error,
                     object != nullptr ? vr::VRInitError_None : vr::VRInitError_Init_InterfaceNotFound);
        return object;
    });
}

SIMVR_API bool VR_IsInterfaceVersionValid(const char* interfaceVersion) {
    return SimRuntime::instance().locked(
        [&](SimRuntime::State& state) { return findInterface(state, interfaceVersion) != nullptr; });
}

SIMVR_API uint32_t VR_GetInitToken() {
    return SimRuntime::instance().locked([](SimRuntime::State& state) { return state.initToken; });
}

} // extern "C"
