#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/SimVRLibrary.h"

using OrvelTest::SimVRLibrary;

namespace {

// What the viewer makes of the runtime is tested through the viewer; these tests hold the runtime to the
// parts of the interface the viewer relies on without checking them itself.
class SimVRTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(vr().loaded()) << vr().error();
        SIMVR(simvr_reset)();
        SIMVR(simvr_setPaced)(0);
    }

    void TearDown() override { SIMVR(simvr_reset)(); }

    static SimVRLibrary& vr() { return SimVRLibrary::instance(); }

    static vr::EVRInitError initError() {
        vr::EVRInitError error = vr::VRInitError_Unknown;
        vr().init(&error, vr::VRApplication_Scene);
        return error;
    }

    // Loads a render model or texture the way a client must: polling while the runtime answers "loading".
    template <typename Load> static vr::EVRRenderModelError poll(Load load, int& loadingAnswers) {
        loadingAnswers = 0;
        vr::EVRRenderModelError error = load();
        while (error == vr::VRRenderModelError_Loading && loadingAnswers < 100) {
            ++loadingAnswers;
            error = load();
        }
        return error;
    }
};

TEST_F(SimVRTest, InterfacesOnlyAfterASuccessfulInit) {
    vr::EVRInitError error = vr::VRInitError_None;
    EXPECT_EQ(vr().getInterface(vr::IVRSystem_Version, &error), nullptr);
    EXPECT_EQ(error, vr::VRInitError_Init_NotInitialized);

    // The viewer asks whether a runtime and a headset are there before it starts one; a client that does
    // not ask still gets the matching error.
    SIMVR(simvr_setHmdPresent)(0);
    EXPECT_TRUE(vr().isRuntimeInstalled());
    EXPECT_FALSE(vr().isHmdPresent());
    EXPECT_EQ(initError(), vr::VRInitError_Init_HmdNotFound);
    SIMVR(simvr_setInstalled)(0);
    EXPECT_FALSE(vr().isRuntimeInstalled());
    EXPECT_EQ(initError(), vr::VRInitError_Init_InstallationNotFound);
    EXPECT_STREQ(vr().errorSymbol(vr::VRInitError_Init_InstallationNotFound),
                 "VRInitError_Init_InstallationNotFound");
    EXPECT_STREQ(vr().errorDescription(static_cast<vr::EVRInitError>(4242)), "Unknown error (4242)");
    EXPECT_EQ(SIMVR(simvr_isInitialized)(), 0);
    SIMVR(simvr_reset)();

    const uint32_t firstToken = vr().init(&error, vr::VRApplication_Scene);
    ASSERT_EQ(error, vr::VRInitError_None);
    EXPECT_EQ(vr().initToken(), firstToken);
    for (const char* version : {vr::IVRSystem_Version, vr::IVRCompositor_Version, vr::IVRRenderModels_Version,
                                vr::IVRSettings_Version}) {
        EXPECT_TRUE(vr().isInterfaceValid(version)) << version;
        EXPECT_NE(vr().getInterface(version, &error), nullptr) << version;
    }
    SIMVR(simvr_setInterfaceAvailable)(vr::IVRCompositor_Version, 0);
    for (const char* version : {"IVRSystem_015", vr::IVRCompositor_Version}) {
        EXPECT_FALSE(vr().isInterfaceValid(version)) << version;
        EXPECT_EQ(vr().getInterface(version, &error), nullptr) << version;
        EXPECT_EQ(error, vr::VRInitError_Init_InterfaceNotFound);
    }

    vr().shutdown();
    vr().shutdown();
    EXPECT_EQ(SIMVR(simvr_shutdownCount)(), 1u);
    EXPECT_NE(vr().init(&error, vr::VRApplication_Scene), firstToken);
}

TEST_F(SimVRTest, StringPropertiesFollowTheBufferProtocol) {
    SIMVR(simvr_setHmdProperties)("lighthouse", "Vive MV", nullptr);
    ASSERT_TRUE(vr().start());
    // "Vive MV" needs 8 bytes with its terminator. A null buffer is left alone; any other is emptied first,
    // so a client that ignores the error reads no stale text.
    const struct {
        uint32_t device;
        int32_t property;
        uint32_t bufferSize;
        uint32_t length;
        vr::ETrackedPropertyError error;
        const char* text;
    } cases[] = {
        {0, vr::Prop_ModelNumber_String, 0, 8, vr::TrackedProp_BufferTooSmall, "xyz"},
        {0, vr::Prop_ModelNumber_String, 4, 8, vr::TrackedProp_BufferTooSmall, ""},
        {0, vr::Prop_ModelNumber_String, 8, 8, vr::TrackedProp_Success, "Vive MV"},
        {0, vr::Prop_SerialNumber_String, 32, 11, vr::TrackedProp_Success, "SIMVR-0001"}, // kept by the null
        {0, 1099, 8, 0, vr::TrackedProp_UnknownProperty, ""},
        {99, vr::Prop_ModelNumber_String, 8, 0, vr::TrackedProp_InvalidDevice, ""},
        {0, vr::Prop_DisplayFrequency_Float, 8, 0, vr::TrackedProp_WrongDataType, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "device " << c.device << ", property " << c.property);
        char buffer[32] = "xyz";
        vr::ETrackedPropertyError error = vr::TrackedProp_Success;
        const auto property = static_cast<vr::ETrackedDeviceProperty>(c.property);
        EXPECT_EQ(vr().system->GetStringTrackedDeviceProperty(
                      c.device, property, c.bufferSize > 0 ? buffer : nullptr, c.bufferSize, &error),
                  c.length);
        EXPECT_EQ(error, c.error);
        EXPECT_STREQ(buffer, c.text);
    }

    vr::EVRSettingsError settingsError = vr::VRSettingsError_None;
    SIMVR(simvr_removeSupersampleScale)();
    EXPECT_EQ(vr().settings->GetFloat("steamvr", "supersampleScale", &settingsError), 0.0f);
    EXPECT_NE(settingsError, vr::VRSettingsError_None);
}

TEST_F(SimVRTest, ControllerStateWritesExactlyItsRecord) {
    ASSERT_TRUE(vr().start());
    vr::IVRSystem* system = vr().system;
    EXPECT_EQ(system->GetTrackedDeviceClass(vr::k_unTrackedDeviceIndexInvalid),
              vr::TrackedDeviceClass_Invalid);
    const float axes[10] = {0.5f, -0.5f, 1.0f};
    const uint64_t trigger = vr::ButtonMaskFromId(vr::k_EButton_SteamVR_Trigger);
    SIMVR(simvr_setControllerState)(2, trigger, trigger, axes);
    // A client built with natural alignment passes 64; exactly the platform's record must be written.
    unsigned char buffer[64];
    std::memset(buffer, 0xAB, sizeof(buffer));
    auto* state = reinterpret_cast<vr::VRControllerState_t*>(buffer);
    EXPECT_FALSE(system->GetControllerState(2, state, sizeof(vr::VRControllerState_t) - 1));
    EXPECT_EQ(buffer[0], 0xAB);
    ASSERT_TRUE(system->GetControllerState(2, state, 64));
    for (size_t i = sizeof(vr::VRControllerState_t); i < sizeof(buffer); ++i) {
        EXPECT_EQ(buffer[i], 0xAB) << "byte " << i;
    }
    EXPECT_EQ(state->ulButtonPressed, trigger);
    EXPECT_FLOAT_EQ(state->rAxis[1].x, 1.0f);

    // The packet number moves only when the state changes.
    const uint32_t packet = state->unPacketNum;
    SIMVR(simvr_setControllerState)(2, trigger, trigger, axes);
    system->GetControllerState(2, state, 64);
    EXPECT_EQ(state->unPacketNum, packet);
    SIMVR(simvr_setControllerState)(2, 0, 0, nullptr);
    system->GetControllerState(2, state, 64);
    EXPECT_GT(state->unPacketNum, packet);

    SIMVR(simvr_setDeviceConnected)(2, 0);
    EXPECT_FALSE(system->GetControllerState(2, state, 64));
    EXPECT_EQ(system->GetTrackedDeviceIndexForControllerRole(vr::TrackedControllerRole_RightHand),
              vr::k_unTrackedDeviceIndexInvalid);
}

TEST_F(SimVRTest, RenderModelsLoadAfterPollingAndFailAsConfigured) {
    SIMVR(simvr_setRenderModelLoadingPolls)(2);
    ASSERT_TRUE(vr().start());
    vr::IVRRenderModels* models = vr().renderModels;

    const uint32_t nameLength = models->GetComponentRenderModelName("simvr_controller", "body", nullptr, 0);
    ASSERT_GT(nameLength, 1u);
    std::vector<char> body(nameLength);
    EXPECT_EQ(models->GetComponentRenderModelName("simvr_controller", "body", body.data(), nameLength),
              nameLength);

    int loadingAnswers = 0;
    vr::RenderModel_t* model = nullptr;
    ASSERT_EQ(poll([&] { return models->LoadRenderModel_Async(body.data(), &model); }, loadingAnswers),
              vr::VRRenderModelError_None);
    EXPECT_EQ(loadingAnswers, 2);
    ASSERT_GT(model->unTriangleCount, 0u);
    for (uint32_t i = 0; i < model->unTriangleCount * 3; ++i) {
        ASSERT_LT(model->rIndexData[i], model->unVertexCount);
    }

    vr::RenderModel_TextureMap_t* texture = nullptr;
    ASSERT_EQ(
        poll([&] { return models->LoadTexture_Async(model->diffuseTextureId, &texture); }, loadingAnswers),
        vr::VRRenderModelError_None);
    EXPECT_EQ(loadingAnswers, 2);
    EXPECT_GT(texture->unWidth, 0);
    EXPECT_EQ(texture->rubTextureMapData[3], 255); // opaque
    models->FreeTexture(texture);
    models->FreeRenderModel(model);
    models->FreeRenderModel(model); // a second free is ignored, not a crash
    EXPECT_EQ(SIMVR(simvr_renderModelFreeCount)(), 1u);
    EXPECT_EQ(SIMVR(simvr_textureFreeCount)(), 1u);

    EXPECT_EQ(models->LoadRenderModel_Async("no_such_model", &model), vr::VRRenderModelError_InvalidModel);
    SIMVR(simvr_setTextureLoadFails)(1);
    EXPECT_EQ(poll([&] { return models->LoadTexture_Async(1, &texture); }, loadingAnswers),
              vr::VRRenderModelError_InvalidTexture);
    EXPECT_EQ(texture, nullptr);
}

void moveHeadSideways(uint64_t frameIndex, double, void* user) {
    const float pose[12] = {1, 0, 0, static_cast<float>(frameIndex), 0, 1, 0, 1.5f, 0, 0, 1, 0};
    SIMVR(simvr_setDevicePose)(0, pose);
    ++*static_cast<int*>(user);
}

TEST_F(SimVRTest, WaitGetPosesDeliversScriptedPoses) {
    int scriptCalls = 0;
    SIMVR(simvr_setPoseScript)(moveHeadSideways, &scriptCalls);
    ASSERT_TRUE(vr().start());

    vr::TrackedDevicePose_t poses[vr::k_unMaxTrackedDeviceCount] = {};
    for (int frame = 0; frame < 3; ++frame) {
        ASSERT_EQ(vr().compositor->WaitGetPoses(poses, vr::k_unMaxTrackedDeviceCount, nullptr, 0),
                  vr::VRCompositorError_None);
    }
    EXPECT_EQ(scriptCalls, 3);
    EXPECT_FLOAT_EQ(poses[0].mDeviceToAbsoluteTracking.m[0][3], 2.0f); // the third frame's pose
    EXPECT_EQ(poses[0].eTrackingResult, vr::TrackingResult_Running_OK);
    EXPECT_FALSE(poses[7].bDeviceIsConnected);
    EXPECT_FALSE(poses[7].bPoseIsValid);

    vr::TrackedDevicePose_t tooMany[vr::k_unMaxTrackedDeviceCount + 1];
    EXPECT_EQ(vr().compositor->WaitGetPoses(tooMany, vr::k_unMaxTrackedDeviceCount + 1, nullptr, 0),
              vr::VRCompositorError_IndexOutOfRange);
}

TEST_F(SimVRTest, PacedWaitGetPosesDoesNotOutrunTheDisplay) {
    SIMVR(simvr_setDisplayFrequency)(50.0f);
    SIMVR(simvr_setPaced)(1);
    ASSERT_TRUE(vr().start());
    vr::TrackedDevicePose_t poses[vr::k_unMaxTrackedDeviceCount];
    vr().compositor->WaitGetPoses(poses, vr::k_unMaxTrackedDeviceCount, nullptr, 0);
    const auto start = std::chrono::steady_clock::now();
    for (int frame = 0; frame < 10; ++frame) {
        vr().compositor->WaitGetPoses(poses, vr::k_unMaxTrackedDeviceCount, nullptr, 0);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // Ten frames at 50 Hz are 0.2 s; only a runtime that stopped pacing gets under half of that.
    EXPECT_GE(seconds, 10.0 / (2.0 * 50.0));
}

} // namespace
