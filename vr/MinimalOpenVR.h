#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vr/IOpenVR.h"
#include "vr/OpenVRLibrary.h"
#include "vr/VrModelRenderer.h"

// The one implementation of IOpenVR: starts and stops the OpenVR runtime through the OpenVR API library
// loaded at run time, keeps the poses of the current frame, knows which device is which hand, and
// caches controller render models. Failures come back as results and log lines, never as exceptions.
// Made through std::make_shared and shared by the manager and the renderer; render thread only. Models
// are GL objects of the run's context: shutdown releases them while it is current.
class MinimalOpenVR final : public IOpenVR {
public:
    MinimalOpenVR();
    ~MinimalOpenVR();
    MinimalOpenVR(const MinimalOpenVR&) = delete;
    MinimalOpenVR& operator=(const MinimalOpenVR&) = delete;

    bool isVive() override;
    bool isOculus() override;
    void submit(vr::EVREye eye, unsigned textureId) override;
    void postPresentHandoff() override;
    void shutdown() override;
    vr::VRControllerState_t* getControllerState(vr::VRControllerState_t* out, unsigned deviceIndex) override;
    vr::ETrackedControllerRole updateControllerRole(unsigned deviceIndex) override;
    void triggerHapticPulse(unsigned deviceIndex, unsigned short microseconds) override;
    bool getDevicePose(unsigned deviceIndex, vr::TrackedDevicePose_t* out) override;
    VR::VrModelRenderer* getControllerModel(bool left) override;
    VR::VRGlobals::ErrorCodes init(unsigned* width, unsigned* height, vr::EVRInitError* error,
                                   float* scale) override;
    void updatePoses(float nearZ, float farZ, Ko_1_1::Mat4d<float>* headPose,
                     Ko_1_1::Mat4d<float>* leftEyeToHead, Ko_1_1::Mat4d<float>* rightEyeToHead,
                     Ko_1_1::Mat4d<float>* leftProjection, Ko_1_1::Mat4d<float>* rightProjection,
                     float* headAngularVelocity) override;
    std::string getTrackedDeviceString(unsigned deviceIndex, vr::ETrackedDeviceProperty property,
                                       vr::ETrackedPropertyError* error) override;
    std::string getTrackedDeviceStringAgain(unsigned deviceIndex, vr::ETrackedDeviceProperty property,
                                            vr::ETrackedPropertyError* error) override;
    VR::VrModelRenderer* loadRenderModel(const char* name) override;
    bool loadDeviceModel(unsigned deviceIndex) override;

    // The number of tracked devices this layer keeps poses and models for; index 0 is the headset.
    static constexpr unsigned DEVICE_COUNT = vr::k_unMaxTrackedDeviceCount;
    static constexpr unsigned NO_DEVICE = vr::k_unTrackedDeviceIndexInvalid;

    unsigned getLeftControllerIndex() const { return leftControllerIndex; }
    unsigned getRightControllerIndex() const { return rightControllerIndex; }
    const std::string& getModelNumber() const { return modelNumber; }

private:
    bool isController(unsigned deviceIndex);
    void releaseModels();

    std::vector<std::unique_ptr<VR::VrModelRenderer>> renderModelCache;
    vr::IVRSystem* system = nullptr;
    VR::VrModelRenderer* deviceModels[DEVICE_COUNT] = {};
    // A device whose model could not be had is not asked again every frame.
    bool deviceModelTried[DEVICE_COUNT] = {};
    vr::TrackedDevicePose_t poses[DEVICE_COUNT] = {};
    unsigned leftControllerIndex = NO_DEVICE;
    unsigned rightControllerIndex = NO_DEVICE;
    std::string modelNumber;
    // Render-model names that failed to load or build during this session.
    std::vector<std::string> failedModels;
    VR::OpenVRLibrary library;
};
