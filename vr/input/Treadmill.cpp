#include "vr/input/Treadmill.h"

#include <atomic>
#include <string>

#include "platform/Platform.h"

#if defined(_WIN32)
const char* const CVirtDeviceNative::LIBRARY_NAME = "CybSDK.dll";
#else
const char* const CVirtDeviceNative::LIBRARY_NAME = "libCybSDK.so";
#endif

namespace {

// The binding is lazy and unlocked because only the render thread uses it. Atomics still keep a stray
// second thread from racing on the pointers: both would store the same values, so nothing more is needed.
std::atomic<void*> vendorLibrary{nullptr};

void* library() {
    void* module = vendorLibrary.load(std::memory_order_acquire);
    if (module != nullptr) {
        return module;
    }
#if !defined(_WIN32)
    // Windows looks beside the executable before anywhere else; the loader here must be told to.
    module = Platform::openLibrary(Platform::executableFolder() + CVirtDeviceNative::LIBRARY_NAME);
#endif
    if (module == nullptr) {
        module = Platform::openLibrary(CVirtDeviceNative::LIBRARY_NAME);
    }
    if (module != nullptr) {
        vendorLibrary.store(module, std::memory_order_release);
    }
    return module;
}

template <typename Function> struct Export {
    const char* name;
    std::atomic<Function> function{nullptr};
};

// Neutral results come from value-initialising the result type: false, 0, 0.0f, null, or nothing.
template <typename Result, typename... Args, typename... Passed>
Result call(Export<Result (*)(Args...)>& entry, Passed... args) {
    void* module = library();
    if (module == nullptr) {
        return Result();
    }
    auto function = entry.function.load(std::memory_order_acquire);
    if (function == nullptr) {
        // An export the library lacks stays null here and is looked up again next time.
        function = reinterpret_cast<Result (*)(Args...)>(Platform::librarySymbol(module, entry.name));
        entry.function.store(function, std::memory_order_release);
    }
    if (function == nullptr) {
        return Result();
    }
    return function(args...);
}

Export<void* (*)()> findDeviceExport{"CybSDK_VirtDevice_FindDevice"};
Export<void* (*)()> createDeviceMockupXInputExport{"CybSDK_VirtDevice_CreateDeviceMockupXInput"};
Export<bool (*)(void*)> openExport{"CybSDK_VirtDevice_Open"};
Export<bool (*)(void*)> isOpenExport{"CybSDK_VirtDevice_IsOpen"};
Export<bool (*)(void*)> closeExport{"CybSDK_VirtDevice_Close"};
Export<float (*)(void*)> getPlayerHeightExport{"CybSDK_VirtDevice_GetPlayerHeight"};
Export<void (*)(void*)> resetPlayerHeightExport{"CybSDK_VirtDevice_ResetPlayerHeight"};
Export<float (*)(void*)> getPlayerOrientationExport{"CybSDK_VirtDevice_GetPlayerOrientation"};
Export<float (*)(void*)> getMovementSpeedExport{"CybSDK_VirtDevice_GetMovementSpeed"};
Export<float (*)(void*)> getMovementDirectionExport{"CybSDK_VirtDevice_GetMovementDirection"};
Export<void (*)(void*)> resetPlayerOrientationExport{"CybSDK_VirtDevice_ResetPlayerOrientation"};

CVirtDevice* wrap(void* handle) {
    return handle != nullptr ? new CVirtDeviceNative(handle) : nullptr;
}

} // namespace

CVirtDevice* CVirtDeviceNative::findDevice() {
    return wrap(call(findDeviceExport));
}

CVirtDevice* CVirtDeviceNative::createDeviceMockupXInput() {
    return wrap(call(createDeviceMockupXInputExport));
}

bool CVirtDeviceNative::Open() {
    return call(openExport, handle);
}

bool CVirtDeviceNative::IsOpen() {
    return call(isOpenExport, handle);
}

bool CVirtDeviceNative::Close() {
    return call(closeExport, handle);
}

float CVirtDeviceNative::GetPlayerHeight() {
    return call(getPlayerHeightExport, handle);
}

void CVirtDeviceNative::ResetPlayerHeight() {
    call(resetPlayerHeightExport, handle);
}

float CVirtDeviceNative::GetPlayerOrientation() {
    return call(getPlayerOrientationExport, handle);
}

float CVirtDeviceNative::GetMovementSpeed() {
    return call(getMovementSpeedExport, handle);
}

float CVirtDeviceNative::GetMovementDirection() {
    return call(getMovementDirectionExport, handle);
}

void CVirtDeviceNative::ResetPlayerOrientation() {
    call(resetPlayerOrientationExport, handle);
}

Virtualizer::Virtualizer() : device(CVirtDeviceNative::findDevice()) {
    if (device == nullptr) {
        return;
    }
    connected = device->IsOpen();
    if (!connected) {
        connected = device->Open();
    }
}

Virtualizer::~Virtualizer() {
    if (device != nullptr && connected) {
        device->Close();
    }
}

float Virtualizer::getDirection() const {
    if (device == nullptr || !connected) {
        return 0.0f;
    }
    const float orientation = device->GetPlayerOrientation();
    return device->GetMovementDirection() > 0.5f ? orientation : orientation + 0.5f;
}

float Virtualizer::getSpeed() const {
    if (device == nullptr || !connected) {
        return 0.0f;
    }
    return device->GetMovementSpeed();
}
