#include "simvr/SimSystem.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "simvr/SimRuntime.h"

namespace SimVR {

namespace {

using Device = SimRuntime::Device;

// Tangents of the half-angles of each eye's view, as a wide-field headset reports them (the outer side
// wider than the nose side); top is negative, as the runtime's raw projection has it.
constexpr float EYE_INNER_TANGENT = 1.24f;
constexpr float EYE_OUTER_TANGENT = 1.39f;
constexpr float EYE_VERTICAL_TANGENT = 1.47f;

constexpr auto DEVICE_CLASS_PROPERTY = static_cast<vr::ETrackedDeviceProperty>(1029);

void setError(vr::ETrackedPropertyError* error, vr::ETrackedPropertyError value) {
    if (error != nullptr) {
        *error = value;
    }
}

enum class PropertyType { None, String, Float, Int32 };

PropertyType typeOf(const Device& device, uint32_t deviceIndex, vr::ETrackedDeviceProperty property) {
    if (device.strings.count(property) != 0) {
        return PropertyType::String;
    }
    if (deviceIndex == vr::k_unTrackedDeviceIndex_Hmd && property == vr::Prop_DisplayFrequency_Float) {
        return PropertyType::Float;
    }
    return property == DEVICE_CLASS_PROPERTY ? PropertyType::Int32 : PropertyType::None;
}

// Answers the error of a property read that has no value of the asked type: a missing device, a property
// the device has with another type, or an unknown property.
void reportMissing(const Device& device, uint32_t deviceIndex, vr::ETrackedDeviceProperty property,
                   vr::ETrackedPropertyError* error) {
    if (!SimRuntime::validIndex(deviceIndex) || device.deviceClass == vr::TrackedDeviceClass_Invalid) {
        setError(error, vr::TrackedProp_InvalidDevice);
        return;
    }
    setError(error, typeOf(device, deviceIndex, property) != PropertyType::None
                        ? vr::TrackedProp_WrongDataType
                        : vr::TrackedProp_UnknownProperty);
}

template <typename Function> auto withDevice(uint32_t deviceIndex, Function&& function) {
    return SimRuntime::instance().locked([&](SimRuntime::State& state) {
        static const Device missing;
        return function(state, SimRuntime::validIndex(deviceIndex) ? state.devices[deviceIndex] : missing);
    });
}

vr::HmdMatrix34_t multiply(const vr::HmdMatrix34_t& a, const vr::HmdMatrix34_t& b) {
    vr::HmdMatrix34_t result = {};
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 4; ++column) {
            float sum = column == 3 ? a.m[row][3] : 0.0f;
            for (int k = 0; k < 3; ++k) {
                sum += a.m[row][k] * b.m[k][column];
            }
            result.m[row][column] = sum;
        }
    }
    return result;
}

vr::HmdVector3_t rotate(const vr::HmdMatrix34_t& a, const vr::HmdVector3_t& v) {
    vr::HmdVector3_t result = {};
    for (int row = 0; row < 3; ++row) {
        result.v[row] = a.m[row][0] * v.v[0] + a.m[row][1] * v.v[1] + a.m[row][2] * v.v[2];
    }
    return result;
}

} // namespace

void SimSystem::GetRecommendedRenderTargetSize(uint32_t* width, uint32_t* height) {
    SimRuntime::instance().locked([&](SimRuntime::State& state) {
        if (width != nullptr) {
            *width = state.recommendedWidth;
        }
        if (height != nullptr) {
            *height = state.recommendedHeight;
        }
    });
}

vr::HmdMatrix44_t SimSystem::GetProjectionMatrix(vr::EVREye eye, float nearZ, float farZ) {
    float left = 0.0f;
    float right = 0.0f;
    float top = 0.0f;
    float bottom = 0.0f;
    GetProjectionRaw(eye, &left, &right, &top, &bottom);

    // The runtime's own composition of a projection from raw tangents, whatever the signs of the planes.
    const float idx = 1.0f / (right - left);
    const float idy = 1.0f / (bottom - top);
    const float idz = 1.0f / (farZ - nearZ);
    const float sx = right + left;
    const float sy = bottom + top;
    vr::HmdMatrix44_t projection = {};
    projection.m[0][0] = 2.0f * idx;
    projection.m[0][2] = sx * idx;
    projection.m[1][1] = 2.0f * idy;
    projection.m[1][2] = sy * idy;
    projection.m[2][2] = -farZ * idz;
    projection.m[2][3] = -farZ * nearZ * idz;
    projection.m[3][2] = -1.0f;
    return projection;
}

void SimSystem::GetProjectionRaw(vr::EVREye eye, float* left, float* right, float* top, float* bottom) {
    const bool leftEye = eye != vr::Eye_Right;
    if (left != nullptr) {
        *left = leftEye ? -EYE_OUTER_TANGENT : -EYE_INNER_TANGENT;
    }
    if (right != nullptr) {
        *right = leftEye ? EYE_INNER_TANGENT : EYE_OUTER_TANGENT;
    }
    if (top != nullptr) {
        *top = -EYE_VERTICAL_TANGENT;
    }
    if (bottom != nullptr) {
        *bottom = EYE_VERTICAL_TANGENT;
    }
}

bool SimSystem::ComputeDistortion(vr::EVREye, float u, float v, vr::DistortionCoordinates_t* coordinates) {
    // A display without lens distortion: every colour samples where it lands.
    if (coordinates == nullptr) {
        return false;
    }
    for (float* channel : {coordinates->rfRed, coordinates->rfGreen, coordinates->rfBlue}) {
        channel[0] = u;
        channel[1] = v;
    }
    return true;
}

vr::HmdMatrix34_t SimSystem::GetEyeToHeadTransform(vr::EVREye eye) {
    const float ipd = SimRuntime::instance().locked([](SimRuntime::State& state) { return state.ipd; });
    vr::HmdMatrix34_t transform = SimRuntime::identity();
    transform.m[0][3] = eye == vr::Eye_Right ? ipd / 2.0f : -ipd / 2.0f;
    return transform;
}

bool SimSystem::GetTimeSinceLastVsync(float* secondsSinceLastVsync, uint64_t* frameCounter) {
    return SimRuntime::instance().locked([&](SimRuntime::State& state) {
        const double elapsed =
            std::chrono::duration<double>(SimRuntime::Clock::now() - state.sessionStart).count();
        const double period = state.displayFrequency > 0.0f ? 1.0 / state.displayFrequency : 0.0;
        const double frames = period > 0.0 ? std::floor(elapsed / period) : 0.0;
        if (secondsSinceLastVsync != nullptr) {
            *secondsSinceLastVsync = static_cast<float>(elapsed - frames * period);
        }
        if (frameCounter != nullptr) {
            *frameCounter = static_cast<uint64_t>(frames);
        }
        return true;
    });
}

int32_t SimSystem::GetD3D9AdapterIndex() {
    return 0;
}

void SimSystem::GetDXGIOutputInfo(int32_t* adapterIndex) {
    if (adapterIndex != nullptr) {
        *adapterIndex = 0;
    }
}

void SimSystem::GetOutputDevice(uint64_t* device, vr::ETextureType) {
    if (device != nullptr) {
        *device = 0;
    }
}

bool SimSystem::IsDisplayOnDesktop() {
    return false;
}

bool SimSystem::SetDisplayVisibility(bool) {
    return false;
}

void SimSystem::GetDeviceToAbsoluteTrackingPose(vr::ETrackingUniverseOrigin, float,
                                                vr::TrackedDevicePose_t* poses, uint32_t poseCount) {
    if (poses == nullptr) {
        return;
    }
    SimRuntime::instance().locked([&](SimRuntime::State& state) {
        for (uint32_t i = 0; i < poseCount; ++i) {
            poses[i] =
                SimRuntime::validIndex(i) ? SimRuntime::poseOf(state.devices[i]) : vr::TrackedDevicePose_t{};
        }
    });
}

void SimSystem::ResetSeatedZeroPose() {}

vr::HmdMatrix34_t SimSystem::GetSeatedZeroPoseToStandingAbsoluteTrackingPose() {
    return SimRuntime::identity();
}

vr::HmdMatrix34_t SimSystem::GetRawZeroPoseToStandingAbsoluteTrackingPose() {
    return SimRuntime::identity();
}

uint32_t SimSystem::GetSortedTrackedDeviceIndicesOfClass(vr::ETrackedDeviceClass deviceClass,
                                                         vr::TrackedDeviceIndex_t* indices,
                                                         uint32_t indexCount, vr::TrackedDeviceIndex_t) {
    return SimRuntime::instance().locked([&](SimRuntime::State& state) {
        uint32_t found = 0;
        for (uint32_t i = 0; i < SimRuntime::DEVICE_COUNT; ++i) {
            if (state.devices[i].deviceClass != deviceClass || !state.devices[i].connected) {
                continue;
            }
            if (indices != nullptr && found < indexCount) {
                indices[found] = i;
            }
            ++found;
        }
        return found;
    });
}

vr::EDeviceActivityLevel SimSystem::GetTrackedDeviceActivityLevel(vr::TrackedDeviceIndex_t deviceIndex) {
    // 1 = user interaction: somebody wears the headset whenever it is connected.
    const bool connected = IsTrackedDeviceConnected(deviceIndex);
    return connected ? static_cast<vr::EDeviceActivityLevel>(1) : vr::k_EDeviceActivityLevel_Unknown;
}

void SimSystem::ApplyTransform(vr::TrackedDevicePose_t* outputPose, const vr::TrackedDevicePose_t* pose,
                               const vr::HmdMatrix34_t* transform) {
    if (outputPose == nullptr || pose == nullptr || transform == nullptr) {
        return;
    }
    vr::TrackedDevicePose_t result = *pose;
    result.mDeviceToAbsoluteTracking = multiply(*transform, pose->mDeviceToAbsoluteTracking);
    result.vVelocity = rotate(*transform, pose->vVelocity);
    result.vAngularVelocity = rotate(*transform, pose->vAngularVelocity);
    *outputPose = result;
}

vr::TrackedDeviceIndex_t SimSystem::GetTrackedDeviceIndexForControllerRole(vr::ETrackedControllerRole role) {
    return SimRuntime::instance().locked([&](SimRuntime::State& state) {
        if (role == vr::TrackedControllerRole_Invalid) {
            return vr::k_unTrackedDeviceIndexInvalid;
        }
        for (uint32_t i = 0; i < SimRuntime::DEVICE_COUNT; ++i) {
            if (state.devices[i].role == role && state.devices[i].connected) {
                return i;
            }
        }
        return vr::k_unTrackedDeviceIndexInvalid;
    });
}

vr::ETrackedControllerRole
SimSystem::GetControllerRoleForTrackedDeviceIndex(vr::TrackedDeviceIndex_t deviceIndex) {
    return withDevice(deviceIndex, [](SimRuntime::State&, const Device& device) { return device.role; });
}

vr::ETrackedDeviceClass SimSystem::GetTrackedDeviceClass(vr::TrackedDeviceIndex_t deviceIndex) {
    return withDevice(deviceIndex,
                      [](SimRuntime::State&, const Device& device) { return device.deviceClass; });
}

bool SimSystem::IsTrackedDeviceConnected(vr::TrackedDeviceIndex_t deviceIndex) {
    return withDevice(deviceIndex, [](SimRuntime::State&, const Device& device) { return device.connected; });
}

bool SimSystem::GetBoolTrackedDeviceProperty(vr::TrackedDeviceIndex_t deviceIndex,
                                             vr::ETrackedDeviceProperty property,
                                             vr::ETrackedPropertyError* error) {
    return withDevice(deviceIndex, [&](SimRuntime::State&, const Device& device) {
        reportMissing(device, deviceIndex, property, error);
        return false;
    });
}

float SimSystem::GetFloatTrackedDeviceProperty(vr::TrackedDeviceIndex_t deviceIndex,
                                               vr::ETrackedDeviceProperty property,
                                               vr::ETrackedPropertyError* error) {
    return withDevice(deviceIndex, [&](SimRuntime::State& state, const Device& device) {
        if (deviceIndex == vr::k_unTrackedDeviceIndex_Hmd && property == vr::Prop_DisplayFrequency_Float) {
            setError(error, vr::TrackedProp_Success);
            return state.displayFrequency;
        }
        reportMissing(device, deviceIndex, property, error);
        return 0.0f;
    });
}

int32_t SimSystem::GetInt32TrackedDeviceProperty(vr::TrackedDeviceIndex_t deviceIndex,
                                                 vr::ETrackedDeviceProperty property,
                                                 vr::ETrackedPropertyError* error) {
    return withDevice(deviceIndex, [&](SimRuntime::State&, const Device& device) {
        if (property == DEVICE_CLASS_PROPERTY && device.deviceClass != vr::TrackedDeviceClass_Invalid) {
            setError(error, vr::TrackedProp_Success);
            return static_cast<int32_t>(device.deviceClass);
        }
        reportMissing(device, deviceIndex, property, error);
        return 0;
    });
}

uint64_t SimSystem::GetUint64TrackedDeviceProperty(vr::TrackedDeviceIndex_t deviceIndex,
                                                   vr::ETrackedDeviceProperty property,
                                                   vr::ETrackedPropertyError* error) {
    return withDevice(deviceIndex, [&](SimRuntime::State&, const Device& device) {
        reportMissing(device, deviceIndex, property, error);
        return uint64_t{0};
    });
}

vr::HmdMatrix34_t SimSystem::GetMatrix34TrackedDeviceProperty(vr::TrackedDeviceIndex_t deviceIndex,
                                                              vr::ETrackedDeviceProperty property,
                                                              vr::ETrackedPropertyError* error) {
    return withDevice(deviceIndex, [&](SimRuntime::State&, const Device& device) {
        reportMissing(device, deviceIndex, property, error);
        return vr::HmdMatrix34_t{};
    });
}

uint32_t SimSystem::GetStringTrackedDeviceProperty(vr::TrackedDeviceIndex_t deviceIndex,
                                                   vr::ETrackedDeviceProperty property, char* value,
                                                   uint32_t bufferSize, vr::ETrackedPropertyError* error) {
    if (value != nullptr && bufferSize > 0) {
        value[0] = '\0';
    }
    return withDevice(deviceIndex, [&](SimRuntime::State&, const Device& device) -> uint32_t {
        const auto found = device.strings.find(property);
        if (found == device.strings.end() || device.deviceClass == vr::TrackedDeviceClass_Invalid) {
            reportMissing(device, deviceIndex, property, error);
            return 0;
        }
        const uint32_t length = SimRuntime::copyString(found->second, value, bufferSize);
        setError(error, value != nullptr && bufferSize >= length ? vr::TrackedProp_Success
                                                                 : vr::TrackedProp_BufferTooSmall);
        return length;
    });
}

const char* SimSystem::GetPropErrorNameFromEnum(vr::ETrackedPropertyError error) {
    switch (error) {
    case vr::TrackedProp_Success:
        return "TrackedProp_Success";
    case vr::TrackedProp_WrongDataType:
        return "TrackedProp_WrongDataType";
    case vr::TrackedProp_WrongDeviceClass:
        return "TrackedProp_WrongDeviceClass";
    case vr::TrackedProp_BufferTooSmall:
        return "TrackedProp_BufferTooSmall";
    case vr::TrackedProp_UnknownProperty:
        return "TrackedProp_UnknownProperty";
    case vr::TrackedProp_InvalidDevice:
        return "TrackedProp_InvalidDevice";
    case vr::TrackedProp_CouldNotContactServer:
        return "TrackedProp_CouldNotContactServer";
    case vr::TrackedProp_ValueNotProvidedByDevice:
        return "TrackedProp_ValueNotProvidedByDevice";
    case vr::TrackedProp_StringExceedsMaximumLength:
        return "TrackedProp_StringExceedsMaximumLength";
    case vr::TrackedProp_NotYetAvailable:
        return "TrackedProp_NotYetAvailable";
    }
    return "Unknown ETrackedPropertyError";
}

bool SimSystem::PollNextEvent(vr::VREvent_t*, uint32_t) {
    return false;
}

bool SimSystem::PollNextEventWithPose(vr::ETrackingUniverseOrigin, vr::VREvent_t*, uint32_t,
                                      vr::TrackedDevicePose_t*) {
    return false;
}

const char* SimSystem::GetEventTypeNameFromEnum(vr::EVREventType type) {
    return type == vr::VREvent_None ? "VREvent_None" : "Unknown EVREventType";
}

vr::HiddenAreaMesh_t SimSystem::GetHiddenAreaMesh(vr::EVREye, vr::EHiddenAreaMeshType) {
    return {nullptr, 0};
}

bool SimSystem::GetControllerState(vr::TrackedDeviceIndex_t deviceIndex, vr::VRControllerState_t* state,
                                   uint32_t stateSize) {
    // Clients built with another packing pass a larger size; only this platform's record is written.
    if (state == nullptr || stateSize < sizeof(vr::VRControllerState_t)) {
        return false;
    }
    return withDevice(deviceIndex, [&](SimRuntime::State&, const Device& device) {
        if (!SimRuntime::validIndex(deviceIndex) || !device.connected) {
            return false;
        }
        std::memcpy(static_cast<void*>(state), &device.controller, sizeof(vr::VRControllerState_t));
        return true;
    });
}

bool SimSystem::GetControllerStateWithPose(vr::ETrackingUniverseOrigin, vr::TrackedDeviceIndex_t deviceIndex,
                                           vr::VRControllerState_t* state, uint32_t stateSize,
                                           vr::TrackedDevicePose_t* pose) {
    if (!GetControllerState(deviceIndex, state, stateSize)) {
        return false;
    }
    if (pose != nullptr) {
        *pose = withDevice(
            deviceIndex, [](SimRuntime::State&, const Device& device) { return SimRuntime::poseOf(device); });
    }
    return true;
}

void SimSystem::TriggerHapticPulse(vr::TrackedDeviceIndex_t deviceIndex, uint32_t axis,
                                   unsigned short microseconds) {
    SimRuntime::instance().locked([&](SimRuntime::State& state) {
        state.hapticPulses.push_back({deviceIndex, axis, microseconds});
    });
}

const char* SimSystem::GetButtonIdNameFromEnum(vr::EVRButtonId button) {
    switch (static_cast<int32_t>(button)) {
    case 0:
        return "k_EButton_System";
    case 1:
        return "k_EButton_ApplicationMenu";
    case 2:
        return "k_EButton_Grip";
    case 3:
        return "k_EButton_DPad_Left";
    case 4:
        return "k_EButton_DPad_Up";
    case 5:
        return "k_EButton_DPad_Right";
    case 6:
        return "k_EButton_DPad_Down";
    case 7:
        return "k_EButton_A";
    case 31:
        return "k_EButton_ProximitySensor";
    case 32:
        return "k_EButton_Axis0";
    case 33:
        return "k_EButton_Axis1";
    case 34:
        return "k_EButton_Axis2";
    case 35:
        return "k_EButton_Axis3";
    case 36:
        return "k_EButton_Axis4";
    default:
        return "Unknown EVRButtonId";
    }
}

const char* SimSystem::GetControllerAxisTypeNameFromEnum(vr::EVRControllerAxisType axisType) {
    switch (static_cast<int32_t>(axisType)) {
    case 0:
        return "k_eControllerAxis_None";
    case 1:
        return "k_eControllerAxis_TrackPad";
    case 2:
        return "k_eControllerAxis_Joystick";
    case 3:
        return "k_eControllerAxis_Trigger";
    default:
        return "Unknown EVRControllerAxisType";
    }
}

bool SimSystem::CaptureInputFocus() {
    return true;
}

void SimSystem::ReleaseInputFocus() {}

bool SimSystem::IsInputFocusCapturedByAnotherProcess() {
    return false;
}

uint32_t SimSystem::DriverDebugRequest(vr::TrackedDeviceIndex_t, const char*, char* response,
                                       uint32_t responseSize) {
    if (response != nullptr && responseSize > 0) {
        response[0] = '\0';
    }
    return 0;
}

vr::EVRFirmwareError SimSystem::PerformFirmwareUpdate(vr::TrackedDeviceIndex_t) {
    return vr::VRFirmwareError_None;
}

void SimSystem::AcknowledgeQuit_Exiting() {}

void SimSystem::AcknowledgeQuit_UserPrompt() {}

} // namespace SimVR
