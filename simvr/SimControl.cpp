// The control API: scripting the simulated runtime from a test or a demo.

#include <algorithm>
#include <cstring>
#include <string>

#include "simvr/SimRuntime.h"
#include "simvr/SimVR.h"

namespace {

using SimVR::SimRuntime;
using State = SimRuntime::State;
using Device = SimRuntime::Device;

template <typename Function> auto withState(Function&& function) {
    return SimRuntime::instance().locked(std::forward<Function>(function));
}

// Applies a change to one device; indices outside the device table are ignored.
template <typename Function> void withDevice(uint32_t deviceIndex, Function&& function) {
    if (!SimRuntime::validIndex(deviceIndex)) {
        return;
    }
    withState([&](State& state) { function(state.devices[deviceIndex]); });
}

void setString(Device& device, int32_t property, const char* value) {
    if (value == nullptr) {
        device.strings.erase(property);
    } else {
        device.strings[property] = value;
    }
}

} // namespace

extern "C" {

SIMVR_API void simvr_reset(void) {
    SimRuntime::instance().reset();
}

SIMVR_API void simvr_setInstalled(int installed) {
    withState([&](State& state) { state.installed = installed != 0; });
}

SIMVR_API void simvr_setHmdPresent(int present) {
    withState([&](State& state) { state.hmdPresent = present != 0; });
}

SIMVR_API void simvr_setInitErrors(const int32_t* errors, uint32_t count) {
    withState([&](State& state) {
        state.initErrors.assign(errors, errors == nullptr ? errors : errors + count);
        state.nextInitError = 0;
    });
}

SIMVR_API void simvr_setInterfaceAvailable(const char* interfaceVersion, int available) {
    if (interfaceVersion == nullptr) {
        return;
    }
    withState([&](State& state) {
        auto& list = state.unavailableInterfaces;
        list.erase(std::remove(list.begin(), list.end(), std::string(interfaceVersion)), list.end());
        if (available == 0) {
            list.emplace_back(interfaceVersion);
        }
    });
}

SIMVR_API void simvr_setHmdProperties(const char* trackingSystemName, const char* modelNumber,
                                      const char* serialNumber) {
    withDevice(vr::k_unTrackedDeviceIndex_Hmd, [&](Device& hmd) {
        if (trackingSystemName != nullptr) {
            setString(hmd, vr::Prop_TrackingSystemName_String, trackingSystemName);
        }
        if (modelNumber != nullptr) {
            setString(hmd, vr::Prop_ModelNumber_String, modelNumber);
        }
        if (serialNumber != nullptr) {
            setString(hmd, vr::Prop_SerialNumber_String, serialNumber);
        }
    });
}

SIMVR_API void simvr_setRecommendedSize(uint32_t width, uint32_t height) {
    withState([&](State& state) {
        state.recommendedWidth = width;
        state.recommendedHeight = height;
    });
}

SIMVR_API void simvr_setDisplayFrequency(float hertz) {
    withState([&](State& state) { state.displayFrequency = hertz; });
}

SIMVR_API void simvr_setSupersampleScale(float scale) {
    withState([&](State& state) {
        SimRuntime::Setting setting;
        setting.kind = SimRuntime::Setting::Kind::Float;
        setting.number = scale;
        state.settings[{vr::k_pch_SteamVR_Section, vr::k_pch_SteamVR_SupersampleScale_Float}] = setting;
    });
}

SIMVR_API void simvr_removeSupersampleScale(void) {
    withState([](State& state) {
        state.settings.erase({vr::k_pch_SteamVR_Section, vr::k_pch_SteamVR_SupersampleScale_Float});
    });
}

SIMVR_API void simvr_setPaced(int paced) {
    withState([&](State& state) { state.paced = paced != 0; });
}

SIMVR_API void simvr_setSubmitCapture(int capture) {
    withState([&](State& state) { state.captureSubmits = capture != 0; });
}

SIMVR_API void simvr_setStringProperty(uint32_t deviceIndex, int32_t property, const char* value) {
    withDevice(deviceIndex, [&](Device& device) { setString(device, property, value); });
}

SIMVR_API void simvr_setDevice(uint32_t deviceIndex, int32_t deviceClass, int32_t role, int connected) {
    withDevice(deviceIndex, [&](Device& device) {
        device.deviceClass = static_cast<vr::ETrackedDeviceClass>(deviceClass);
        device.role = static_cast<vr::ETrackedControllerRole>(role);
        device.connected = connected != 0;
    });
}

SIMVR_API void simvr_setDeviceClass(uint32_t deviceIndex, int32_t deviceClass) {
    withDevice(deviceIndex, [&](Device& device) {
        device.deviceClass = static_cast<vr::ETrackedDeviceClass>(deviceClass);
    });
}

SIMVR_API void simvr_setControllerRole(uint32_t deviceIndex, int32_t role) {
    withDevice(deviceIndex,
               [&](Device& device) { device.role = static_cast<vr::ETrackedControllerRole>(role); });
}

SIMVR_API void simvr_setDeviceConnected(uint32_t deviceIndex, int connected) {
    withDevice(deviceIndex, [&](Device& device) { device.connected = connected != 0; });
}

SIMVR_API void simvr_setDevicePose(uint32_t deviceIndex, const float matrix34[12]) {
    if (matrix34 == nullptr) {
        return;
    }
    withDevice(deviceIndex, [&](Device& device) {
        std::memcpy(device.pose.m, matrix34, sizeof(device.pose.m));
        device.poseValid = true;
    });
}

SIMVR_API void simvr_setDevicePoseValid(uint32_t deviceIndex, int valid) {
    withDevice(deviceIndex, [&](Device& device) { device.poseValid = valid != 0; });
}

SIMVR_API void simvr_setDeviceVelocity(uint32_t deviceIndex, const float velocity[3],
                                       const float angularVelocity[3]) {
    withDevice(deviceIndex, [&](Device& device) {
        if (velocity != nullptr) {
            std::memcpy(device.velocity.v, velocity, sizeof(device.velocity.v));
        }
        if (angularVelocity != nullptr) {
            std::memcpy(device.angularVelocity.v, angularVelocity, sizeof(device.angularVelocity.v));
        }
    });
}

SIMVR_API void simvr_setPoseScript(simvr_PoseScript script, void* user) {
    withState([&](State& state) {
        state.poseScript = script;
        state.poseScriptUser = user;
    });
}

SIMVR_API void simvr_setControllerState(uint32_t deviceIndex, uint64_t buttonsPressed,
                                        uint64_t buttonsTouched, const float axes[10]) {
    withDevice(deviceIndex, [&](Device& device) {
        vr::VRControllerState_t next = device.controller;
        next.ulButtonPressed = buttonsPressed;
        next.ulButtonTouched = buttonsTouched;
        for (uint32_t i = 0; i < vr::k_unControllerStateAxisCount; ++i) {
            next.rAxis[i].x = axes != nullptr ? axes[2 * i] : 0.0f;
            next.rAxis[i].y = axes != nullptr ? axes[2 * i + 1] : 0.0f;
        }
        if (std::memcmp(&next, &device.controller, sizeof(next)) != 0) {
            ++next.unPacketNum;
            device.controller = next;
        }
    });
}

SIMVR_API void simvr_setRenderModelLoadingPolls(uint32_t polls) {
    withState([&](State& state) {
        state.loadingPolls = polls;
        state.modelPollsLeft.clear();
        state.texturePollsLeft.clear();
    });
}

SIMVR_API void simvr_setTextureLoadFails(int fails) {
    withState([&](State& state) { state.textureLoadFails = fails != 0; });
}

SIMVR_API uint32_t simvr_initCount(void) {
    return withState([](State& state) { return state.initCount; });
}

SIMVR_API uint32_t simvr_shutdownCount(void) {
    return withState([](State& state) { return state.shutdownCount; });
}

SIMVR_API int simvr_isInitialized(void) {
    return withState([](State& state) { return state.initialized ? 1 : 0; });
}

SIMVR_API int32_t simvr_lastApplicationType(void) {
    return withState([](State& state) { return state.lastApplicationType; });
}

SIMVR_API uint64_t simvr_waitGetPosesCount(void) {
    return withState([](State& state) { return state.waitGetPosesCount; });
}

SIMVR_API uint64_t simvr_postPresentHandoffCount(void) {
    return withState([](State& state) { return state.postPresentHandoffCount; });
}

SIMVR_API uint64_t simvr_submitCount(uint32_t eye) {
    return withState([&](State& state) { return eye < 2 ? state.submitCount[eye] : uint64_t{0}; });
}

SIMVR_API uint64_t simvr_submitErrorCount(void) {
    return withState([](State& state) { return state.submitErrorCount; });
}

SIMVR_API size_t simvr_lastSubmittedPicture(uint32_t eye, uint32_t* width, uint32_t* height, uint8_t* rgba,
                                            size_t capacity) {
    return withState([&](State& state) -> size_t {
        const SimRuntime::Picture empty;
        const SimRuntime::Picture& picture = eye < 2 ? state.pictures[eye] : empty;
        if (width != nullptr) {
            *width = picture.width;
        }
        if (height != nullptr) {
            *height = picture.height;
        }
        const size_t size = picture.rgba.size();
        if (rgba != nullptr && size > 0 && capacity >= size) {
            std::memcpy(rgba, picture.rgba.data(), size);
        }
        return size;
    });
}

SIMVR_API uint32_t simvr_lastSubmittedTexture(uint32_t eye) {
    return withState([&](State& state) { return eye < 2 ? state.pictures[eye].texture : 0u; });
}

SIMVR_API uint32_t simvr_hapticPulseCount(void) {
    return withState([](State& state) { return static_cast<uint32_t>(state.hapticPulses.size()); });
}

SIMVR_API int simvr_hapticPulse(uint32_t index, uint32_t* deviceIndex, uint32_t* axis,
                                uint16_t* microseconds) {
    return withState([&](State& state) {
        if (index >= state.hapticPulses.size()) {
            return 0;
        }
        const SimRuntime::HapticPulse& pulse = state.hapticPulses[index];
        if (deviceIndex != nullptr) {
            *deviceIndex = pulse.device;
        }
        if (axis != nullptr) {
            *axis = pulse.axis;
        }
        if (microseconds != nullptr) {
            *microseconds = pulse.microseconds;
        }
        return 1;
    });
}

SIMVR_API uint32_t simvr_renderModelLoadCount(void) {
    return withState([](State& state) { return state.renderModelLoads; });
}

SIMVR_API uint32_t simvr_renderModelFreeCount(void) {
    return withState([](State& state) { return state.renderModelFrees; });
}

SIMVR_API uint32_t simvr_textureLoadCount(void) {
    return withState([](State& state) { return state.textureLoads; });
}

SIMVR_API uint32_t simvr_textureFreeCount(void) {
    return withState([](State& state) { return state.textureFrees; });
}

} // extern "C"
