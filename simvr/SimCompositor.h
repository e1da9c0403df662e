#pragma once

#include <cstdint>
#include <vector>

#include "vr/openvr/OpenVRInterfaces.h"

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

namespace SimVR {

// The simulated runtime's IVRCompositor: paces WaitGetPoses to the display frequency, hands out the device
// poses, and keeps the pixels of each submitted eye texture (read back with GL on the submitting thread,
// whose context must be current). One static instance handed out by VR_GetGenericInterface.
class SimCompositor final : public vr::IVRCompositor {
public:
    void SetTrackingSpace(vr::ETrackingUniverseOrigin origin) override;
    vr::ETrackingUniverseOrigin GetTrackingSpace() override;
    vr::EVRCompositorError WaitGetPoses(vr::TrackedDevicePose_t* renderPoses, uint32_t renderPoseCount,
                                        vr::TrackedDevicePose_t* gamePoses, uint32_t gamePoseCount) override;
    vr::EVRCompositorError GetLastPoses(vr::TrackedDevicePose_t* renderPoses, uint32_t renderPoseCount,
                                        vr::TrackedDevicePose_t* gamePoses, uint32_t gamePoseCount) override;
    vr::EVRCompositorError GetLastPoseForTrackedDeviceIndex(vr::TrackedDeviceIndex_t deviceIndex,
                                                            vr::TrackedDevicePose_t* outputPose,
                                                            vr::TrackedDevicePose_t* outputGamePose) override;
    vr::EVRCompositorError Submit(vr::EVREye eye, const vr::Texture_t* texture,
                                  const vr::VRTextureBounds_t* bounds, vr::EVRSubmitFlags flags) override;
    void ClearLastSubmittedFrame() override;
    void PostPresentHandoff() override;
    bool GetFrameTiming(vr::Compositor_FrameTiming* timing, uint32_t framesAgo) override;
    uint32_t GetFrameTimings(vr::Compositor_FrameTiming* timing, uint32_t frameCount) override;
    float GetFrameTimeRemaining() override;
    void GetCumulativeStats(vr::Compositor_CumulativeStats* stats, uint32_t statsSize) override;
    void FadeToColor(float seconds, float red, float green, float blue, float alpha,
                     bool background) override;
    vr::HmdColor_t GetCurrentFadeColor(bool background) override;
    void FadeGrid(float seconds, bool fadeIn) override;
    float GetCurrentGridAlpha() override;
    vr::EVRCompositorError SetSkyboxOverride(const vr::Texture_t* textures, uint32_t textureCount) override;
    void ClearSkyboxOverride() override;
    void CompositorBringToFront() override;
    void CompositorGoToBack() override;
    void CompositorQuit() override;
    bool IsFullscreen() override;
    uint32_t GetCurrentSceneFocusProcess() override;
    uint32_t GetLastFrameRenderer() override;
    bool CanRenderScene() override;
    void ShowMirrorWindow() override;
    void HideMirrorWindow() override;
    bool IsMirrorWindowVisible() override;
    void CompositorDumpImages() override;
    bool ShouldAppRenderWithLowResources() override;
    void ForceInterleavedReprojectionOn(bool enabled) override;
    void ForceReconnectProcess() override;
    void SuspendRendering(bool suspend) override;
    vr::EVRCompositorError GetMirrorTextureD3D11(vr::EVREye eye, void* d3d11Device,
                                                 void** d3d11View) override;
    void ReleaseMirrorTextureD3D11(void* d3d11View) override;
    vr::EVRCompositorError GetMirrorTextureGL(vr::EVREye eye, vr::glUInt_t* textureId,
                                              vr::glSharedTextureHandle_t* sharedHandle) override;
    bool ReleaseSharedGLTexture(vr::glUInt_t textureId, vr::glSharedTextureHandle_t sharedHandle) override;
    void LockGLSharedTextureForAccess(vr::glSharedTextureHandle_t sharedHandle) override;
    void UnlockGLSharedTextureForAccess(vr::glSharedTextureHandle_t sharedHandle) override;
    uint32_t GetVulkanInstanceExtensionsRequired(char* value, uint32_t bufferSize) override;
    uint32_t GetVulkanDeviceExtensionsRequired(vr::VkPhysicalDevice_T* physicalDevice, char* value,
                                               uint32_t bufferSize) override;

private:
    // Reads the size of the texture's level 0 and, when `capture` is set, its pixels as RGBA bytes; false
    // when the name is not a 2D texture with storage. Restores the texture binding and pixel-pack state.
    static bool readTexture(uint32_t texture, bool capture, uint32_t& width, uint32_t& height,
                            std::vector<uint8_t>& rgba);
    // Sleeps until the next frame boundary of the display frequency, counted from the session's start.
    static void waitForFrameBoundary();
};

} // namespace SimVR

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
