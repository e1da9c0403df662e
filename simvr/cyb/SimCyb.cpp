// The simulated walking-platform library: the vendor's exports for one device, and the control API.

#include <mutex>

#include "simvr/cyb/SimCyb.h"

namespace {

struct Device {
    bool present = false;
    bool open = false;
    bool openSucceeds = true;
    float orientation = 0.0f;
    float speed = 0.0f;
    float movementDirection = 1.0f;
    float playerHeight = 1.7f;
    uint32_t findDeviceCount = 0;
    uint32_t openCount = 0;
    uint32_t closeCount = 0;
};

std::mutex mutex;
// Its address is the handle the library hands out, so it is reset in place, never replaced.
Device device;

template <typename Function> auto locked(Function&& function) {
    std::lock_guard<std::mutex> lock(mutex);
    return function(device);
}

// Runs a vendor call on the device the handle names; a handle from anywhere else gets the neutral answer.
template <typename Function> auto onDevice(void* handle, Function&& function) {
    using Result = decltype(function(device));
    std::lock_guard<std::mutex> lock(mutex);
    if (handle != &device) {
        return Result();
    }
    return function(device);
}

} // namespace

extern "C" {

// The vendor's exports. Nobody includes a declaration of them: a client resolves them by name.

SIMCYB_API void* CybSDK_VirtDevice_FindDevice(void) {
    return locked([](Device& d) -> void* {
        ++d.findDeviceCount;
        return d.present ? &d : nullptr;
    });
}

SIMCYB_API void* CybSDK_VirtDevice_CreateDeviceMockupXInput(void) {
    return &device;
}

SIMCYB_API bool CybSDK_VirtDevice_Open(void* handle) {
    return onDevice(handle, [](Device& d) {
        ++d.openCount;
        d.open = d.open || d.openSucceeds;
        return d.openSucceeds;
    });
}

SIMCYB_API bool CybSDK_VirtDevice_IsOpen(void* handle) {
    return onDevice(handle, [](Device& d) { return d.open; });
}

SIMCYB_API bool CybSDK_VirtDevice_Close(void* handle) {
    return onDevice(handle, [](Device& d) {
        ++d.closeCount;
        const bool wasOpen = d.open;
        d.open = false;
        return wasOpen;
    });
}

SIMCYB_API float CybSDK_VirtDevice_GetPlayerHeight(void* handle) {
    return onDevice(handle, [](Device& d) { return d.playerHeight; });
}

SIMCYB_API void CybSDK_VirtDevice_ResetPlayerHeight(void* handle) {
    onDevice(handle, [](Device&) {});
}

SIMCYB_API float CybSDK_VirtDevice_GetPlayerOrientation(void* handle) {
    return onDevice(handle, [](Device& d) { return d.orientation; });
}

SIMCYB_API float CybSDK_VirtDevice_GetMovementSpeed(void* handle) {
    return onDevice(handle, [](Device& d) { return d.speed; });
}

SIMCYB_API float CybSDK_VirtDevice_GetMovementDirection(void* handle) {
    return onDevice(handle, [](Device& d) { return d.movementDirection; });
}

SIMCYB_API void CybSDK_VirtDevice_ResetPlayerOrientation(void* handle) {
    onDevice(handle, [](Device& d) { d.orientation = 0.0f; });
}

// The control API.

SIMCYB_API void simcyb_reset(void) {
    locked([](Device& d) { d = Device(); });
}

SIMCYB_API void simcyb_setDevicePresent(int present) {
    locked([present](Device& d) { d.present = present != 0; });
}

SIMCYB_API void simcyb_setAlreadyOpen(int open) {
    locked([open](Device& d) { d.open = open != 0; });
}

SIMCYB_API void simcyb_setOpenSucceeds(int succeeds) {
    locked([succeeds](Device& d) { d.openSucceeds = succeeds != 0; });
}

SIMCYB_API void simcyb_setOrientation(float fractionOfTurn) {
    locked([fractionOfTurn](Device& d) { d.orientation = fractionOfTurn; });
}

SIMCYB_API void simcyb_setSpeed(float speed) {
    locked([speed](Device& d) { d.speed = speed; });
}

SIMCYB_API void simcyb_setMovementDirection(float direction) {
    locked([direction](Device& d) { d.movementDirection = direction; });
}

SIMCYB_API void simcyb_setPlayerHeight(float height) {
    locked([height](Device& d) { d.playerHeight = height; });
}

SIMCYB_API uint32_t simcyb_findDeviceCount(void) {
    return locked([](Device& d) { return d.findDeviceCount; });
}

SIMCYB_API uint32_t simcyb_openCount(void) {
    return locked([](Device& d) { return d.openCount; });
}

SIMCYB_API uint32_t simcyb_closeCount(void) {
    return locked([](Device& d) { return d.closeCount; });
}

SIMCYB_API int simcyb_isOpen(void) {
    return locked([](Device& d) { return d.open ? 1 : 0; });
}

} // extern "C"
