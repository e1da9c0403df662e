#pragma once

// The four OpenVR interfaces the project uses, slot for slot. A runtime hands out objects whose virtual
// tables have exactly this shape, so no slot may be removed or reordered, and no virtual destructor is
// declared (it would take a slot).

#include "vr/openvr/OpenVRTypes.h"

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

namespace vr {

// The slot tables keep one line per slot with its number; the formatter would break them apart.
// clang-format off
class IVRSystem {
public:
    virtual void GetRecommendedRenderTargetSize(uint32_t* pnWidth, uint32_t* pnHeight) = 0;                    // 0
    virtual HmdMatrix44_t GetProjectionMatrix(EVREye eEye, float fNearZ, float fFarZ) = 0;                     // 1
    virtual void GetProjectionRaw(EVREye eEye, float* pfLeft, float* pfRight, float* pfTop, float* pfBottom) = 0; // 2
    virtual bool ComputeDistortion(EVREye eEye, float fU, float fV, DistortionCoordinates_t* pDistortionCoordinates) = 0; // 3
    virtual HmdMatrix34_t GetEyeToHeadTransform(EVREye eEye) = 0;                                              // 4
    virtual bool GetTimeSinceLastVsync(float* pfSecondsSinceLastVsync, uint64_t* pulFrameCounter) = 0;         // 5
    virtual int32_t GetD3D9AdapterIndex() = 0;                                                                 // 6
    virtual void GetDXGIOutputInfo(int32_t* pnAdapterIndex) = 0;                                               // 7
    virtual void GetOutputDevice(uint64_t* pnDevice, ETextureType textureType) = 0;                            // 8
    virtual bool IsDisplayOnDesktop() = 0;                                                                     // 9
    virtual bool SetDisplayVisibility(bool bIsVisibleOnDesktop) = 0;                                           // 10
    virtual void GetDeviceToAbsoluteTrackingPose(ETrackingUniverseOrigin eOrigin, float fPredictedSecondsToPhotonsFromNow,
                                                 TrackedDevicePose_t* pTrackedDevicePoseArray,
                                                 uint32_t unTrackedDevicePoseArrayCount) = 0;                  // 11
    virtual void ResetSeatedZeroPose() = 0;                                                                    // 12
    virtual HmdMatrix34_t GetSeatedZeroPoseToStandingAbsoluteTrackingPose() = 0;                               // 13
    virtual HmdMatrix34_t GetRawZeroPoseToStandingAbsoluteTrackingPose() = 0;                                  // 14
    virtual uint32_t GetSortedTrackedDeviceIndicesOfClass(ETrackedDeviceClass eTrackedDeviceClass,
                                                          TrackedDeviceIndex_t* punTrackedDeviceIndexArray,
                                                          uint32_t unTrackedDeviceIndexArrayCount,
                                                          TrackedDeviceIndex_t unRelativeToTrackedDeviceIndex) = 0; // 15
    virtual EDeviceActivityLevel GetTrackedDeviceActivityLevel(TrackedDeviceIndex_t unDeviceId) = 0;           // 16
    virtual void ApplyTransform(TrackedDevicePose_t* pOutputPose, const TrackedDevicePose_t* pTrackedDevicePose,
                                const HmdMatrix34_t* pTransform) = 0;                                          // 17
    virtual TrackedDeviceIndex_t GetTrackedDeviceIndexForControllerRole(ETrackedControllerRole unDeviceType) = 0; // 18
    virtual ETrackedControllerRole GetControllerRoleForTrackedDeviceIndex(TrackedDeviceIndex_t unDeviceIndex) = 0; // 19
    virtual ETrackedDeviceClass GetTrackedDeviceClass(TrackedDeviceIndex_t unDeviceIndex) = 0;                 // 20
    virtual bool IsTrackedDeviceConnected(TrackedDeviceIndex_t unDeviceIndex) = 0;                             // 21
    virtual bool GetBoolTrackedDeviceProperty(TrackedDeviceIndex_t unDeviceIndex, ETrackedDeviceProperty prop,
                                              ETrackedPropertyError* pError) = 0;                              // 22
    virtual float GetFloatTrackedDeviceProperty(TrackedDeviceIndex_t unDeviceIndex, ETrackedDeviceProperty prop,
                                                ETrackedPropertyError* pError) = 0;                            // 23
    virtual int32_t GetInt32TrackedDeviceProperty(TrackedDeviceIndex_t unDeviceIndex, ETrackedDeviceProperty prop,
                                                  ETrackedPropertyError* pError) = 0;                          // 24
    virtual uint64_t GetUint64TrackedDeviceProperty(TrackedDeviceIndex_t unDeviceIndex, ETrackedDeviceProperty prop,
                                                    ETrackedPropertyError* pError) = 0;                        // 25
    virtual HmdMatrix34_t GetMatrix34TrackedDeviceProperty(TrackedDeviceIndex_t unDeviceIndex, ETrackedDeviceProperty prop,
                                                           ETrackedPropertyError* pError) = 0;                 // 26
    virtual uint32_t GetStringTrackedDeviceProperty(TrackedDeviceIndex_t unDeviceIndex, ETrackedDeviceProperty prop,
                                                    char* pchValue, uint32_t unBufferSize,
                                                    ETrackedPropertyError* pError) = 0;                        // 27
    virtual const char* GetPropErrorNameFromEnum(ETrackedPropertyError error) = 0;                             // 28
    virtual bool PollNextEvent(VREvent_t* pEvent, uint32_t uncbVREvent) = 0;                                   // 29
    virtual bool PollNextEventWithPose(ETrackingUniverseOrigin eOrigin, VREvent_t* pEvent, uint32_t uncbVREvent,
                                       TrackedDevicePose_t* pTrackedDevicePose) = 0;                           // 30
    virtual const char* GetEventTypeNameFromEnum(EVREventType eType) = 0;                                      // 31
    virtual HiddenAreaMesh_t GetHiddenAreaMesh(EVREye eEye, EHiddenAreaMeshType type) = 0;                    // 32
    virtual bool GetControllerState(TrackedDeviceIndex_t unControllerDeviceIndex, VRControllerState_t* pControllerState,
                                    uint32_t unControllerStateSize) = 0;                                       // 33
    virtual bool GetControllerStateWithPose(ETrackingUniverseOrigin eOrigin, TrackedDeviceIndex_t unControllerDeviceIndex,
                                            VRControllerState_t* pControllerState, uint32_t unControllerStateSize,
                                            TrackedDevicePose_t* pTrackedDevicePose) = 0;              // 34
    virtual void TriggerHapticPulse(TrackedDeviceIndex_t unControllerDeviceIndex, uint32_t unAxisId,
                                    unsigned short usDurationMicroSec) = 0;                                    // 35
    virtual const char* GetButtonIdNameFromEnum(EVRButtonId eButtonId) = 0;                                    // 36
    virtual const char* GetControllerAxisTypeNameFromEnum(EVRControllerAxisType eAxisType) = 0;                // 37
    virtual bool CaptureInputFocus() = 0;                                                                      // 38
    virtual void ReleaseInputFocus() = 0;                                                                      // 39
    virtual bool IsInputFocusCapturedByAnotherProcess() = 0;                                                   // 40
    virtual uint32_t DriverDebugRequest(TrackedDeviceIndex_t unDeviceIndex, const char* pchRequest, char* pchResponseBuffer,
                                        uint32_t unResponseBufferSize) = 0;                                    // 41
    virtual EVRFirmwareError PerformFirmwareUpdate(TrackedDeviceIndex_t unDeviceIndex) = 0;                    // 42
    virtual void AcknowledgeQuit_Exiting() = 0;                                                                // 43
    virtual void AcknowledgeQuit_UserPrompt() = 0;                                                             // 44
};

class IVRCompositor {
public:
    virtual void SetTrackingSpace(ETrackingUniverseOrigin eOrigin) = 0;                                        // 0
    virtual ETrackingUniverseOrigin GetTrackingSpace() = 0;                                                    // 1
    virtual EVRCompositorError WaitGetPoses(TrackedDevicePose_t* pRenderPoseArray, uint32_t unRenderPoseArrayCount,
                                            TrackedDevicePose_t* pGamePoseArray, uint32_t unGamePoseArrayCount) = 0; // 2
    virtual EVRCompositorError GetLastPoses(TrackedDevicePose_t* pRenderPoseArray, uint32_t unRenderPoseArrayCount,
                                            TrackedDevicePose_t* pGamePoseArray, uint32_t unGamePoseArrayCount) = 0; // 3
    virtual EVRCompositorError GetLastPoseForTrackedDeviceIndex(TrackedDeviceIndex_t unDeviceIndex,
                                                                TrackedDevicePose_t* pOutputPose,
                                                                TrackedDevicePose_t* pOutputGamePose) = 0;     // 4
    virtual EVRCompositorError Submit(EVREye eEye, const Texture_t* pTexture, const VRTextureBounds_t* pBounds,
                                      EVRSubmitFlags nSubmitFlags) = 0;                                        // 5
    virtual void ClearLastSubmittedFrame() = 0;                                                                // 6
    virtual void PostPresentHandoff() = 0;                                                                     // 7
    virtual bool GetFrameTiming(Compositor_FrameTiming* pTiming, uint32_t unFramesAgo) = 0;                    // 8
    virtual uint32_t GetFrameTimings(Compositor_FrameTiming* pTiming, uint32_t nFrames) = 0;                   // 9
    virtual float GetFrameTimeRemaining() = 0;                                                                 // 10
    virtual void GetCumulativeStats(Compositor_CumulativeStats* pStats, uint32_t nStatsSizeInBytes) = 0;       // 11
    virtual void FadeToColor(float fSeconds, float fRed, float fGreen, float fBlue, float fAlpha, bool bBackground) = 0; // 12
    virtual HmdColor_t GetCurrentFadeColor(bool bBackground) = 0;                                              // 13
    virtual void FadeGrid(float fSeconds, bool bFadeIn) = 0;                                                   // 14
    virtual float GetCurrentGridAlpha() = 0;                                                                   // 15
    virtual EVRCompositorError SetSkyboxOverride(const Texture_t* pTextures, uint32_t unTextureCount) = 0;     // 16
    virtual void ClearSkyboxOverride() = 0;                                                                    // 17
    virtual void CompositorBringToFront() = 0;                                                                 // 18
    virtual void CompositorGoToBack() = 0;                                                                     // 19
    virtual void CompositorQuit() = 0;                                                                         // 20
    virtual bool IsFullscreen() = 0;                                                                           // 21
    virtual uint32_t GetCurrentSceneFocusProcess() = 0;                                                        // 22
    virtual uint32_t GetLastFrameRenderer() = 0;                                                               // 23
    virtual bool CanRenderScene() = 0;                                                                         // 24
    virtual void ShowMirrorWindow() = 0;                                                                       // 25
    virtual void HideMirrorWindow() = 0;                                                                       // 26
    virtual bool IsMirrorWindowVisible() = 0;                                                                  // 27
    virtual void CompositorDumpImages() = 0;                                                                   // 28
    virtual bool ShouldAppRenderWithLowResources() = 0;                                                        // 29
    virtual void ForceInterleavedReprojectionOn(bool bOverride) = 0;                                           // 30
    virtual void ForceReconnectProcess() = 0;                                                                  // 31
    virtual void SuspendRendering(bool bSuspend) = 0;                                                          // 32
    virtual EVRCompositorError GetMirrorTextureD3D11(EVREye eEye, void* pD3D11DeviceOrResource,
                                                     void** ppD3D11ShaderResourceView) = 0;                    // 33
    virtual void ReleaseMirrorTextureD3D11(void* pD3D11ShaderResourceView) = 0;                                // 34
    virtual EVRCompositorError GetMirrorTextureGL(EVREye eEye, glUInt_t* pglTextureId,
                                                  glSharedTextureHandle_t* pglSharedTextureHandle) = 0;        // 35
    virtual bool ReleaseSharedGLTexture(glUInt_t glTextureId, glSharedTextureHandle_t glSharedTextureHandle) = 0; // 36
    virtual void LockGLSharedTextureForAccess(glSharedTextureHandle_t glSharedTextureHandle) = 0;              // 37
    virtual void UnlockGLSharedTextureForAccess(glSharedTextureHandle_t glSharedTextureHandle) = 0;            // 38
    virtual uint32_t GetVulkanInstanceExtensionsRequired(char* pchValue, uint32_t unBufferSize) = 0;           // 39
    virtual uint32_t GetVulkanDeviceExtensionsRequired(VkPhysicalDevice_T* pPhysicalDevice, char* pchValue,
                                                       uint32_t unBufferSize) = 0;                             // 40
};

class IVRRenderModels {
public:
    virtual EVRRenderModelError LoadRenderModel_Async(const char* pchRenderModelName, RenderModel_t** ppRenderModel) = 0; // 0
    virtual void FreeRenderModel(RenderModel_t* pRenderModel) = 0;                                             // 1
    virtual EVRRenderModelError LoadTexture_Async(TextureID_t textureId, RenderModel_TextureMap_t** ppTexture) = 0; // 2
    virtual void FreeTexture(RenderModel_TextureMap_t* pTexture) = 0;                                          // 3
    virtual EVRRenderModelError LoadTextureD3D11_Async(TextureID_t textureId, void* pD3D11Device, void** ppD3D11Texture2D) = 0; // 4
    virtual EVRRenderModelError LoadIntoTextureD3D11_Async(TextureID_t textureId, void* pDstTexture) = 0;     // 5
    virtual void FreeTextureD3D11(void* pD3D11Texture2D) = 0;                                                  // 6
    virtual uint32_t GetRenderModelName(uint32_t unRenderModelIndex, char* pchRenderModelName,
                                        uint32_t unRenderModelNameLen) = 0;                                    // 7
    virtual uint32_t GetRenderModelCount() = 0;                                                                // 8
    virtual uint32_t GetComponentCount(const char* pchRenderModelName) = 0;                                    // 9
    virtual uint32_t GetComponentName(const char* pchRenderModelName, uint32_t unComponentIndex, char* pchComponentName,
                                      uint32_t unComponentNameLen) = 0;                                        // 10
    virtual uint64_t GetComponentButtonMask(const char* pchRenderModelName, const char* pchComponentName) = 0; // 11
    virtual uint32_t GetComponentRenderModelName(const char* pchRenderModelName, const char* pchComponentName,
                                                 char* pchComponentRenderModelName,
                                                 uint32_t unComponentRenderModelNameLen) = 0;                  // 12
    virtual bool GetComponentState(const char* pchRenderModelName, const char* pchComponentName,
                                   const VRControllerState_t* pControllerState,
                                   const RenderModel_ControllerMode_State_t* pState,
                                   RenderModel_ComponentState_t* pComponentState) = 0;                         // 13
    virtual bool RenderModelHasComponent(const char* pchRenderModelName, const char* pchComponentName) = 0;   // 14
    virtual uint32_t GetRenderModelThumbnailURL(const char* pchRenderModelName, char* pchThumbnailURL,
                                                uint32_t unThumbnailURLLen, EVRRenderModelError* peError) = 0; // 15
    virtual uint32_t GetRenderModelOriginalPath(const char* pchRenderModelName, char* pchOriginalPath,
                                                uint32_t unOriginalPathLen, EVRRenderModelError* peError) = 0; // 16
    virtual const char* GetRenderModelErrorNameFromEnum(EVRRenderModelError error) = 0;                        // 17
};

class IVRSettings {
public:
    virtual const char* GetSettingsErrorNameFromEnum(EVRSettingsError eError) = 0;                             // 0
    virtual bool Sync(bool bForce, EVRSettingsError* peError) = 0;                                             // 1
    virtual void SetBool(const char* pchSection, const char* pchSettingsKey, bool bValue, EVRSettingsError* peError) = 0; // 2
    virtual void SetInt32(const char* pchSection, const char* pchSettingsKey, int32_t nValue, EVRSettingsError* peError) = 0; // 3
    virtual void SetFloat(const char* pchSection, const char* pchSettingsKey, float flValue, EVRSettingsError* peError) = 0; // 4
    virtual void SetString(const char* pchSection, const char* pchSettingsKey, const char* pchValue,
                           EVRSettingsError* peError) = 0;                                                     // 5
    virtual bool GetBool(const char* pchSection, const char* pchSettingsKey, EVRSettingsError* peError) = 0;  // 6
    virtual int32_t GetInt32(const char* pchSection, const char* pchSettingsKey, EVRSettingsError* peError) = 0; // 7
    virtual float GetFloat(const char* pchSection, const char* pchSettingsKey, EVRSettingsError* peError) = 0; // 8
    virtual void GetString(const char* pchSection, const char* pchSettingsKey, char* pchValue, uint32_t unValueLen,
                           EVRSettingsError* peError) = 0;                                                     // 9
    virtual void RemoveSection(const char* pchSection, EVRSettingsError* peError) = 0;                         // 10
    virtual void RemoveKeyInSection(const char* pchSection, const char* pchSettingsKey, EVRSettingsError* peError) = 0; // 11
};

// The C entry points of the OpenVR API library, resolved by name at run time.
extern "C" {
typedef uint32_t (*PFN_VR_InitInternal)(EVRInitError* peError, EVRApplicationType eType);
typedef void (*PFN_VR_ShutdownInternal)();
typedef bool (*PFN_VR_IsHmdPresent)();
typedef bool (*PFN_VR_IsRuntimeInstalled)();
typedef const char* (*PFN_VR_RuntimePath)();
typedef const char* (*PFN_VR_GetVRInitErrorAsSymbol)(EVRInitError error);
typedef const char* (*PFN_VR_GetVRInitErrorAsEnglishDescription)(EVRInitError error);
typedef void* (*PFN_VR_GetGenericInterface)(const char* pchInterfaceVersion, EVRInitError* peError);
typedef bool (*PFN_VR_IsInterfaceVersionValid)(const char* pchInterfaceVersion);
typedef uint32_t (*PFN_VR_GetInitToken)();
}

} // namespace vr

#if defined(__GNUC__)
// clang-format on
#pragma GCC diagnostic pop
#endif
