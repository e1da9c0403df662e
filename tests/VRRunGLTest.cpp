// Whole VR runs against the simulated runtime, reached through the library's own loading path, with a
// recording host. The runtime's control API is linked from the same library file the viewer loads.
#include <GLFW/glfw3.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "vr/LibrarySettings.h"
#include "engine/GL.h"
#include "engine/Target.h"
#include "platform/Log.h"
#include "simvr/SimVR.h"
#include "tests/support/RecordingHost.h"
#include "vr/MinimalOpenVR.h"
#include "vr/VRManager.h"
#include "vr/VRRenderer.h"
#include "vr/points/PointGrabber.h"

using OrvelTest::RecordingHost;

namespace {

// Collects log lines for the duration of a test.
class LogCapture {
public:
    LogCapture() {
        VR::setLogSink([this](const std::wstring& line) {
            std::lock_guard<std::mutex> lock(mutex);
            lines.push_back(line);
        });
    }
    ~LogCapture() { VR::setLogSink({}); }
    bool contains(const std::wstring& text) const {
        std::lock_guard<std::mutex> lock(mutex);
        for (const auto& l : lines) {
            if (l.find(text) != std::wstring::npos) {
                return true;
            }
        }
        return false;
    }

private:
    mutable std::mutex mutex;
    std::vector<std::wstring> lines;
};

// A renderer with its protected parts opened for inspection; still the real renderer. It is never deleted
// through the base, whose destructor is deliberately not virtual.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class InspectableRenderer final : public VR::VRRenderer {
public:
    using VRRenderer::VRRenderer;
    using VRRenderer::blur;
    using VRRenderer::createScreenshot;
    using VRRenderer::cameraPosition;
    using VRRenderer::eyeCount;
    using VRRenderer::eyeTargets;
    using VRRenderer::fullscreen;
    using VRRenderer::handleKeyboard;
    using VRRenderer::keyboardSpeedFactor;
    using VRRenderer::pointGrabber;
    using VRRenderer::pointSize;
    using VRRenderer::readDepthStencil;
    using VRRenderer::renderWidth;
    using VRRenderer::renderHeight;
    using VRRenderer::viewAngles;
    using VRRenderer::window;
    using VRRenderer::windowHeight;
    using VRRenderer::windowWidth;
};
#pragma GCC diagnostic pop

class VRRun : public ::testing::Test {
protected:
    void SetUp() override {
        simvr_reset();
        simvr_setPaced(0);
        // Small eyes keep software rendering quick; the size test sets its own.
        simvr_setRecommendedSize(160, 120);
    }
    void TearDown() override { simvr_reset(); }

    // Ends the run from another thread once `frames` view transforms have been seen.
    void closeAfterFrames(RecordingHost& host, int frames, std::function<void()> close) {
        host.onViewTransform = [this, frames, close] {
            if (++frameCount == frames) {
                closer = std::thread(close);
            }
        };
    }
    void joinCloser() {
        if (closer.joinable()) {
            closer.join();
        }
    }

    std::atomic<int> frameCount{0};
    std::thread closer;
};

std::shared_ptr<IOpenVR> makeOpenVr() { return std::make_shared<MinimalOpenVR>(); }

int namedCount(const std::vector<RecordingHost::Call>& calls, const std::string& name) {
    int n = 0;
    for (const auto& c : calls) {
        n += c.name == name ? 1 : 0;
    }
    return n;
}

} // namespace

TEST(VRManager, NullViewAnswersInitializationErrorEverywhere) {
    VR::VRManager manager({0.0f, 0.0f, 0.0f}, nullptr);
    EXPECT_EQ(manager.init(), VR::VRGlobals::InitializationError);
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::InitializationError);
    EXPECT_EQ(manager.closeVR(), VR::VRGlobals::InitializationError);
}

TEST_F(VRRun, MissingRuntimeOrHeadsetOpensNothing) {
    {
        simvr_setInstalled(0);
        RecordingHost host;
        VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
        EXPECT_EQ(manager.init(), VR::VRGlobals::RuntimeNotInstalled);
        EXPECT_TRUE(host.calls().empty()) << "nothing may reach the host when the runtime is missing";
    }
    {
        simvr_reset();
        simvr_setHmdPresent(0);
        RecordingHost host;
        VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
        EXPECT_EQ(manager.init(), VR::VRGlobals::HmdNotPresent);
        EXPECT_TRUE(host.calls().empty());
        EXPECT_EQ(glfwGetCurrentContext(), nullptr) << "no window may have been opened";
    }
}

TEST_F(VRRun, NoDisplayGivesWindowCreationFailedAndShutsTheRuntimeDown) {
    const char* display = std::getenv("DISPLAY");
    const std::string saved = display ? display : "";
    unsetenv("DISPLAY");
    RecordingHost host;
    VR::VRGlobals::ErrorCodes result;
    {
        LogCapture log;
        VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
        result = manager.init();
        EXPECT_TRUE(log.contains(L"ERROR: Could not start GLFW\n"));
    }
    if (!saved.empty()) {
        setenv("DISPLAY", saved.c_str(), 1);
    }
    EXPECT_EQ(result, VR::VRGlobals::WindowCreationFailed);
    EXPECT_EQ(host.count("setHeadsetKind"), 1);
    EXPECT_EQ(host.count("onVrClosed"), 0) << "no exception: the host is not told of a close";
    EXPECT_EQ(simvr_isInitialized(), 0) << "a failed set-up must not leave the runtime running";
}

TEST_F(VRRun, HeadsetKindFollowsTheModelNumber) {
    const std::pair<const char*, int> models[] = {
        {"Vive MV", 0}, {"Oculus Rift CV1", 1}, {"Oculus Vive hybrid", 1}, {"Index", 2}};
    for (const auto& [model, kind] : models) {
        simvr_setHmdProperties("simvr", model, "S1");
        RecordingHost host;
        VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
        ASSERT_EQ(manager.init(), VR::VRGlobals::NoError) << model;
        EXPECT_EQ(manager.closeVR(), VR::VRGlobals::NoError);
        EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::NoError);
        EXPECT_EQ(host.headsetKinds(), std::vector<int>{kind}) << model;
        EXPECT_EQ(host.count("onVrClosed"), 1);
    }
}

TEST_F(VRRun, RunsUntilClosedFromAnotherThread) {
    simvr_setRecommendedSize(200, 150);
    simvr_setSupersampleScale(1.44f); // the library uses its square root, 1.2
    RecordingHost host;
    std::atomic<int> queries{0};
    host.pointQuery = [&](float, unsigned short, unsigned short, float, float, Ko_1_1::Vec3d<double>,
                          Ko_1_1::Vec3d<double>, Ko_1_1::Vec3d<double>, std::vector<VR::Point3dRGBA>&) {
        ++queries;
    };
    VR::VRManager manager({1.0f, 2.0f, 3.0f}, &host);
    ASSERT_EQ(manager.init(), VR::VRGlobals::NoError);
    closeAfterFrames(host, 6, [&] { EXPECT_EQ(manager.closeVR(), VR::VRGlobals::NoError); });
    const auto renderThread = std::this_thread::get_id();
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::NoError);
    joinCloser();

    const auto calls = host.calls();
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back().name, "onVrClosed") << "the close notice is the last thing the host hears";
    EXPECT_EQ(namedCount(calls, "onVrClosed"), 1);
    EXPECT_EQ(host.threadsOf("setViewTransform"), std::vector<std::thread::id>{renderThread});
    EXPECT_EQ(host.threadsOf("getPointSize"), std::vector<std::thread::id>{renderThread});
    const int frames = host.count("setViewTransform");
    EXPECT_GE(frames, 6);
    EXPECT_EQ(host.count("getPointSize"), 2 * frames) << "the point size is asked twice a frame";
    for (const auto& id : host.threadsOf("queryPoints")) {
        EXPECT_NE(id, renderThread) << "points are queried on the grabber thread";
    }

    // The start position is the translation of the transform the host receives.
    const auto transform = host.viewTransforms().front();
    EXPECT_FLOAT_EQ(transform[12], 1.0f);
    EXPECT_FLOAT_EQ(transform[13], 2.0f);
    EXPECT_FLOAT_EQ(transform[14], 3.0f);

    // Both eyes every frame, at the recommended size times the supersampling factor, grey where nothing
    // was drawn (the clear colour 0.5 rounds to 127 or 128).
    EXPECT_EQ(simvr_submitCount(0), static_cast<uint64_t>(frames));
    EXPECT_EQ(simvr_submitCount(1), static_cast<uint64_t>(frames));
    EXPECT_EQ(simvr_submitErrorCount(), 0u);
    for (uint32_t eye = 0; eye < 2; ++eye) {
        uint32_t width = 0;
        uint32_t height = 0;
        const size_t bytes = simvr_lastSubmittedPicture(eye, &width, &height, nullptr, 0);
        EXPECT_EQ(width, 240u);
        EXPECT_EQ(height, 180u);
        std::vector<uint8_t> rgba(bytes);
        simvr_lastSubmittedPicture(eye, nullptr, nullptr, rgba.data(), rgba.size());
        ASSERT_EQ(rgba.size(), 240u * 180u * 4u);
        EXPECT_NEAR(rgba[0], 128, 1);
        EXPECT_NEAR(rgba[1], 128, 1);
        EXPECT_NEAR(rgba[2], 128, 1);
    }
    EXPECT_EQ(simvr_postPresentHandoffCount(), static_cast<uint64_t>(frames));
    EXPECT_EQ(simvr_isInitialized(), 0) << "the runtime is shut down at the end of the run";
}

TEST_F(VRRun, ExceptionInAFrameEndsTheRunWithFourAndOneCloseNotice) {
    RecordingHost host;
    LogCapture log;
    VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
    ASSERT_EQ(manager.init(), VR::VRGlobals::NoError);
    host.onViewTransform = [] { throw std::runtime_error("host gave up"); };
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::InitializationError);
    EXPECT_TRUE(log.contains(L"Exception caught: host gave up\n"));
    EXPECT_EQ(host.count("onVrClosed"), 1);
    EXPECT_EQ(simvr_isInitialized(), 0);
    // The window is gone; a late close request is harmless.
    EXPECT_EQ(manager.closeVR(), VR::VRGlobals::NoError);
}

TEST_F(VRRun, MissingShaderEndsSetUpWithFourLogAndCloseNotice) {
    const std::string blur = VR::LibrarySettings::instance().shaderPath("Blur.frg");
    const std::string moved = blur + ".away";
    ASSERT_EQ(std::rename(blur.c_str(), moved.c_str()), 0) << blur;
    RecordingHost host;
    VR::VRGlobals::ErrorCodes result;
    {
        LogCapture log;
        VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
        result = manager.init();
        EXPECT_TRUE(log.contains(L"Exception caught: Failed to open shader file.\n"));
    }
    std::rename(moved.c_str(), blur.c_str());
    EXPECT_EQ(result, VR::VRGlobals::InitializationError);
    EXPECT_EQ(host.count("onVrClosed"), 1);
    EXPECT_EQ(simvr_isInitialized(), 0) << "the failed set-up shuts the runtime down again";
    EXPECT_EQ(glfwGetCurrentContext(), nullptr) << "and closes its window";
}

TEST_F(VRRun, OneEyeSubmitsOnlyTheLeftEye) {
    RecordingHost host;
    InspectableRenderer renderer({0.0f, 0.0f, 0.0f}, &host, makeOpenVr());
    ASSERT_EQ(renderer.init(1.0f, 1.0f, true, false), VR::VRGlobals::NoError);
    renderer.eyeCount = 1;
    closeAfterFrames(host, 3, [&] { renderer.closeVR(); });
    EXPECT_EQ(renderer.runRenderLoop(), VR::VRGlobals::NoError);
    joinCloser();
    EXPECT_GE(simvr_submitCount(0), 3u);
    EXPECT_EQ(simvr_submitCount(1), 0u);
}

TEST_F(VRRun, ScreenshotBlurAndDepthStencilReadBack) {
    RecordingHost host;
    InspectableRenderer renderer({0.0f, 0.0f, 0.0f}, &host, makeOpenVr());
    ASSERT_EQ(renderer.init(1.0f, 1.0f, true, false), VR::VRGlobals::NoError);

    // Screenshot: the desktop window's size, four bytes a pixel.
    renderer.createScreenshot(Ko_1_1::Mat4d<float>());
    const auto shots = host.screenshots();
    ASSERT_EQ(shots.size(), 1u);
    EXPECT_EQ(shots[0].width, static_cast<unsigned>(renderer.windowWidth));
    EXPECT_EQ(shots[0].height, 720u);
    EXPECT_EQ(shots[0].rgba.size(), static_cast<size_t>(renderer.windowWidth) * 720u * 4u);

    // A sharp edge in the left eye: black left half, white right half.
    const auto& target = renderer.eyeTargets[0];
    const int w = static_cast<int>(renderer.renderWidth);
    const int h = static_cast<int>(renderer.renderHeight);
    glBindFramebuffer(GL_FRAMEBUFFER, target->getFramebuffer());
    glViewport(0, 0, w, h);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, w / 2, h);
    glClearColor(0, 0, 0, 1);
    glClearStencil(5);
    glStencilMask(0xFF);
    glClear(GL_COLOR_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
    glScissor(w / 2, 0, w - w / 2, h);
    glClearColor(1, 1, 1, 1);
    glClearStencil(200);
    glClear(GL_COLOR_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);

    std::vector<unsigned int> values(static_cast<size_t>(w) * static_cast<size_t>(h));
    renderer.readDepthStencil(values);
    EXPECT_EQ(values[static_cast<size_t>(h / 2 * w + 2)] & 0xFFu, 5u);
    EXPECT_EQ(values[static_cast<size_t>(h / 2 * w + w - 3)] & 0xFFu, 200u);

    glDisable(GL_BLEND);
    renderer.blur(0);
    glEnable(GL_BLEND);
    unsigned char edge[4] = {};
    unsigned char farLeft[4] = {};
    glBindFramebuffer(GL_READ_FRAMEBUFFER, target->getFramebuffer());
    glReadPixels(w / 2, h / 2, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, edge);
    glReadPixels(2, h / 2, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, farLeft);
    EXPECT_GT(edge[0], 40) << "the edge must be softened";
    EXPECT_LT(edge[0], 215) << "the edge must be softened";
    EXPECT_EQ(farLeft[0], 0) << "away from the edge the picture stays as it was";
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));

    renderer.closeVR();
    EXPECT_EQ(renderer.runRenderLoop(), VR::VRGlobals::NoError);
}

TEST_F(VRRun, KeyboardCommands) {
    RecordingHost host;
    InspectableRenderer renderer({0.0f, 0.0f, 0.0f}, &host, makeOpenVr());
    ASSERT_EQ(renderer.init(1.0f, 1.0f, true, false), VR::VRGlobals::NoError);
    std::vector<int> down;
    renderer.setKeyQuery([&](GLFWwindow*, int key) {
        return std::find(down.begin(), down.end(), key) != down.end() ? GLFW_PRESS : GLFW_RELEASE;
    });
    LogCapture log;
    const Ko_1_1::Mat4d<float> view; // identity: the columns are the world axes

    // Held keys act every frame; W and S in the same frame cancel.
    down = {GLFW_KEY_W};
    renderer.handleKeyboard(view, 100.0f);
    renderer.handleKeyboard(view, 100.0f);
    EXPECT_FLOAT_EQ(renderer.cameraPosition.z, -1.0f); // 2 frames x 100 x 0.005
    down = {GLFW_KEY_W, GLFW_KEY_S};
    renderer.handleKeyboard(view, 100.0f);
    EXPECT_FLOAT_EQ(renderer.cameraPosition.z, -1.0f);

    // Turning ignores the step.
    down = {GLFW_KEY_Q};
    renderer.handleKeyboard(view, 0.0f);
    EXPECT_FLOAT_EQ(renderer.viewAngles.z, 0.003f);
    EXPECT_FLOAT_EQ(renderer.cameraPosition.z, -1.0f);

    // Once keys: P held for many frames toggles the pause once.
    down = {GLFW_KEY_P};
    for (int i = 0; i < 5; ++i) {
        renderer.handleKeyboard(view, 1.0f);
    }
    EXPECT_TRUE(renderer.pointGrabber->getPausePC2());
    EXPECT_TRUE(log.contains(L"PC2 paused = true\n"));
    down = {};
    renderer.handleKeyboard(view, 1.0f);
    down = {GLFW_KEY_P};
    renderer.handleKeyboard(view, 1.0f);
    EXPECT_FALSE(renderer.pointGrabber->getPausePC2());

    // The point size has no lower bound.
    for (int i = 0; i < 12; ++i) {
        down = {GLFW_KEY_KP_SUBTRACT};
        renderer.handleKeyboard(view, 1.0f);
        down = {};
        renderer.handleKeyboard(view, 1.0f);
    }
    EXPECT_LT(renderer.pointSize, 0.0f);
    EXPECT_TRUE(log.contains(L"New point size: "));

    // Screenshot key.
    down = {GLFW_KEY_O};
    renderer.handleKeyboard(view, 1.0f);
    EXPECT_EQ(host.count("onScreenshot"), 1);
    EXPECT_TRUE(log.contains(L"Screenshot taken.\n"));

    // Alt+Enter goes full screen and back to the windowed size at (10, 30); Enter before Alt does nothing.
    down = {GLFW_KEY_ENTER};
    renderer.handleKeyboard(view, 1.0f);
    down = {GLFW_KEY_ENTER, GLFW_KEY_LEFT_ALT};
    renderer.handleKeyboard(view, 1.0f);
    EXPECT_FALSE(renderer.fullscreen);
    down = {};
    renderer.handleKeyboard(view, 1.0f);
    down = {GLFW_KEY_ENTER, GLFW_KEY_RIGHT_ALT};
    renderer.handleKeyboard(view, 1.0f);
    EXPECT_TRUE(renderer.fullscreen);
    EXPECT_NE(glfwGetWindowMonitor(renderer.window), nullptr);
    down = {};
    renderer.handleKeyboard(view, 1.0f);
    down = {GLFW_KEY_ENTER, GLFW_KEY_LEFT_ALT};
    renderer.handleKeyboard(view, 1.0f);
    EXPECT_FALSE(renderer.fullscreen);
    EXPECT_EQ(glfwGetWindowMonitor(renderer.window), nullptr);
    int width = 0;
    int height = 0;
    glfwGetWindowSize(renderer.window, &width, &height);
    EXPECT_EQ(width, renderer.windowWidth);
    EXPECT_EQ(height, renderer.windowHeight);

    // Escape ends the run on the frame it is seen.
    down = {GLFW_KEY_ESCAPE};
    EXPECT_EQ(renderer.runRenderLoop(), VR::VRGlobals::NoError);
    EXPECT_EQ(host.count("setViewTransform"), 1);
    EXPECT_EQ(host.count("onVrClosed"), 1);
}

TEST_F(VRRun, ShiftMultipliesTheKeyboardStepByTen) {
    RecordingHost host;
    InspectableRenderer renderer({0.0f, 0.0f, 0.0f}, &host, makeOpenVr());
    ASSERT_EQ(renderer.init(1.0f, 1.0f, true, false), VR::VRGlobals::NoError);
    int shiftKey = 0;
    renderer.setKeyQuery([&](GLFWwindow*, int key) { return key == shiftKey ? GLFW_PRESS : GLFW_RELEASE; });
    EXPECT_FLOAT_EQ(renderer.keyboardSpeedFactor(), 1.0f);
    shiftKey = GLFW_KEY_LEFT_SHIFT;
    EXPECT_FLOAT_EQ(renderer.keyboardSpeedFactor(), 10.0f);
    shiftKey = GLFW_KEY_RIGHT_SHIFT;
    EXPECT_FLOAT_EQ(renderer.keyboardSpeedFactor(), 10.0f);
    renderer.closeVR();
    EXPECT_EQ(renderer.runRenderLoop(), VR::VRGlobals::NoError);
}

TEST_F(VRRun, StreamedPointsReachBothSubmittedEyePictures) {
    RecordingHost host;
    // A red wall two metres in front of whatever camera asks: every query sees it.
    host.pointQuery = [](float, unsigned short, unsigned short, float, float, Ko_1_1::Vec3d<double>,
                         Ko_1_1::Vec3d<double>, Ko_1_1::Vec3d<double>, std::vector<VR::Point3dRGBA>& points) {
        for (int y = -20; y <= 20; ++y) {
            for (int x = -20; x <= 20; ++x) {
                points.push_back({x * 0.02f, y * 0.02f, -2.0f, 255, 0, 0, 255});
            }
        }
    };
    host.pointSize = 4;
    VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
    ASSERT_EQ(manager.init(), VR::VRGlobals::NoError);

    // Runs until both eyes' last pictures show red, or gives up after a generous number of frames.
    auto redIn = [](uint32_t eye) {
        std::vector<uint8_t> rgba(simvr_lastSubmittedPicture(eye, nullptr, nullptr, nullptr, 0));
        simvr_lastSubmittedPicture(eye, nullptr, nullptr, rgba.data(), rgba.size());
        int red = 0;
        for (size_t i = 0; i + 3 < rgba.size(); i += 4) {
            red += (rgba[i] > 200 && rgba[i + 1] < 60 && rgba[i + 2] < 60) ? 1 : 0;
        }
        return red;
    };
    std::atomic<bool> seen{false};
    host.onViewTransform = [&] {
        if (!seen && frameCount++ > 2 && redIn(0) > 0 && redIn(1) > 0) {
            seen = true;
        }
        if ((seen || frameCount > 400) && !closer.joinable()) {
            closer = std::thread([&] { manager.closeVR(); });
        }
    };
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::NoError);
    joinCloser();
    EXPECT_TRUE(seen) << "points streamed from the host never appeared in both eyes";
    EXPECT_GT(host.count("queryPoints"), 1);
}

TEST_F(VRRun, PersistentInitErrorGivesInitializationErrorAfterRetries) {
    const int32_t errors[] = {108, 108, 108, 108, 108, 108, 108, 108, 108, 108, 108, 108};
    simvr_setInitErrors(errors, 12);
    RecordingHost host;
    LogCapture log;
    VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
    EXPECT_EQ(manager.init(), VR::VRGlobals::InitializationError);
    EXPECT_TRUE(log.contains(L"VR Initialization Error: "));
    EXPECT_TRUE(host.calls().empty()) << "no window, no headset kind, no close notice";
}

TEST_F(VRRun, MissingSupersampleSettingKeepsTheRecommendedSize) {
    simvr_removeSupersampleScale();
    RecordingHost host;
    VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
    ASSERT_EQ(manager.init(), VR::VRGlobals::NoError);
    closeAfterFrames(host, 1, [&] { manager.closeVR(); });
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::NoError);
    joinCloser();
    uint32_t width = 0;
    uint32_t height = 0;
    simvr_lastSubmittedPicture(0, &width, &height, nullptr, 0);
    EXPECT_EQ(width, 160u);
    EXPECT_EQ(height, 120u);
}
