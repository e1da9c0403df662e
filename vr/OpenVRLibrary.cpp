#include "vr/OpenVRLibrary.h"

#include "platform/Platform.h"

namespace VR {

#if defined(_WIN32)
const char* const OpenVRLibrary::LIBRARY_NAME = "openvr_api.dll";
#elif defined(__APPLE__)
const char* const OpenVRLibrary::LIBRARY_NAME = "libopenvr_api.dylib";
#else
const char* const OpenVRLibrary::LIBRARY_NAME = "libopenvr_api.so";
#endif

namespace {

template <typename Function> bool resolve(void* library, const char* name, Function& out) {
    out = reinterpret_cast<Function>(Platform::librarySymbol(library, name));
    return out != nullptr;
}

} // namespace

OpenVRLibrary::~OpenVRLibrary() {
    if (handle == nullptr) {
        return;
    }
    if (running) {
        shutdownInternal();
    }
    Platform::closeLibrary(handle);
}

bool OpenVRLibrary::load() {
    if (handle != nullptr) {
        return true;
    }
    // A runtime shipped beside the host wins over whatever the loader would find on its own.
    void* library = Platform::openLibrary(Platform::executableFolder() + LIBRARY_NAME);
    if (library == nullptr) {
        library = Platform::openLibrary(LIBRARY_NAME);
    }
    if (library == nullptr) {
        error = std::string("could not load ") + LIBRARY_NAME + " (" + Platform::libraryError() + ")";
        return false;
    }

    const char* missing = nullptr;
    auto check = [&](bool found, const char* name) {
        if (!found && missing == nullptr) {
            missing = name;
        }
    };
    check(resolve(library, "VR_InitInternal", initInternal), "VR_InitInternal");
    check(resolve(library, "VR_ShutdownInternal", shutdownInternal), "VR_ShutdownInternal");
    check(resolve(library, "VR_IsHmdPresent", isHmdPresentFn), "VR_IsHmdPresent");
    check(resolve(library, "VR_IsRuntimeInstalled", isRuntimeInstalledFn), "VR_IsRuntimeInstalled");
    check(resolve(library, "VR_RuntimePath", runtimePath), "VR_RuntimePath");
    check(resolve(library, "VR_GetVRInitErrorAsSymbol", initErrorAsSymbol), "VR_GetVRInitErrorAsSymbol");
    check(resolve(library, "VR_GetVRInitErrorAsEnglishDescription", initErrorAsEnglishDescription),
          "VR_GetVRInitErrorAsEnglishDescription");
    check(resolve(library, "VR_GetGenericInterface", getGenericInterface), "VR_GetGenericInterface");
    check(resolve(library, "VR_IsInterfaceVersionValid", isInterfaceVersionValidFn),
          "VR_IsInterfaceVersionValid");
    check(resolve(library, "VR_GetInitToken", getInitToken), "VR_GetInitToken");
    if (missing != nullptr) {
        error = std::string("could not load ") + LIBRARY_NAME + " (entry point " + missing + " not found)";
        Platform::closeLibrary(library);
        return false;
    }
    handle = library;
    error.clear();
    return true;
}

bool OpenVRLibrary::isRuntimeInstalled() const {
    return handle != nullptr && isRuntimeInstalledFn();
}

bool OpenVRLibrary::isHmdPresent() const {
    return handle != nullptr && isHmdPresentFn();
}

const char* OpenVRLibrary::initErrorDescription(vr::EVRInitError initError) const {
    const char* text = handle != nullptr ? initErrorAsEnglishDescription(initError) : nullptr;
    return text != nullptr ? text : "";
}

bool OpenVRLibrary::isInterfaceVersionValid(const char* version) const {
    return handle != nullptr && isInterfaceVersionValidFn(version);
}

vr::IVRSystem* OpenVRLibrary::initScene(vr::EVRInitError* initError) {
    if (handle == nullptr) {
        *initError = vr::VRInitError_Init_NotInitialized;
        return nullptr;
    }
    // Interfaces of an earlier session are dead whatever the token says.
    compositorInterface = nullptr;
    renderModelsInterface = nullptr;
    settingsInterface = nullptr;

    *initError = vr::VRInitError_None;
    token = initInternal(initError, vr::VRApplication_Scene);
    if (*initError != vr::VRInitError_None) {
        return nullptr;
    }
    running = true;
    if (!isInterfaceVersionValidFn(vr::IVRSystem_Version)) {
        shutdown();
        *initError = vr::VRInitError_Init_InterfaceNotFound;
        return nullptr;
    }
    auto* system = static_cast<vr::IVRSystem*>(getGenericInterface(vr::IVRSystem_Version, initError));
    if (system == nullptr) {
        // A session without its system interface is of no use; the next attempt starts a fresh one.
        shutdown();
    }
    return system;
}

void OpenVRLibrary::shutdown() {
    if (handle == nullptr || !running) {
        return;
    }
    shutdownInternal();
    running = false;
}

void OpenVRLibrary::forgetStaleInterfaces() {
    const std::uint32_t current = getInitToken();
    if (current != token) {
        compositorInterface = nullptr;
        renderModelsInterface = nullptr;
        settingsInterface = nullptr;
        token = current;
    }
}

void* OpenVRLibrary::fetch(void*& cached, const char* version, vr::EVRInitError* initError) {
    vr::EVRInitError fetchError = vr::VRInitError_None;
    if (handle == nullptr) {
        fetchError = vr::VRInitError_Init_NotInitialized;
    } else {
        forgetStaleInterfaces();
        if (cached == nullptr) {
            cached = getGenericInterface(version, &fetchError);
        }
    }
    if (initError != nullptr) {
        *initError = fetchError;
    }
    return cached;
}

vr::IVRCompositor* OpenVRLibrary::compositor(vr::EVRInitError* initError) {
    return static_cast<vr::IVRCompositor*>(fetch(compositorInterface, vr::IVRCompositor_Version, initError));
}

vr::IVRRenderModels* OpenVRLibrary::renderModels(vr::EVRInitError* initError) {
    return static_cast<vr::IVRRenderModels*>(
        fetch(renderModelsInterface, vr::IVRRenderModels_Version, initError));
}

vr::IVRSettings* OpenVRLibrary::settings(vr::EVRInitError* initError) {
    return static_cast<vr::IVRSettings*>(fetch(settingsInterface, vr::IVRSettings_Version, initError));
}

} // namespace VR
