#pragma once

#include "vr/openvr/OpenVRInterfaces.h"

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

namespace SimVR {

// The simulated runtime's IVRSystem: the headset's display (size, projection, eye offsets), device classes,
// roles, properties and poses, controller state and haptics, all read from SimRuntime. One static instance
// handed out by VR_GetGenericInterface; callable from any thread.
class SimSystem final : public vr::IVRSystem {
public:
    void GetRecommendedRenderTargetSize(uint32_t* width, uint32_t* height) override;
    vr::HmdMatrix44_t GetProjectionMatrix(vr::EVREye eye, float nearZ, float farZ) override;
    void GetProjectionRaw(vr::EVREye eye, float* left, float* right, float* top, float* bottom) override;
    bool ComputeDistortion(vr::EVREye eye, float u, float v,
                           vr::DistortionCoordinates_t* coordinates) override;
    vr::HmdMatrix34_t GetEyeToHeadTransform(vr::EVREye eye) override;
    bool GetTimeSinceLastVsync(float* secondsSinceLastVsync, uint64_t* frameCounter) override;
    int32_t GetD3D9AdapterIndex() override;
    void GetDXGIOutputInfo(int32_t* adapterIndex) override;
    void GetOutputDevice(uint64_t* device, vr::ETextureType textureType) override;
    bool IsDisplayOnDesktop() override;
    bool SetDisplayVisibility(bool visibleOnDesktop) override;
    void GetDeviceToAbsoluteTrackingPose(vr::ETrackingUniverseOrigin origin, float predictedSeconds,
                                         vr::TrackedDevicePose_t* poses, uint32_t poseCount) override;
    void ResetSeatedZeroPose() override;
    vr::HmdMatrix34_t GetSeatedZeroPoseToStandingAbsoluteTrackingPose() override;
    vr::HmdMatrix34_t GetRawZeroPoseToStandingAbsoluteTrackingPose() override;
    uint32_t GetSortedTrackedDeviceIndicesOfClass(vr::ETrackedDeviceClass deviceClass,
                                                  vr::TrackedDeviceIndex_t* indices, uint32_t indexCount,
                                                  vr::TrackedDeviceIndex_t relativeTo) override;
    vr::EDeviceActivityLevel GetTrackedDeviceActivityLevel(vr::TrackedDeviceIndex_t deviceIndex) override;
    void ApplyTransform(vr::TrackedDevicePose_t* outputPose, const vr::TrackedDevicePose_t* pose,
                        const vr::HmdMatrix34_t* transform) override;
    vr::TrackedDeviceIndex_t GetTrackedDeviceIndexForControllerRole(vr::ETrackedControllerRole role) override;
    vr::ETrackedControllerRole
    GetControllerRoleForTrackedDeviceIndex(vr::TrackedDeviceIndex_t deviceIndex) override;
    vr::ETrackedDeviceClass GetTrackedDeviceClass(vr::TrackedDeviceIndex_t deviceIndex) override;
    bool IsTrackedDeviceConnected(vr::TrackedDeviceIndex_t deviceIndex) override;
    bool GetBoolTrackedDeviceProperty(vr::TrackedDeviceIndex_t deviceIndex,
                                      vr::ETrackedDeviceProperty property,
                                      vr::ETrackedPropertyError* error) override;
    float GetFloatTrackedDeviceProperty(vr::TrackedDeviceIndex_t deviceIndex,
                                        vr::ETrackedDeviceProperty property,
                                        vr::ETrackedPropertyError* error) override;
    int32_t GetInt32TrackedDeviceProperty(vr::TrackedDeviceIndex_t deviceIndex,
                                          vr::ETrackedDeviceProperty property,
                                          vr::ETrackedPropertyError* error) override;
    uint64_t GetUint64TrackedDeviceProperty(vr::TrackedDeviceIndex_t deviceIndex,
                                            vr::ETrackedDeviceProperty property,
                                            vr::ETrackedPropertyError* error) override;
    vr::HmdMatrix34_t GetMatrix34TrackedDeviceProperty(vr::TrackedDeviceIndex_t deviceIndex,
                                                       vr::ETrackedDeviceProperty property,
                                                       vr::ETrackedPropertyError* error) override;
    uint32_t GetStringTrackedDeviceProperty(vr::TrackedDeviceIndex_t deviceIndex,
                                            vr::ETrackedDeviceProperty property, char* value,
                                            uint32_t bufferSize, vr::ETrackedPropertyError* error) override;
    const char* GetPropErrorNameFromEnum(vr::ETrackedPropertyError error) override;
    bool PollNextEvent(vr::VREvent_t* event, uint32_t eventSize) override;
    bool PollNextEventWithPose(vr::ETrackingUniverseOrigin origin, vr::VREvent_t* event, uint32_t eventSize,
                               vr::TrackedDevicePose_t* pose) override;
    const char* GetEventTypeNameFromEnum(vr::EVREventType type) override;
    vr::HiddenAreaMesh_t GetHiddenAreaMesh(vr::EVREye eye, vr::EHiddenAreaMeshType type) override;
    bool GetControllerState(vr::TrackedDeviceIndex_t deviceIndex, vr::VRControllerState_t* state,
                            uint32_t stateSize) override;
    bool GetControllerStateWithPose(vr::ETrackingUniverseOrigin origin, vr::TrackedDeviceIndex_t deviceIndex,
                                    vr::VRControllerState_t* state, uint32_t stateSize,
                                    vr::TrackedDevicePose_t* pose) override;
    void TriggerHapticPulse(vr::TrackedDeviceIndex_t deviceIndex, uint32_t axis,
                            unsigned short microseconds) override;
    const char* GetButtonIdNameFromEnum(vr::EVRButtonId button) override;
    const char* GetControllerAxisTypeNameFromEnum(vr::EVRControllerAxisType axisType) override;
    bool CaptureInputFocus() override;
    void ReleaseInputFocus() override;
    bool IsInputFocusCapturedByAnotherProcess() override;
    uint32_t DriverDebugRequest(vr::TrackedDeviceIndex_t deviceIndex, const char* request, char* response,
                                uint32_t responseSize) override;
    vr::EVRFirmwareError PerformFirmwareUpdate(vr::TrackedDeviceIndex_t deviceIndex) override;
    void AcknowledgeQuit_Exiting() override;
    void AcknowledgeQuit_UserPrompt() override;
};

} // namespace SimVR

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
