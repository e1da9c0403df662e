#include <gtest/gtest.h>

#include "tests/support/SimVRLibrary.h"

using OrvelTest::SimVRLibrary;

namespace {

// A smoke check of the simulated runtime as a client reaches it: loaded by file name, entry points and
// interfaces resolved by name, driven through its control API. What the viewer makes of it is tested
// through the viewer.
class SimVRTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(vr().loaded()) << vr().error();
        SIMVR(simvr_reset)();
        SIMVR(simvr_setPaced)(0);
    }

    void TearDown() override { SIMVR(simvr_reset)(); }

    static SimVRLibrary& vr() { return SimVRLibrary::instance(); }
};

TEST_F(SimVRTest, InitFollowsTheControlsAndHandsOutInterfacesOnlyWhileRunning) {
    vr::EVRInitError error = vr::VRInitError_None;
    EXPECT_EQ(vr().getInterface(vr::IVRSystem_Version, &error), nullptr);
    EXPECT_EQ(error, vr::VRInitError_Init_NotInitialized);

    SIMVR(simvr_setHmdPresent)(0);
    EXPECT_FALSE(vr().isHmdPresent());
    vr().init(&error, vr::VRApplication_Scene);
    EXPECT_EQ(error, vr::VRInitError_Init_HmdNotFound);
    SIMVR(simvr_setInstalled)(0);
    EXPECT_FALSE(vr().isRuntimeInstalled());
    vr().init(&error, vr::VRApplication_Scene);
    EXPECT_EQ(error, vr::VRInitError_Init_InstallationNotFound);
    SIMVR(simvr_reset)();

    SIMVR(simvr_setInterfaceAvailable)(vr::IVRSettings_Version, 0);
    EXPECT_FALSE(vr().start()) << "the settings interface was switched off";
    vr().shutdown();
    vr().shutdown();
    EXPECT_EQ(SIMVR(simvr_shutdownCount)(), 1u);
    SIMVR(simvr_setInterfaceAvailable)(vr::IVRSettings_Version, 1);
    EXPECT_TRUE(vr().start());
}

TEST_F(SimVRTest, ControlsReachTheInterfaces) {
    SIMVR(simvr_setHmdProperties)("lighthouse", "Vive MV", nullptr);
    const float axes[10] = {0.5f, -0.5f, 1.0f};
    const uint64_t trigger = vr::ButtonMaskFromId(vr::k_EButton_SteamVR_Trigger);
    SIMVR(simvr_setControllerState)(2, trigger, trigger, axes);
    SIMVR(simvr_setRenderModelLoadingPolls)(2);
    ASSERT_TRUE(vr().start());

    char buffer[32] = "";
    vr::ETrackedPropertyError propertyError = vr::TrackedProp_UnknownProperty;
    EXPECT_EQ(vr().system->GetStringTrackedDeviceProperty(0, vr::Prop_ModelNumber_String, buffer, 32,
                                                          &propertyError),
              8u);
    EXPECT_STREQ(buffer, "Vive MV");

    vr::VRControllerState_t state{};
    ASSERT_TRUE(vr().system->GetControllerState(2, &state, sizeof(state)));
    EXPECT_EQ(state.ulButtonPressed, trigger);
    EXPECT_FLOAT_EQ(state.rAxis[1].x, 1.0f);

    // Models answer "loading" as often as configured before they arrive.
    vr::RenderModel_t* model = nullptr;
    int loadingAnswers = 0;
    while (vr().renderModels->LoadRenderModel_Async("simvr_controller_body", &model) ==
               vr::VRRenderModelError_Loading &&
           loadingAnswers < 100) {
        ++loadingAnswers;
    }
    EXPECT_EQ(loadingAnswers, 2);
    ASSERT_NE(model, nullptr);
    EXPECT_GT(model->unTriangleCount, 0u);
    vr().renderModels->FreeRenderModel(model);
    EXPECT_EQ(SIMVR(simvr_renderModelFreeCount)(), 1u);
}

} // namespace
