#include "vr/MinimalOpenVR.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <exception>
#include <thread>

#include "platform/Log.h"
#include "platform/Utf.h"

namespace {

// OpenVR writes matrices row by row; Mat4d keeps element (row, column) at index 4 * column + row.
Ko_1_1::Mat4d<float> toMat4(const vr::HmdMatrix34_t& matrix) {
    Ko_1_1::Mat4d<float> result;
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 4; ++column) {
            result.at(row, column) = matrix.m[row][column];
        }
    }
    result.at(3, 0) = 0.0f;
    result.at(3, 1) = 0.0f;
    result.at(3, 2) = 0.0f;
    result.at(3, 3) = 1.0f;
    return result;
}

Ko_1_1::Mat4d<float> toMat4(const vr::HmdMatrix44_t& matrix) {
    Ko_1_1::Mat4d<float> result;
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column) {
            result.at(row, column) = matrix.m[row][column];
        }
    }
    return result;
}

std::wstring wide(const char* text) {
    return VR::utf8ToWide(text != nullptr ? text : "");
}

// The runtime loads models and textures in the background and answers "loading" until they are ready.
template <typename Load> vr::EVRRenderModelError pollUntilLoaded(Load load) {
    vr::EVRRenderModelError result;
    while ((result = load()) == vr::VRRenderModelError_Loading) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return result;
}

constexpr int INIT_ATTEMPTS = 10;

} // namespace

MinimalOpenVR::MinimalOpenVR() = default;

MinimalOpenVR::~MinimalOpenVR() {
    // Normally shutdown released the models already. An owner that never shut down must destroy this with
    // the models' GL context current; the library member then ends the session before closing the library.
    releaseModels();
}

void MinimalOpenVR::releaseModels() {
    for (bool& tried : deviceModelTried) {
        tried = false;
    }
    for (VR::VrModelRenderer*& model : deviceModels) {
        model = nullptr;
    }
    renderModelCache.clear();
    failedModels.clear();
}

bool MinimalOpenVR::isVive() {
    return modelNumber.find("Vive") != std::string::npos;
}

bool MinimalOpenVR::isOculus() {
    return modelNumber.find("Oculus") != std::string::npos;
}

void MinimalOpenVR::submit(vr::EVREye eye, unsigned textureId) {
    if (system == nullptr) {
        return;
    }
    vr::IVRCompositor* compositor = library.compositor();
    if (compositor == nullptr) {
        return;
    }
    const vr::Texture_t texture = {reinterpret_cast<void*>(static_cast<std::uintptr_t>(textureId)),
                                   vr::TextureType_OpenGL, vr::ColorSpace_Gamma};
    compositor->Submit(eye, &texture, nullptr, vr::Submit_Default);
}

void MinimalOpenVR::postPresentHandoff() {
    if (system == nullptr) {
        return;
    }
    if (vr::IVRCompositor* compositor = library.compositor()) {
        compositor->PostPresentHandoff();
    }
}

void MinimalOpenVR::shutdown() {
    if (system != nullptr) {
        // The models are GL objects of the run's context, which is current now and gone soon after: they
        // go with the session, never later under whatever context is current then.
        releaseModels();
        library.shutdown();
        // The system interface died with the session: a later init starts a new one instead of calling
        // into the old, and everything that needs the system stays inert until then.
        system = nullptr;
    }
}

vr::VRControllerState_t* MinimalOpenVR::getControllerState(vr::VRControllerState_t* out,
                                                           unsigned deviceIndex) {
    if (system != nullptr) {
        // The structure's size differs between platforms; the runtime reads the layout from it.
        system->GetControllerState(deviceIndex, out, sizeof(vr::VRControllerState_t));
    }
    return out;
}

vr::ETrackedControllerRole MinimalOpenVR::updateControllerRole(unsigned deviceIndex) {
    if (system == nullptr) {
        return vr::TrackedControllerRole_Invalid;
    }
    const vr::ETrackedControllerRole role = system->GetControllerRoleForTrackedDeviceIndex(deviceIndex);
    if (role == vr::TrackedControllerRole_LeftHand) {
        leftControllerIndex = deviceIndex;
    } else if (role == vr::TrackedControllerRole_RightHand) {
        rightControllerIndex = deviceIndex;
    }
    return role;
}

void MinimalOpenVR::triggerHapticPulse(unsigned deviceIndex, unsigned short microseconds) {
    if (system != nullptr) {
        system->TriggerHapticPulse(deviceIndex, 0, microseconds);
    }
}

bool MinimalOpenVR::isController(unsigned deviceIndex) {
    return system != nullptr && deviceIndex < DEVICE_COUNT &&
           system->GetTrackedDeviceClass(deviceIndex) == vr::TrackedDeviceClass_Controller;
}

bool MinimalOpenVR::getDevicePose(unsigned deviceIndex, vr::TrackedDevicePose_t* out) {
    if (!isController(deviceIndex) || !system->IsTrackedDeviceConnected(deviceIndex)) {
        return false;
    }
    *out = poses[deviceIndex];
    return out->bPoseIsValid;
}

VR::VrModelRenderer* MinimalOpenVR::getControllerModel(bool left) {
    const unsigned index = left ? leftControllerIndex : rightControllerIndex;
    if (index == NO_DEVICE || !isController(index)) {
        return nullptr;
    }
    if (deviceModels[index] == nullptr && !deviceModelTried[index]) {
        deviceModelTried[index] = true;
        loadDeviceModel(index);
    }
    return deviceModels[index];
}

VR::VRGlobals::ErrorCodes MinimalOpenVR::init(unsigned* width, unsigned* height, vr::EVRInitError* error,
                                              float* scale) {
    *error = vr::VRInitError_None;
    if (!library.load()) {
        VR::logLine(L"OpenVR runtime not found: %hs\n", library.loadError().c_str());
        return VR::VRGlobals::RuntimeNotInstalled;
    }
    if (!library.isRuntimeInstalled()) {
        return VR::VRGlobals::RuntimeNotInstalled;
    }
    if (!library.isHmdPresent()) {
        return VR::VRGlobals::HmdNotPresent;
    }

    // The runtime may still be starting up (server launching, headset waking), so most failures are
    // worth a few more tries; a missing installation never fixes itself.
    for (int attempt = 1; system == nullptr && attempt <= INIT_ATTEMPTS; ++attempt) {
        system = library.initScene(error);
        if (*error == vr::VRInitError_Init_InstallationNotFound ||
            *error == vr::VRInitError_Init_PathRegistryNotFound) {
            return VR::VRGlobals::RuntimeNotInstalled;
        }
        if (*error == vr::VRInitError_None) {
            break;
        }
        if (attempt < INIT_ATTEMPTS) {
            std::this_thread::sleep_until(std::chrono::steady_clock::now() + std::chrono::seconds(1));
        }
    }
    if (system == nullptr && *error == vr::VRInitError_None) {
        // Started, yet no system interface came back: nothing below could work.
        *error = vr::VRInitError_Unknown;
    }
    if (*error != vr::VRInitError_None) {
        VR::logLine(L"VR Initialization Error: %s", wide(library.initErrorDescription(*error)).c_str());
        return VR::VRGlobals::InitializationError;
    }

    const std::string trackingSystem =
        getTrackedDeviceString(vr::k_unTrackedDeviceIndex_Hmd, vr::Prop_TrackingSystemName_String, nullptr);
    modelNumber =
        getTrackedDeviceString(vr::k_unTrackedDeviceIndex_Hmd, vr::Prop_ModelNumber_String, nullptr);
    const std::string serialNumber =
        getTrackedDeviceString(vr::k_unTrackedDeviceIndex_Hmd, vr::Prop_SerialNumber_String, nullptr);
    const float frequency = system->GetFloatTrackedDeviceProperty(vr::k_unTrackedDeviceIndex_Hmd,
                                                                  vr::Prop_DisplayFrequency_Float, nullptr);
    system->GetRecommendedRenderTargetSize(width, height);
    VR::logLine(L"HMD: %hs '%hs' #%hs (%d x %d @ %g Hz)\n", trackingSystem.c_str(), modelNumber.c_str(),
                serialNumber.c_str(), static_cast<int>(*width), static_cast<int>(*height),
                static_cast<double>(frequency));

    // Without a compositor nothing reaches the headset, but the desktop mirror still works, so the run
    // goes on and the failure is only logged.
    if (library.compositor() == nullptr) {
        VR::logLine(L"OpenVR Compositor initialization failed.");
        library.shutdown();
        // Nothing may call into the ended session, the settings included.
        system = nullptr;
        *scale = 1.0f;
        return VR::VRGlobals::NoError;
    }

    *scale = 1.0f;
    if (library.isInterfaceVersionValid(vr::IVRSettings_Version)) {
        vr::EVRInitError settingsError = vr::VRInitError_None;
        vr::IVRSettings* settings = library.settings(&settingsError);
        if (settings != nullptr && settingsError == vr::VRInitError_None) {
            // The setting scales the pixel count; each side of the render target grows by its root.
            // A missing or nonsensical setting reads as 0 or less; the render target then keeps its size
            // instead of collapsing to nothing.
            const float setting = settings->GetFloat(vr::k_pch_SteamVR_Section,
                                                     vr::k_pch_SteamVR_SupersampleScale_Float, nullptr);
            if (setting > 0.0f && std::isfinite(setting)) {
                *scale = std::sqrt(setting);
            }
        }
    }
    return VR::VRGlobals::NoError;
}

void MinimalOpenVR::updatePoses(float nearZ, float farZ, Ko_1_1::Mat4d<float>* headPose,
                                Ko_1_1::Mat4d<float>* leftEyeToHead, Ko_1_1::Mat4d<float>* rightEyeToHead,
                                Ko_1_1::Mat4d<float>* leftProjection, Ko_1_1::Mat4d<float>* rightProjection,
                                float* headAngularVelocity) {
    if (system == nullptr) {
        return;
    }
    vr::IVRCompositor* compositor = library.compositor();
    if (compositor == nullptr) {
        return;
    }
    compositor->WaitGetPoses(poses, DEVICE_COUNT, nullptr, 0);

    const vr::TrackedDevicePose_t& head = poses[vr::k_unTrackedDeviceIndex_Hmd];
    for (int i = 0; i < 3; ++i) {
        headAngularVelocity[i] = head.vAngularVelocity.v[i];
    }
    *leftEyeToHead = toMat4(system->GetEyeToHeadTransform(vr::Eye_Left));
    *rightEyeToHead = toMat4(system->GetEyeToHeadTransform(vr::Eye_Right));
    *headPose = toMat4(head.mDeviceToAbsoluteTracking);
    *leftProjection = toMat4(system->GetProjectionMatrix(vr::Eye_Left, nearZ, farZ));
    *rightProjection = toMat4(system->GetProjectionMatrix(vr::Eye_Right, nearZ, farZ));
}

std::string MinimalOpenVR::getTrackedDeviceString(unsigned deviceIndex, vr::ETrackedDeviceProperty property,
                                                  vr::ETrackedPropertyError* error) {
    if (system == nullptr) {
        return {};
    }
    const std::uint32_t length =
        system->GetStringTrackedDeviceProperty(deviceIndex, property, nullptr, 0, error);
    if (length == 0) {
        return {};
    }
    std::vector<char> buffer(length, '\0');
    system->GetStringTrackedDeviceProperty(deviceIndex, property, buffer.data(), length, error);
    buffer.back() = '\0';
    return std::string(buffer.data());
}

std::string MinimalOpenVR::getTrackedDeviceStringAgain(unsigned deviceIndex,
                                                       vr::ETrackedDeviceProperty property,
                                                       vr::ETrackedPropertyError* error) {
    return getTrackedDeviceString(deviceIndex, property, error);
}

VR::VrModelRenderer* MinimalOpenVR::loadRenderModel(const char* name) {
    for (const std::unique_ptr<VR::VrModelRenderer>& cached : renderModelCache) {
        if (cached->getName() == name) {
            return cached.get();
        }
    }
    // A model that failed once fails again (missing files, a broken shader, a model the runtime does not
    // have); asking at every frame would repeat the work and the log line.
    for (const std::string& failed : failedModels) {
        if (failed == name) {
            return nullptr;
        }
    }
    vr::IVRRenderModels* renderModels = system != nullptr ? library.renderModels() : nullptr;
    if (renderModels == nullptr) {
        return nullptr;
    }

    vr::RenderModel_t* model = nullptr;
    vr::EVRRenderModelError result =
        pollUntilLoaded([&] { return renderModels->LoadRenderModel_Async(name, &model); });
    if (result != vr::VRRenderModelError_None) {
        VR::logLine(L"Unable to load render model %s %s\n", wide(name).c_str(),
                    wide(renderModels->GetRenderModelErrorNameFromEnum(result)).c_str());
        failedModels.emplace_back(name);
        return nullptr;
    }

    vr::RenderModel_TextureMap_t* texture = nullptr;
    result =
        pollUntilLoaded([&] { return renderModels->LoadTexture_Async(model->diffuseTextureId, &texture); });
    if (result != vr::VRRenderModelError_None) {
        renderModels->FreeRenderModel(model);
        VR::logLine(L"Unable to load render model %s %s\n", wide(name).c_str(),
                    wide(renderModels->GetRenderModelErrorNameFromEnum(result)).c_str());
        failedModels.emplace_back(name);
        return nullptr;
    }

    VR::VrModelRenderer* made = nullptr;
    try {
        renderModelCache.push_back(std::make_unique<VR::VrModelRenderer>(name, *model, *texture));
        made = renderModelCache.back().get();
    } catch (const std::exception& e) {
        // A model that cannot be drawn (shader files missing, GL refusing) leaves the hand without one.
        VR::logLine(L"Exception caught: %s\n", wide(e.what()).c_str());
        failedModels.emplace_back(name);
    }
    renderModels->FreeRenderModel(model);
    renderModels->FreeTexture(texture);
    return made;
}

bool MinimalOpenVR::loadDeviceModel(unsigned deviceIndex) {
    if (system == nullptr || deviceIndex >= DEVICE_COUNT) {
        return false;
    }
    vr::IVRRenderModels* renderModels = library.renderModels();
    if (renderModels == nullptr) {
        return false;
    }
    const std::string modelName =
        getTrackedDeviceString(deviceIndex, vr::Prop_RenderModelName_String, nullptr);
    // Controllers are made of several parts; the "body" component is the one that shows the controller.
    std::string componentName;
    const std::uint32_t length =
        renderModels->GetComponentRenderModelName(modelName.c_str(), "body", nullptr, 0);
    if (length > 0) {
        std::vector<char> buffer(length, '\0');
        renderModels->GetComponentRenderModelName(modelName.c_str(), "body", buffer.data(), length);
        buffer.back() = '\0';
        componentName = buffer.data();
    }
    deviceModels[deviceIndex] = loadRenderModel(componentName.c_str());
    return deviceModels[deviceIndex] != nullptr;
}
