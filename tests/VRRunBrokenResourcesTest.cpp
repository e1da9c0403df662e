// Runs beside its own copy of the resource folder, from which the build removed "Blur.frg" and
// "Controller.frg": what a user's broken installation looks like, without touching anyone else's copy.
#include <GLFW/glfw3.h>
#include <gtest/gtest.h>

#include "simvr/SimVR.h"
#include "tests/support/GLContext.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RecordingHost.h"
#include "vr/MinimalOpenVR.h"
#include "vr/VRManager.h"

namespace {

class BrokenResources : public ::testing::Test {
protected:
    void SetUp() override {
        simvr_reset();
        simvr_setPaced(0);
        simvr_setRecommendedSize(160, 120);
    }
    void TearDown() override { simvr_reset(); }
};

TEST_F(BrokenResources, MissingShaderEndsSetUpWithFourLogAndCloseNotice) {
    OrvelTest::RecordingHost host;
    OrvelTest::LogCapture log;
    VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
    EXPECT_EQ(manager.init(), VR::VRGlobals::InitializationError);
    EXPECT_EQ(log.count(L"Exception caught: Failed to open shader file.\n"), 1);
    EXPECT_EQ(host.count("onVrClosed"), 1);
    EXPECT_EQ(simvr_isInitialized(), 0) << "the failed set-up shuts the runtime down again";
    EXPECT_EQ(glfwGetCurrentContext(), nullptr) << "and closes its window";
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::InitializationError);
    EXPECT_EQ(host.count("onVrClosed"), 1) << "a loop without a set-up tells the host nothing more";
}

// A controller model that cannot be built is asked for at every frame: it is tried and logged once.
TEST_F(BrokenResources, ControllerModelThatCannotBeBuiltIsTriedOnce) {
    OrvelTest::GLContext context;
    ASSERT_TRUE(context.valid());
    OrvelTest::LogCapture log;
    MinimalOpenVR openVR;
    unsigned width = 0;
    unsigned height = 0;
    vr::EVRInitError error = vr::VRInitError_None;
    float scale = 1.0f;
    ASSERT_EQ(openVR.init(&width, &height, &error, &scale), VR::VRGlobals::NoError);
    openVR.updateControllerRole(1);
    for (int frame = 0; frame < 5; ++frame) {
        EXPECT_EQ(openVR.getControllerModel(true), nullptr);
    }
    EXPECT_EQ(log.count(L"Exception caught: Failed to open shader file.\n"), 1);
    EXPECT_EQ(simvr_renderModelLoadCount(), 1u);
    openVR.shutdown();
}

} // namespace
