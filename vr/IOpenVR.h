#pragma once

#include <string>

#include "common/Mat4d.h"
#include "vr/VRGlobals.h"
#include "vr/openvr/OpenVRTypes.h"

namespace VR {
class VrModelRenderer;
}

// Everything the viewer asks of the OpenVR runtime. The renderer and the input code see only this
// interface, never an OpenVR interface pointer. Shared through std::shared_ptr<IOpenVR>; render thread
// only. The slot order is fixed; there is deliberately no virtual destructor (owners hold the concrete
// type's deleter through make_shared).
class IOpenVR {
public:
    // clang-format off
    virtual bool isVive() = 0;                                                                    // 0
    virtual bool isOculus() = 0;                                                                  // 1
    virtual void submit(vr::EVREye eye, unsigned textureId) = 0;                                  // 2
    virtual void postPresentHandoff() = 0;                                                        // 3
    virtual void shutdown() = 0;                                                                  // 4
    virtual vr::VRControllerState_t* getControllerState(vr::VRControllerState_t* out, unsigned deviceIndex) = 0; // 5
    virtual vr::ETrackedControllerRole updateControllerRole(unsigned deviceIndex) = 0;            // 6
    virtual void triggerHapticPulse(unsigned deviceIndex, unsigned short microseconds) = 0;       // 7
    virtual bool getDevicePose(unsigned deviceIndex, vr::TrackedDevicePose_t* out) = 0;           // 8
    virtual VR::VrModelRenderer* getControllerModel(bool left) = 0;                               // 9
    virtual VR::VRGlobals::ErrorCodes init(unsigned* width, unsigned* height, vr::EVRInitError* error,
                                           float* scale) = 0;                                     // 10
    virtual void updatePoses(float nearZ, float farZ, Ko_1_1::Mat4d<float>* headPose,
                             Ko_1_1::Mat4d<float>* leftEyeToHead, Ko_1_1::Mat4d<float>* rightEyeToHead,
                             Ko_1_1::Mat4d<float>* leftProjection, Ko_1_1::Mat4d<float>* rightProjection,
                             float* headAngularVelocity) = 0;                                     // 11
    virtual std::string getTrackedDeviceString(unsigned deviceIndex, vr::ETrackedDeviceProperty property,
                                               vr::ETrackedPropertyError* error) = 0;             // 12
    virtual std::string getTrackedDeviceStringAgain(unsigned deviceIndex, vr::ETrackedDeviceProperty property,
                                                    vr::ETrackedPropertyError* error) = 0;        // 13
    virtual VR::VrModelRenderer* loadRenderModel(const char* name) = 0;                           // 14
    virtual bool loadDeviceModel(unsigned deviceIndex) = 0;                                       // 15
    // clang-format on

protected:
    IOpenVR() = default;
    IOpenVR(const IOpenVR&) = default;
    IOpenVR& operator=(const IOpenVR&) = default;
    ~IOpenVR() = default;
};
