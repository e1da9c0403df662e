#include <gtest/gtest.h>

#include <string>

#include "platform/Platform.h"
#include "platform/Utf.h"
#include "tests/support/SimVRFixture.h"
#include "vr/OpenVRLibrary.h"

// Each of these waits through all ten start attempts, one second apart.

namespace {

using MinimalOpenVRSlowTest = OrvelTest::SimVRFixture<::testing::Test>;

// The runtime's own wording of an init error, as the log line must carry it.
std::wstring describe(vr::EVRInitError error) {
    void* library = Platform::openLibrary(VR::OpenVRLibrary::LIBRARY_NAME);
    auto description = reinterpret_cast<vr::PFN_VR_GetVRInitErrorAsEnglishDescription>(
        Platform::librarySymbol(library, "VR_GetVRInitErrorAsEnglishDescription"));
    const std::wstring text = description != nullptr ? VR::utf8ToWide(description(error)) : L"?";
    Platform::closeLibrary(library);
    return text;
}

TEST_F(MinimalOpenVRSlowTest, InitFailsWithCodeFourAfterTenAttempts) {
    // Ten failures, then a success that only an eleventh attempt would see.
    const int32_t errors[] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    simvr_setInitErrors(errors, 10);
    MinimalOpenVR openVR;
    EXPECT_EQ(start(openVR), VR::VRGlobals::InitializationError);
    EXPECT_EQ(error, vr::VRInitError_Unknown);
    EXPECT_EQ(simvr_initCount(), 0u);

    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], L"VR Initialization Error: " + describe(vr::VRInitError_Unknown));
    EXPECT_FALSE(openVR.isVive());
}

TEST_F(MinimalOpenVRSlowTest, RuntimeWithoutTheSystemInterfaceIsShutDownAgain) {
    simvr_setInterfaceAvailable("IVRSystem_016", 0);
    MinimalOpenVR openVR;
    EXPECT_EQ(start(openVR), VR::VRGlobals::InitializationError);
    EXPECT_EQ(error, vr::VRInitError_Init_InterfaceNotFound);
    // Every attempt started the runtime and ended it again.
    EXPECT_EQ(simvr_initCount(), 10u);
    EXPECT_EQ(simvr_shutdownCount(), 10u);
    EXPECT_FALSE(simvr_isInitialized());
    EXPECT_EQ(log.startingWith(L"VR Initialization Error: ").size(), 1u);
}

} // namespace
