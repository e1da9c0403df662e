#pragma once

#include <map>
#include <memory>

#include "vr/openvr/OpenVRInterfaces.h"

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

namespace SimVR {

// The simulated runtime's IVRRenderModels: small procedural models (a controller handle and a headset box)
// with checker textures, which answer "loading" for a few polls before they are delivered. Owns the model
// and texture records it hands out until the client frees them. One static instance; any thread.
class SimRenderModels final : public vr::IVRRenderModels {
public:
    vr::EVRRenderModelError LoadRenderModel_Async(const char* modelName, vr::RenderModel_t** model) override;
    void FreeRenderModel(vr::RenderModel_t* model) override;
    vr::EVRRenderModelError LoadTexture_Async(vr::TextureID_t textureId,
                                              vr::RenderModel_TextureMap_t** texture) override;
    void FreeTexture(vr::RenderModel_TextureMap_t* texture) override;
    vr::EVRRenderModelError LoadTextureD3D11_Async(vr::TextureID_t textureId, void* d3d11Device,
                                                   void** d3d11Texture) override;
    vr::EVRRenderModelError LoadIntoTextureD3D11_Async(vr::TextureID_t textureId,
                                                       void* d3d11Texture) override;
    void FreeTextureD3D11(void* d3d11Texture) override;
    uint32_t GetRenderModelName(uint32_t index, char* modelName, uint32_t nameSize) override;
    uint32_t GetRenderModelCount() override;
    uint32_t GetComponentCount(const char* modelName) override;
    uint32_t GetComponentName(const char* modelName, uint32_t index, char* componentName,
                              uint32_t nameSize) override;
    uint64_t GetComponentButtonMask(const char* modelName, const char* componentName) override;
    uint32_t GetComponentRenderModelName(const char* modelName, const char* componentName,
                                         char* componentModelName, uint32_t nameSize) override;
    bool GetComponentState(const char* modelName, const char* componentName,
                           const vr::VRControllerState_t* state,
                           const vr::RenderModel_ControllerMode_State_t* modeState,
                           vr::RenderModel_ComponentState_t* componentState) override;
    bool RenderModelHasComponent(const char* modelName, const char* componentName) override;
    uint32_t GetRenderModelThumbnailURL(const char* modelName, char* url, uint32_t urlSize,
                                        vr::EVRRenderModelError* error) override;
    uint32_t GetRenderModelOriginalPath(const char* modelName, char* path, uint32_t pathSize,
                                        vr::EVRRenderModelError* error) override;
    const char* GetRenderModelErrorNameFromEnum(vr::EVRRenderModelError error) override;

    SimRenderModels();
    ~SimRenderModels();
    SimRenderModels(const SimRenderModels&) = delete;
    SimRenderModels& operator=(const SimRenderModels&) = delete;

private:
    struct ModelRecord;
    struct TextureRecord;

    // What the client holds, keyed by the address handed out; guarded by the runtime's lock.
    std::map<const vr::RenderModel_t*, std::unique_ptr<ModelRecord>> models;
    std::map<const vr::RenderModel_TextureMap_t*, std::unique_ptr<TextureRecord>> textures;
};

} // namespace SimVR

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
