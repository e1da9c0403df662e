#include <gtest/gtest.h>

#include <string>

#include "platform/Utf.h"
#include "tests/support/LogCapture.h"
#include "vr/MinimalOpenVR.h"
#include "vr/OpenVRLibrary.h"

// Built into a folder of its own and without a search path to the simulated runtime, so the OpenVR API
// library cannot be found: the situation of a machine without the runtime.

TEST(OpenVRAbsent, InitReportsRuntimeNotInstalledWithOneLineAndStaysInert) {
    OrvelTest::LogCapture log;
    MinimalOpenVR openVR;
    unsigned width = 7;
    unsigned height = 9;
    vr::EVRInitError error = vr::VRInitError_Unknown;
    float scale = 3.0f;

    EXPECT_EQ(openVR.init(&width, &height, &error, &scale), VR::VRGlobals::RuntimeNotInstalled);
    EXPECT_EQ(error, vr::VRInitError_None);
    EXPECT_EQ(width, 7u);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    const std::wstring expected = L"OpenVR runtime not found: could not load " +
                                  VR::utf8ToWide(VR::OpenVRLibrary::LIBRARY_NAME) + L" (";
    EXPECT_EQ(lines[0].compare(0, expected.size(), expected), 0) << VR::wideToUtf8(lines[0]);
    EXPECT_EQ(lines[0].back(), L'\n');

    // Nothing else reaches for the missing runtime.
    openVR.submit(vr::Eye_Left, 1);
    Ko_1_1::Mat4d<float> head = Ko_1_1::Mat4d<float>::zero();
    float velocity[3] = {5, 5, 5};
    openVR.updatePoses(-0.2f, -1000.0f, &head, &head, &head, &head, &head, velocity);
    EXPECT_EQ(head, Ko_1_1::Mat4d<float>::zero());
    EXPECT_EQ(openVR.getControllerModel(true), nullptr);
    openVR.shutdown();

    // Asking again looks again (the runtime may have been installed meanwhile) and says so again.
    EXPECT_EQ(openVR.init(&width, &height, &error, &scale), VR::VRGlobals::RuntimeNotInstalled);
    EXPECT_EQ(log.lines().size(), 2u);
}
