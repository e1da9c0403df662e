#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/support/SimVRFixture.h"

namespace {

using MinimalOpenVRTest = OrvelTest::SimVRFixture<::testing::Test>;

TEST_F(MinimalOpenVRTest, InitGivesUpOnAMissingRuntimeOrHeadsetAndRetriesTheRest) {
    // Were a missing installation retried, the success queued behind it would make init return 0.
    const struct {
        int installed;
        int headset;
        std::vector<int32_t> errors;
        VR::VRGlobals::ErrorCodes code;
        vr::EVRInitError error;
        uint32_t sessions;
    } cases[] = {
        {0, 1, {}, VR::VRGlobals::RuntimeNotInstalled, vr::VRInitError_None, 0},
        {1, 0, {}, VR::VRGlobals::HmdNotPresent, vr::VRInitError_None, 0},
        {1, 1, {100, 0}, VR::VRGlobals::RuntimeNotInstalled, vr::VRInitError_Init_InstallationNotFound, 0},
        {1, 1, {110, 0}, VR::VRGlobals::RuntimeNotInstalled, vr::VRInitError_Init_PathRegistryNotFound, 0},
        {1, 1, {108, 1}, VR::VRGlobals::NoError, vr::VRInitError_None, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.installed << c.headset << " " << c.errors.size() << " errors");
        simvr_reset();
        simvr_setInstalled(c.installed);
        simvr_setHmdPresent(c.headset);
        simvr_setInitErrors(c.errors.data(), static_cast<uint32_t>(c.errors.size()));
        MinimalOpenVR openVR;
        EXPECT_EQ(start(openVR), c.code);
        EXPECT_EQ(error, c.error);
        EXPECT_EQ(simvr_initCount(), c.sessions);
        if (c.errors.empty()) {
            EXPECT_EQ(simvr_lastApplicationType(), -1) << "no start may be attempted";
        }
    }
    EXPECT_TRUE(log.startingWith(L"VR Initialization Error").empty());
}

TEST_F(MinimalOpenVRTest, InitStartsASceneAndLogsTheHeadset) {
    simvr_setHmdProperties("lighthouse", "Vive MV", "LHR-0042");
    simvr_setRecommendedSize(1000, 1100);
    simvr_setDisplayFrequency(89.5f);
    MinimalOpenVR openVR;
    ASSERT_EQ(start(openVR), VR::VRGlobals::NoError);
    EXPECT_EQ(std::make_pair(width, height), std::make_pair(1000u, 1100u));
    EXPECT_EQ(scale, 1.0f);
    EXPECT_EQ(simvr_lastApplicationType(), vr::VRApplication_Scene);
    EXPECT_EQ(log.lines(),
              std::vector<std::wstring>{L"HMD: lighthouse 'Vive MV' #LHR-0042 (1000 x 1100 @ 89.5 Hz)\n"});

    // An owner that never shuts down still leaves no session behind; shutting down twice ends one.
    { MinimalOpenVR other; }
    EXPECT_EQ(simvr_shutdownCount(), 0u);
    openVR.shutdown();
    openVR.shutdown();
    EXPECT_FALSE(simvr_isInitialized());
    EXPECT_EQ(simvr_shutdownCount(), 1u);
    {
        MinimalOpenVR scoped;
        ASSERT_EQ(start(scoped), VR::VRGlobals::NoError);
    }
    EXPECT_FALSE(simvr_isInitialized());
}

TEST_F(MinimalOpenVRTest, MissingCompositorIsLoggedButNotAnError) {
    simvr_setInterfaceAvailable("IVRCompositor_020", 0);
    MinimalOpenVR openVR;
    EXPECT_EQ(start(openVR), VR::VRGlobals::NoError);
    EXPECT_EQ(log.startingWith(L"OpenVR Compositor initialization failed.").size(), 1u);
    // Frames then neither wait nor submit.
    Ko_1_1::Mat4d<float> head = Ko_1_1::Mat4d<float>::zero();
    float velocity[3] = {};
    openVR.updatePoses(-0.2f, -1000.0f, &head, &head, &head, &head, &head, velocity);
    openVR.submit(vr::Eye_Left, 1);
    EXPECT_EQ(head, Ko_1_1::Mat4d<float>::zero());
    EXPECT_EQ(simvr_waitGetPosesCount(), 0u);
    EXPECT_EQ(simvr_submitCount(0), 0u);
}

TEST_F(MinimalOpenVRTest, ControllersByRoleWithPoseStateAndHaptics) {
    // Device 3: a connected controller that no hand claims (role invalid), without a pose.
    simvr_setDevice(3, vr::TrackedDeviceClass_Controller, vr::TrackedControllerRole_Invalid, 1);
    const float leftPose[12] = {1, 0, 0, -0.2f, 0, 1, 0, 1.2f, 0, 0, 1, -0.3f};
    simvr_setDevicePose(1, leftPose);
    const float axes[10] = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.8f, 0.9f, 1.0f};
    const uint64_t pressed =
        vr::ButtonMaskFromId(vr::k_EButton_SteamVR_Trigger) | vr::ButtonMaskFromId(vr::k_EButton_Grip);
    simvr_setControllerState(1, pressed, vr::ButtonMaskFromId(vr::k_EButton_SteamVR_Touchpad), axes);

    MinimalOpenVR openVR;
    ASSERT_EQ(start(openVR), VR::VRGlobals::NoError);

    EXPECT_EQ(openVR.updateControllerRole(3), vr::TrackedControllerRole_Invalid);
    EXPECT_EQ(openVR.getLeftControllerIndex(), MinimalOpenVR::NO_DEVICE);
    EXPECT_EQ(openVR.updateControllerRole(1), vr::TrackedControllerRole_LeftHand);
    EXPECT_EQ(openVR.updateControllerRole(2), vr::TrackedControllerRole_RightHand);
    EXPECT_EQ(openVR.updateControllerRole(0), vr::TrackedControllerRole_Invalid);
    EXPECT_EQ(std::make_pair(openVR.getLeftControllerIndex(), openVR.getRightControllerIndex()),
              std::make_pair(1u, 2u));

    Ko_1_1::Mat4d<float> m;
    float velocity[3];
    openVR.updatePoses(-0.2f, -1000.0f, &m, &m, &m, &m, &m, velocity);

    vr::TrackedDevicePose_t pose{};
    ASSERT_TRUE(openVR.getDevicePose(1, &pose));
    EXPECT_EQ(pose.mDeviceToAbsoluteTracking.m[0][3], -0.2f);
    EXPECT_EQ(pose.mDeviceToAbsoluteTracking.m[2][3], -0.3f);
    EXPECT_TRUE(pose.bDeviceIsConnected);
    EXPECT_FALSE(openVR.getDevicePose(0, &pose)) << "the headset is not a controller";
    EXPECT_FALSE(openVR.getDevicePose(3, &pose)) << "a controller without a valid pose";
    EXPECT_FALSE(openVR.getDevicePose(5, &pose)) << "no device";
    simvr_setDeviceConnected(2, 0);
    EXPECT_FALSE(openVR.getDevicePose(2, &pose)) << "a disconnected controller";

    vr::VRControllerState_t state{};
    EXPECT_EQ(openVR.getControllerState(&state, 1), &state);
    // The structure is packed to 4 bytes, as the runtime lays it out: its 64-bit masks are read by value.
    const std::uint64_t statePressed = state.ulButtonPressed;
    const std::uint64_t stateTouched = state.ulButtonTouched;
    EXPECT_EQ(statePressed, pressed);
    EXPECT_EQ(stateTouched, vr::ButtonMaskFromId(vr::k_EButton_SteamVR_Touchpad));
    EXPECT_EQ(state.rAxis[1].x, 0.3f);
    EXPECT_EQ(state.rAxis[4].y, 1.0f);

    openVR.triggerHapticPulse(2, 750);
    ASSERT_EQ(simvr_hapticPulseCount(), 1u);
    uint32_t device = 0, axis = 9;
    uint16_t microseconds = 0;
    ASSERT_TRUE(simvr_hapticPulse(0, &device, &axis, &microseconds));
    EXPECT_EQ(std::make_tuple(device, axis, microseconds), std::make_tuple(2u, 0u, uint16_t{750}));
}

TEST_F(MinimalOpenVRTest, StringPropertiesAreReadWhole) {
    const std::string longName(300, 'x');
    simvr_setStringProperty(1, vr::Prop_RenderModelName_String, longName.c_str());
    MinimalOpenVR openVR;
    ASSERT_EQ(start(openVR), VR::VRGlobals::NoError);

    vr::ETrackedPropertyError propertyError = vr::TrackedProp_UnknownProperty;
    EXPECT_EQ(openVR.getTrackedDeviceString(1, vr::Prop_RenderModelName_String, &propertyError), longName);
    EXPECT_EQ(propertyError, vr::TrackedProp_Success);
    EXPECT_EQ(openVR.getTrackedDeviceStringAgain(0, vr::Prop_SerialNumber_String, &propertyError),
              "SIMVR-0001");

    simvr_setStringProperty(0, vr::Prop_SerialNumber_String, nullptr);
    EXPECT_EQ(openVR.getTrackedDeviceString(0, vr::Prop_SerialNumber_String, &propertyError), "");
    EXPECT_EQ(propertyError, vr::TrackedProp_UnknownProperty);
}

} // namespace
