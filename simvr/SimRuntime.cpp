#include "simvr/SimRuntime.h"

#include <cstring>

namespace SimVR {

SimRuntime& SimRuntime::instance() {
    static SimRuntime runtime;
    return runtime;
}

SimRuntime::SimRuntime() {
    applyDefaults(state);
}

void SimRuntime::reset() {
    std::lock_guard<std::mutex> lock(mutex);
    const uint32_t token = state.initToken;
    state = State();
    state.initToken = token;
    applyDefaults(state);
}

vr::HmdMatrix34_t SimRuntime::identity() {
    vr::HmdMatrix34_t matrix = {};
    matrix.m[0][0] = 1.0f;
    matrix.m[1][1] = 1.0f;
    matrix.m[2][2] = 1.0f;
    return matrix;
}

vr::TrackedDevicePose_t SimRuntime::poseOf(const Device& device) {
    vr::TrackedDevicePose_t pose = {};
    pose.mDeviceToAbsoluteTracking = device.pose;
    pose.vVelocity = device.velocity;
    pose.vAngularVelocity = device.angularVelocity;
    const bool tracking = device.connected && device.poseValid;
    pose.eTrackingResult = tracking ? vr::TrackingResult_Running_OK : vr::TrackingResult_Uninitialized;
    pose.bPoseIsValid = tracking;
    pose.bDeviceIsConnected = device.connected;
    return pose;
}

uint32_t SimRuntime::copyString(const std::string& text, char* buffer, uint32_t bufferSize) {
    const uint32_t length = static_cast<uint32_t>(text.size()) + 1;
    if (buffer == nullptr || bufferSize == 0) {
        return length;
    }
    if (bufferSize < length) {
        buffer[0] = '\0';
        return length;
    }
    std::memcpy(buffer, text.c_str(), length);
    return length;
}

void SimRuntime::setPosition(Device& device, float x, float y, float z) {
    device.pose.m[0][3] = x;
    device.pose.m[1][3] = y;
    device.pose.m[2][3] = z;
}

void SimRuntime::applyDefaults(State& state) {
    Device& hmd = state.devices[vr::k_unTrackedDeviceIndex_Hmd];
    hmd.deviceClass = vr::TrackedDeviceClass_HMD;
    hmd.connected = true;
    hmd.poseValid = true;
    setPosition(hmd, 0.0f, 1.7f, 0.0f);
    hmd.strings[vr::Prop_TrackingSystemName_String] = "simvr";
    hmd.strings[vr::Prop_ModelNumber_String] = "SimVR Headset";
    hmd.strings[vr::Prop_SerialNumber_String] = "SIMVR-0001";
    hmd.strings[vr::Prop_RenderModelName_String] = "simvr_hmd";

    const float side[2] = {-0.2f, 0.2f};
    for (uint32_t hand = 0; hand < 2; ++hand) {
        Device& controller = state.devices[1 + hand];
        controller.deviceClass = vr::TrackedDeviceClass_Controller;
        controller.role =
            hand == 0 ? vr::TrackedControllerRole_LeftHand : vr::TrackedControllerRole_RightHand;
        controller.connected = true;
        controller.poseValid = true;
        setPosition(controller, side[hand], 1.2f, -0.3f);
        controller.strings[vr::Prop_TrackingSystemName_String] = "simvr";
        controller.strings[vr::Prop_ModelNumber_String] = "SimVR Controller";
        controller.strings[vr::Prop_SerialNumber_String] = hand == 0 ? "SIMVR-L001" : "SIMVR-R001";
        controller.strings[vr::Prop_RenderModelName_String] = "simvr_controller";
    }

    Setting supersample;
    supersample.kind = Setting::Kind::Float;
    supersample.number = 1.0;
    state.settings[{vr::k_pch_SteamVR_Section, vr::k_pch_SteamVR_SupersampleScale_Float}] = supersample;
}

} // namespace SimVR
