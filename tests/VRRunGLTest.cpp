// Whole VR runs against the simulated runtime, reached through the library's own loading path, with a
// recording host. The runtime's control API is linked from the same library file the viewer loads.
#include <GLFW/glfw3.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "engine/GL.h"
#include "engine/Renderer.h"
#include "engine/Target.h"
#include "engine/Texture.h"
#include "simvr/SimVR.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RecordingHost.h"
#include "text/Bitmap.h"
#include "vr/IOpenVR.h"
#include "vr/MinimalOpenVR.h"
#include "vr/VRManager.h"
#include "vr/VRRenderer.h"
#include "vr/VrModelRenderer.h"
#include "vr/points/PointGrabber.h"

using OrvelTest::LogCapture;
using OrvelTest::RecordingHost;

namespace {

// A renderer with its protected parts opened for inspection; still the real renderer. It is never deleted
// through the base, whose destructor is deliberately not virtual.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class InspectableRenderer final : public VR::VRRenderer {
public:
    using VRRenderer::blur;
    using VRRenderer::cameraPosition;
    using VRRenderer::eyeCount;
    using VRRenderer::eyeTargets;
    using VRRenderer::fullscreen;
    using VRRenderer::handleKeyboard;
    using VRRenderer::keyboardSpeedFactor;
    using VRRenderer::openVr;
    using VRRenderer::pointGrabber;
    using VRRenderer::pointSize;
    using VRRenderer::readDepthStencil;
    using VRRenderer::renderer;
    using VRRenderer::renderHeight;
    using VRRenderer::renderWidth;
    using VRRenderer::viewAngles;
    using VRRenderer::VRRenderer;
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
    void TearDown() override {
        joinCloser();
        simvr_reset();
    }

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

std::shared_ptr<IOpenVR> makeOpenVr() {
    return std::make_shared<MinimalOpenVR>();
}

std::vector<uint8_t> submitted(uint32_t eye, uint32_t* width = nullptr, uint32_t* height = nullptr) {
    std::vector<uint8_t> rgba(simvr_lastSubmittedPicture(eye, width, height, nullptr, 0));
    simvr_lastSubmittedPicture(eye, nullptr, nullptr, rgba.data(), rgba.size());
    return rgba;
}

bool isRed(const uint8_t* p) {
    return p[0] > 200 && p[1] < 60 && p[2] < 60;
}

// The mean position of the red pixels of an RGBA picture; x = -1 when there are none.
struct Centroid {
    double x = -1;
    double y = -1;
    int count = 0;
};
Centroid redCentroid(const std::vector<uint8_t>& rgba, uint32_t width) {
    Centroid c;
    double sx = 0;
    double sy = 0;
    for (size_t i = 0; i + 3 < rgba.size(); i += 4) {
        if (isRed(&rgba[i])) {
            sx += static_cast<double>((i / 4) % width);
            sy += static_cast<double>((i / 4) / width);
            ++c.count;
        }
    }
    if (c.count > 0) {
        c.x = sx / c.count;
        c.y = sy / c.count;
    }
    return c;
}

// A host whose scan is a small red square fixed in its world around `centre`, facing along x: each query
// gets the square in the asking camera's frame, as a real host's query would.
void answerWithRedSquare(RecordingHost& host, Ko_1_1::Vec3d<double> centre) {
    host.pointQuery = [centre](float, unsigned short, unsigned short, float, float,
                               Ko_1_1::Vec3d<double> position, Ko_1_1::Vec3d<double> up,
                               Ko_1_1::Vec3d<double> back, std::vector<VR::Point3dRGBA>& points) {
        const Ko_1_1::Vec3d<double> right = up.cross(back);
        for (int i = -3; i <= 3; ++i) {
            for (int j = -3; j <= 3; ++j) {
                const Ko_1_1::Vec3d<double> d =
                    centre + Ko_1_1::Vec3d<double>{0.0, i * 0.004, j * 0.004} - position;
                points.push_back({static_cast<float>(d.dot(right)), static_cast<float>(d.dot(up)),
                                  static_cast<float>(d.dot(back)), 255, 0, 0, 255});
            }
        }
    };
}

// The headset turned 90 degrees to the left (it looks down tracking -x), 1.7 m above the floor.
void turnHeadLeft() {
    const float pose[12] = {0, 0, 1, 0, 0, 1, 0, 1.7f, -1, 0, 0, 0};
    simvr_setDevicePose(0, pose);
}

} // namespace

TEST(VRManager, NullViewAnswersInitializationErrorEverywhere) {
    VR::VRManager manager({0.0f, 0.0f, 0.0f}, nullptr);
    EXPECT_EQ(manager.init(), VR::VRGlobals::InitializationError);
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::InitializationError);
    EXPECT_EQ(manager.closeVR(), VR::VRGlobals::InitializationError);
}

TEST_F(VRRun, MissingRuntimeOrHeadsetOpensNothing) {
    for (const bool installed : {false, true}) {
        simvr_reset();
        simvr_setInstalled(installed ? 1 : 0);
        simvr_setHmdPresent(0);
        RecordingHost host;
        VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
        EXPECT_EQ(manager.init(),
                  installed ? VR::VRGlobals::HmdNotPresent : VR::VRGlobals::RuntimeNotInstalled);
        EXPECT_TRUE(host.calls().empty()) << "nothing may reach the host";
        EXPECT_EQ(glfwGetCurrentContext(), nullptr) << "no window may have been opened";
    }
}

#if !defined(_WIN32)
// A Windows desktop cannot be taken away from a running process, so this failure exists only where the
// display is named by the environment. Without a display the set-up fails with 5 and shuts the runtime down
// again; a host that tries again gets a fresh session, not the one that was shut down.
TEST_F(VRRun, NoDisplayGivesWindowCreationFailedAndATryAgainStartsAfresh) {
    const char* display = std::getenv("DISPLAY");
    ASSERT_NE(display, nullptr);
    const std::string saved = display;
    RecordingHost host;
    LogCapture log;
    VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
    unsetenv("DISPLAY");
    const VR::VRGlobals::ErrorCodes first = manager.init();
    setenv("DISPLAY", saved.c_str(), 1);
    EXPECT_EQ(first, VR::VRGlobals::WindowCreationFailed);
    EXPECT_EQ(log.count(L"ERROR: Could not start GLFW\n"), 1);
    EXPECT_EQ(host.count("onVrClosed"), 0) << "no exception: the host is not told of a close";
    EXPECT_EQ(simvr_isInitialized(), 0) << "a failed set-up must not leave the runtime running";

    ASSERT_EQ(manager.init(), VR::VRGlobals::NoError);
    EXPECT_EQ(simvr_initCount(), 2u);
    EXPECT_EQ(host.count("setHeadsetKind"), 2);
    EXPECT_EQ(manager.closeVR(), VR::VRGlobals::NoError);
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::NoError);
    EXPECT_EQ(host.count("onVrClosed"), 1);
}
#endif

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
    // The recommended size already holds the supersampling setting: the eyes are submitted at that size.
    simvr_setRecommendedSize(200, 150);
    simvr_setSupersampleScale(1.44f);
    RecordingHost host;
    host.pointSize = 0; // a host answering 0 must not stop the streaming
    VR::VRManager manager({1.0f, 2.0f, 3.0f}, &host);
    ASSERT_EQ(manager.init(), VR::VRGlobals::NoError);
    closeAfterFrames(host, 6, [&] { EXPECT_EQ(manager.closeVR(), VR::VRGlobals::NoError); });
    const auto renderThread = std::this_thread::get_id();
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::NoError);
    joinCloser();

    const auto calls = host.calls();
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back().name, "onVrClosed") << "the close notice is the last thing the host hears";
    EXPECT_EQ(host.count("onVrClosed"), 1);
    EXPECT_EQ(host.threadsOf("setViewTransform"), std::vector<std::thread::id>{renderThread});
    EXPECT_EQ(host.threadsOf("getPointSize"), std::vector<std::thread::id>{renderThread});
    const int frames = host.count("setViewTransform");
    EXPECT_GE(frames, 6);
    EXPECT_EQ(host.count("getPointSize"), 2 * frames) << "the point size is asked twice a frame";
    EXPECT_GE(host.count("queryPoints"), 1);
    for (const auto& id : host.threadsOf("queryPoints")) {
        EXPECT_NE(id, renderThread) << "points are queried on the grabber thread";
    }
    const auto transform = host.viewTransforms().front();
    EXPECT_EQ(std::make_tuple(transform[12], transform[13], transform[14]), std::make_tuple(1.0f, 2.0f, 3.0f))
        << "the start position is the translation of the transform the host receives";

    // Both eyes every frame, grey where nothing was drawn (the clear colour 0.5 rounds to 127 or 128).
    EXPECT_EQ(simvr_submitCount(0), static_cast<uint64_t>(frames));
    EXPECT_EQ(simvr_submitCount(1), static_cast<uint64_t>(frames));
    EXPECT_EQ(simvr_submitErrorCount(), 0u);
    for (uint32_t eye = 0; eye < 2; ++eye) {
        uint32_t width = 0;
        uint32_t height = 0;
        const auto rgba = submitted(eye, &width, &height);
        EXPECT_EQ(std::make_pair(width, height), std::make_pair(200u, 150u));
        ASSERT_EQ(rgba.size(), 200u * 150u * 4u);
        EXPECT_NEAR(rgba[0], 128, 1);
        EXPECT_NEAR(rgba[2], 128, 1);
    }
    EXPECT_EQ(simvr_postPresentHandoffCount(), static_cast<uint64_t>(frames));
    EXPECT_EQ(simvr_isInitialized(), 0) << "the runtime is shut down at the end of the run";
}

// A head that is not at the origin nor looking down -z, and a scan fixed in the host's world: a wrong
// matrix order puts the square elsewhere, swapped eyes turn its parallax around. The screenshot key then
// hands the host the mirror picture with the square in it.
TEST_F(VRRun, HeadPoseEyesAndScreenshotShowTheScanWhereItIs) {
    turnHeadLeft();
    RecordingHost host;
    host.pointSize = 3;
    // Start (10, 20, 0); the head 1.7 m up looks down host -x; the square 0.5 m in front of it.
    answerWithRedSquare(host, {9.5, 20.0, 1.7});
    InspectableRenderer renderer({10.0f, 20.0f, 0.0f}, &host, makeOpenVr());
    ASSERT_EQ(renderer.init(1.0f, 1.0f, true, false), VR::VRGlobals::NoError);
    std::atomic<bool> seen{false};
    std::atomic<bool> shot{false};
    renderer.setKeyQuery([&](GLFWwindow*, int key) {
        return (key == GLFW_KEY_O && seen && !shot) ? GLFW_PRESS : GLFW_RELEASE;
    });
    host.onViewTransform = [&] {
        if (++frameCount > 2 && !seen && redCentroid(submitted(0), 160).count > 0 &&
            redCentroid(submitted(1), 160).count > 0) {
            seen = true;
        }
        if (host.count("onScreenshot") > 0) {
            shot = true;
        }
        if ((shot || frameCount > 600) && !closer.joinable()) {
            closer = std::thread([&] { renderer.closeVR(); });
        }
    };
    EXPECT_EQ(renderer.runRenderLoop(), VR::VRGlobals::NoError);
    joinCloser();
    ASSERT_TRUE(seen) << "the square never appeared in both eyes";

    const Centroid left = redCentroid(submitted(0), 160);
    const Centroid right = redCentroid(submitted(1), 160);
    EXPECT_NEAR((left.x + right.x) / 2.0, 80.0, 6.0) << "straight ahead of the head";
    EXPECT_NEAR(left.y, 60.0, 6.0);
    EXPECT_NEAR(right.y, 60.0, 6.0);
    // 0.5 m away, each eye 32 mm off the head's centre: the left eye sees it right of its centre.
    EXPECT_GT(left.x - right.x, 5.0) << "left " << left.x << ", right " << right.x;

    const auto shots = host.screenshots();
    ASSERT_EQ(shots.size(), 1u);
    const auto& s = shots[0];
    ASSERT_EQ(s.rgba.size(), static_cast<size_t>(s.width) * s.height * 4u);
    EXPECT_EQ(std::make_pair(s.width, s.height), std::make_pair(1440u, 720u))
        << "1080 / 720 times the eye's aspect";
    const Centroid mirrored = redCentroid(s.rgba, s.width);
    EXPECT_GT(mirrored.count, 0) << "the screenshot shows the mirror picture";
    EXPECT_NEAR(mirrored.x / s.width, left.x / 160.0, 0.05) << "the left eye stretched over the window";
    EXPECT_NEAR(s.rgba[0], 128, 2) << "grey background in the corner";
}

TEST_F(VRRun, OneEyeSubmitsAndStreamsOnlyTheLeftEye) {
    turnHeadLeft();
    RecordingHost host;
    std::mutex mutex;
    std::vector<Ko_1_1::Vec3d<double>> positions;
    host.pointQuery = [&](float, unsigned short, unsigned short, float, float, Ko_1_1::Vec3d<double> position,
                          Ko_1_1::Vec3d<double>, Ko_1_1::Vec3d<double>,
                          std::vector<VR::Point3dRGBA>& points) {
        std::lock_guard<std::mutex> guard(mutex);
        positions.push_back(position);
        points.push_back({0, 0, -1, 255, 255, 255, 255});
    };
    InspectableRenderer renderer({5.0f, 5.0f, 5.0f}, &host, makeOpenVr());
    ASSERT_EQ(renderer.init(1.0f, 1.0f, true, false), VR::VRGlobals::NoError);
    renderer.eyeCount = 1;
    closeAfterFrames(host, 20, [&] { renderer.closeVR(); });
    EXPECT_EQ(renderer.runRenderLoop(), VR::VRGlobals::NoError);
    joinCloser();
    EXPECT_GE(simvr_submitCount(0), 20u);
    EXPECT_EQ(simvr_submitCount(1), 0u);
    ASSERT_GE(positions.size(), 4u);
    for (const auto& p : positions) {
        // The left eye: 32 mm beside the head at (5, 5, 6.7); never the unset right eye at the origin.
        EXPECT_NEAR((p - Ko_1_1::Vec3d<double>{5.0, 5.0, 6.7}).length(), 0.032, 0.002);
    }
}

TEST_F(VRRun, ExceptionInAFrameEndsTheRunWithFourAndOneCloseNotice) {
    RecordingHost host;
    LogCapture log;
    VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
    ASSERT_EQ(manager.init(), VR::VRGlobals::NoError);
    host.onViewTransform = [] { throw std::runtime_error("host gave up"); };
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::InitializationError);
    EXPECT_EQ(log.count(L"Exception caught: host gave up\n"), 1);
    EXPECT_EQ(host.count("onVrClosed"), 1);
    EXPECT_EQ(simvr_isInitialized(), 0);
    EXPECT_EQ(manager.closeVR(), VR::VRGlobals::NoError) << "a late close request is harmless";
}

// Calls out of turn answer an error; nothing aborts, no second thread starts, the host hears one close.
TEST_F(VRRun, MisuseAnswersAnErrorCode) {
    RecordingHost host;
    VR::VRManager manager({0.0f, 0.0f, 0.0f}, &host);
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::InitializationError) << "without init";
    EXPECT_EQ(host.count("onVrClosed"), 0);
    ASSERT_EQ(manager.init(), VR::VRGlobals::NoError);
    EXPECT_EQ(manager.init(), VR::VRGlobals::InitializationError) << "a second init";
    EXPECT_EQ(manager.closeVR(), VR::VRGlobals::NoError);
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::NoError);
    EXPECT_EQ(manager.runRenderLoop(), VR::VRGlobals::InitializationError) << "a second run";
    EXPECT_EQ(manager.init(), VR::VRGlobals::InitializationError) << "no restart after the run";
    EXPECT_EQ(host.count("onVrClosed"), 1);
    EXPECT_EQ(host.count("setHeadsetKind"), 1);
}

// The run ends by itself (Escape) while another thread keeps asking it to close, before, during and after
// the teardown.
TEST_F(VRRun, CloseFromAnotherThreadWhileTheRunEndsByItself) {
    for (int round = 0; round < 3; ++round) {
        RecordingHost host;
        InspectableRenderer renderer({0.0f, 0.0f, 0.0f}, &host, makeOpenVr());
        ASSERT_EQ(renderer.init(1.0f, 1.0f, true, false), VR::VRGlobals::NoError);
        // Escape in frame 5; the other thread starts asking in frame 3, 4 or 5 and goes on past the end.
        std::atomic<int> frames{0};
        renderer.setKeyQuery([&](GLFWwindow*, int key) {
            return key == GLFW_KEY_ESCAPE && frames >= 5 ? GLFW_PRESS : GLFW_RELEASE;
        });
        std::atomic<bool> done{false};
        std::thread hammer;
        host.onViewTransform = [&] {
            if (++frames == 3 + round) {
                hammer = std::thread([&] {
                    while (!done) {
                        renderer.closeVR();
                    }
                    renderer.closeVR();
                });
            }
        };
        EXPECT_EQ(renderer.runRenderLoop(), VR::VRGlobals::NoError);
        done = true;
        if (hammer.joinable()) {
            hammer.join();
        }
        EXPECT_GE(frames, 3 + round);
        EXPECT_EQ(host.count("onVrClosed"), 1);
    }
}

// A host may open VR, close it and open it again in one process. The second run makes its own programs,
// and the first run's controller model goes with the first run's context, not into the host's.
TEST_F(VRRun, TwoRunsInOneProcessBothDrawControllers) {
    for (int run = 0; run < 2; ++run) {
        SCOPED_TRACE(testing::Message() << "run " << run + 1);
        RecordingHost host;
        auto renderer = std::make_unique<InspectableRenderer>(Ko_1_1::Vec3d<float>{0.0f, 0.0f, 0.0f}, &host,
                                                              makeOpenVr());
        ASSERT_EQ(renderer->init(1.0f, 1.0f, true, false), VR::VRGlobals::NoError);
        renderer->openVr->updateControllerRole(1);
        VR::VrModelRenderer* model = renderer->openVr->getControllerModel(true);
        ASSERT_NE(model, nullptr);

        // The model drawn over the whole left eye target (its own texture, through the shared program).
        renderer->renderer.setTarget(renderer->eyeTargets[0]);
        glViewport(0, 0, static_cast<GLsizei>(renderer->renderWidth),
                   static_cast<GLsizei>(renderer->renderHeight));
        glClearColor(0, 0, 0, 1);
        glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        model->draw(renderer->renderer,
                    Ko_1_1::Mat4d<float>{20, 0, 0, 0, 0, 20, 0, 0, 0, 0, 0.5f, 0, 0, 0, 0, 1});
        EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
        std::vector<uint8_t> pixels(static_cast<size_t>(renderer->renderWidth) * renderer->renderHeight * 4);
        glReadPixels(0, 0, static_cast<GLsizei>(renderer->renderWidth),
                     static_cast<GLsizei>(renderer->renderHeight), GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
        EXPECT_TRUE(std::any_of(pixels.begin(), pixels.end(), [](uint8_t v) { return v > 0 && v < 255; }))
            << "the controller model drew nothing";
        glBindFramebuffer(GL_FRAMEBUFFER, 0);

        renderer->closeVR();
        EXPECT_EQ(renderer->runRenderLoop(), VR::VRGlobals::NoError);

        // The host's own context, current when the renderer is destroyed, keeps every one of its objects.
        ASSERT_TRUE(glfwInit());
        glfwWindowHint(GLFW_VISIBLE, GLFW_FALSE);
        GLFWwindow* hostWindow = glfwCreateWindow(32, 32, "host", nullptr, nullptr);
        ASSERT_NE(hostWindow, nullptr);
        glfwMakeContextCurrent(hostWindow);
        GLuint textures[32];
        GLuint buffers[32];
        GLuint programs[16];
        glGenTextures(32, textures);
        glGenBuffers(32, buffers);
        for (int i = 0; i < 32; ++i) {
            glBindTexture(GL_TEXTURE_2D, textures[i]);
            glBindBuffer(GL_ARRAY_BUFFER, buffers[i]);
        }
        for (GLuint& program : programs) {
            program = glCreateProgram();
        }
        renderer.reset();
        for (int i = 0; i < 32; ++i) {
            EXPECT_EQ(glIsTexture(textures[i]), GL_TRUE) << "host texture " << textures[i] << " was deleted";
            EXPECT_EQ(glIsBuffer(buffers[i]), GL_TRUE) << "host buffer " << buffers[i] << " was deleted";
        }
        for (GLuint program : programs) {
            EXPECT_EQ(glIsProgram(program), GL_TRUE) << "host program " << program << " was deleted";
            glDeleteProgram(program);
        }
        glDeleteTextures(32, textures);
        glDeleteBuffers(32, buffers);
        glfwDestroyWindow(hostWindow);
        glfwTerminate();
    }
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
    // The view's columns are its axes; a rotated view shows that keys follow it, not the world.
    const Ko_1_1::Mat4d<float> view = Ko_1_1::Mat4d<float>::rotation({0.0f, 0.0f, 1.0f}, 1.5707964f);
    const Ko_1_1::Vec3d<float> x = view.column(0);
    const Ko_1_1::Vec3d<float> y = view.column(1);
    const Ko_1_1::Vec3d<float> z = view.column(2);

    // Held keys act every frame by step x 0.005; turning ignores the step.
    struct Held {
        int key;
        Ko_1_1::Vec3d<float> move;
        float turn;
    };
    const Held held[] = {{GLFW_KEY_W, z * -1.0f, 0},      {GLFW_KEY_S, z, 0},
                         {GLFW_KEY_A, x * -1.0f, 0},      {GLFW_KEY_D, x, 0},
                         {GLFW_KEY_F, y * -1.0f, 0},      {GLFW_KEY_R, y, 0},
                         {GLFW_KEY_Q, {0, 0, 0}, 0.003f}, {GLFW_KEY_E, {0, 0, 0}, -0.003f}};
    for (const Held& h : held) {
        SCOPED_TRACE(testing::Message() << "key " << h.key);
        const Ko_1_1::Vec3d<float> before = renderer.cameraPosition;
        const float angle = renderer.viewAngles.z;
        down = {h.key};
        renderer.handleKeyboard(view, 100.0f);
        renderer.handleKeyboard(view, 100.0f);
        const Ko_1_1::Vec3d<float> moved = renderer.cameraPosition - before;
        EXPECT_NEAR((moved - h.move).length(), 0.0f, 1e-5f);
        EXPECT_FLOAT_EQ(renderer.viewAngles.z - angle, 2.0f * h.turn);
    }
    down = {GLFW_KEY_W, GLFW_KEY_S};
    const Ko_1_1::Vec3d<float> before = renderer.cameraPosition;
    renderer.handleKeyboard(view, 100.0f);
    EXPECT_NEAR((renderer.cameraPosition - before).length(), 0.0f, 1e-6f) << "opposite keys cancel";

    // Once keys act on the press only, however long they are held.
    auto press = [&](std::vector<int> keys, int frames = 3) {
        down = {};
        renderer.handleKeyboard(view, 1.0f);
        down = std::move(keys);
        for (int i = 0; i < frames; ++i) {
            renderer.handleKeyboard(view, 1.0f);
        }
    };
    press({GLFW_KEY_P});
    EXPECT_TRUE(renderer.pointGrabber->getPausePC2());
    EXPECT_EQ(log.count(L"PC2 paused = true\n"), 1);
    press({GLFW_KEY_P});
    EXPECT_FALSE(renderer.pointGrabber->getPausePC2());
    EXPECT_EQ(log.count(L"PC2 paused = false\n"), 1);
    const float size = renderer.pointSize;
    press({GLFW_KEY_KP_ADD});
    EXPECT_FLOAT_EQ(renderer.pointSize, size + 0.1f);
    press({GLFW_KEY_KP_SUBTRACT});
    press({GLFW_KEY_KP_SUBTRACT});
    EXPECT_FLOAT_EQ(renderer.pointSize, size - 0.1f);
    EXPECT_EQ(log.count(L"New point size: "), 3);
    press({GLFW_KEY_O});
    EXPECT_EQ(host.count("onScreenshot"), 1);
    EXPECT_EQ(log.count(L"Screenshot taken.\n"), 1);

    // Alt+Enter goes full screen and back to the windowed size; Enter before Alt does nothing.
    press({GLFW_KEY_ENTER}, 1);
    down = {GLFW_KEY_ENTER, GLFW_KEY_LEFT_ALT};
    renderer.handleKeyboard(view, 1.0f);
    EXPECT_FALSE(renderer.fullscreen);
    press({GLFW_KEY_ENTER, GLFW_KEY_RIGHT_ALT});
    EXPECT_TRUE(renderer.fullscreen);
    EXPECT_NE(glfwGetWindowMonitor(renderer.window), nullptr);
    press({GLFW_KEY_ENTER, GLFW_KEY_LEFT_ALT});
    EXPECT_FALSE(renderer.fullscreen);
    EXPECT_EQ(glfwGetWindowMonitor(renderer.window), nullptr);
    int width = 0;
    int height = 0;
    glfwGetWindowSize(renderer.window, &width, &height);
    EXPECT_EQ(std::make_pair(width, height), std::make_pair(renderer.windowWidth, renderer.windowHeight));

    // Shift multiplies the step by ten.
    EXPECT_FLOAT_EQ(renderer.keyboardSpeedFactor(), 1.0f);
    for (int shift : {GLFW_KEY_LEFT_SHIFT, GLFW_KEY_RIGHT_SHIFT}) {
        down = {shift};
        EXPECT_FLOAT_EQ(renderer.keyboardSpeedFactor(), 10.0f);
    }

    // Escape ends the run on the frame it is seen.
    down = {GLFW_KEY_ESCAPE};
    EXPECT_EQ(renderer.runRenderLoop(), VR::VRGlobals::NoError);
    EXPECT_EQ(host.count("setViewTransform"), 1);
    EXPECT_EQ(host.count("onVrClosed"), 1);
}

// Blur and depth-stencil read-back in the frame loop's own GL state: blending on, a background whose
// alpha is 0.
TEST_F(VRRun, BlurSoftensOverTheBackgroundAndReadBackCoversTheTarget) {
    RecordingHost host;
    InspectableRenderer renderer({0.0f, 0.0f, 0.0f}, &host, makeOpenVr());
    ASSERT_EQ(renderer.init(1.0f, 1.0f, true, false), VR::VRGlobals::NoError);
    ASSERT_EQ(glIsEnabled(GL_BLEND), GL_TRUE);

    // Left half background (grey, alpha 0, stencil 5), right half white (stencil 200).
    const auto& target = renderer.eyeTargets[0];
    const int w = static_cast<int>(renderer.renderWidth);
    const int h = static_cast<int>(renderer.renderHeight);
    ASSERT_EQ(std::make_pair(target->getColorBuffer()->getWidth(), target->getColorBuffer()->getHeight()),
              std::make_pair(w, h));
    glBindFramebuffer(GL_FRAMEBUFFER, target->getFramebuffer());
    glViewport(0, 0, w, h);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, w / 2, h);
    glClearColor(0.5f, 0.5f, 0.5f, 0.0f);
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
    EXPECT_EQ(values.front() & 0xFFu, 5u);
    EXPECT_EQ(values.back() & 0xFFu, 200u) << "the last pixel of the whole target";

    renderer.blur(0);
    EXPECT_EQ(glIsEnabled(GL_BLEND), GL_TRUE) << "blending is given back";
    unsigned char nearEdge[4] = {};
    unsigned char farLeft[4] = {};
    glBindFramebuffer(GL_READ_FRAMEBUFFER, target->getFramebuffer());
    glReadPixels(w / 2 - 1, h / 2, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, nearEdge);
    glReadPixels(2, h / 2, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, farLeft);
    // Five taps across the edge: three grey, two white.
    EXPECT_NEAR(nearEdge[0], 0.7 * 255, 6) << "the background beside the edge takes the average";
    EXPECT_NEAR(farLeft[0], 128, 1);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));

    renderer.closeVR();
    EXPECT_EQ(renderer.runRenderLoop(), VR::VRGlobals::NoError);
}

// Whole runs with a host that has measurements, annotations, meshes and a tablet page: what each object
// draws into the submitted eye pictures, and the stencil value it leaves there.
namespace {

constexpr int WIDTH = 320;
constexpr int HEIGHT = 240;

// One frame's left eye: colour as submitted (rows bottom-up) and the stencil the frame left in the target.
struct EyePicture {
    std::vector<uint8_t> rgba;
    std::vector<unsigned> depthStencil;

    unsigned stencil(int x, int y) const { return depthStencil[static_cast<size_t>(y * WIDTH + x)] & 0xFFu; }
    const uint8_t* pixel(int x, int y) const { return &rgba[static_cast<size_t>(y * WIDTH + x) * 4]; }
    int countStencil(unsigned value) const {
        int n = 0;
        for (unsigned v : depthStencil) {
            n += (v & 0xFFu) == value ? 1 : 0;
        }
        return n;
    }
    // The pixels whose stencil is `value`, averaged.
    std::array<double, 3> meanColour(unsigned value) const {
        std::array<double, 3> sum{};
        int n = 0;
        for (int i = 0; i < WIDTH * HEIGHT; ++i) {
            if ((depthStencil[static_cast<size_t>(i)] & 0xFFu) == value) {
                for (int c = 0; c < 3; ++c) {
                    sum[static_cast<size_t>(c)] += rgba[static_cast<size_t>(i) * 4 + static_cast<size_t>(c)];
                }
                ++n;
            }
        }
        for (double& c : sum) {
            c = n > 0 ? c / n : -1.0;
        }
        return sum;
    }
};

// Larger eyes than the other runs: objects need some pixels to be told apart.
class HostObjectsRun : public VRRun {
protected:
    void SetUp() override {
        VRRun::SetUp();
        simvr_setRecommendedSize(WIDTH, HEIGHT);
    }

    // Runs frames until `done` says so for the left eye's last picture (or 600 frames went by), then closes.
    EyePicture runUntil(RecordingHost& host, const std::function<bool(const EyePicture&, int frame)>& done) {
        InspectableRenderer renderer({0.0f, 0.0f, 0.0f}, &host, std::make_shared<MinimalOpenVR>());
        EXPECT_EQ(renderer.init(1.0f, 1.0f, true, false), VR::VRGlobals::NoError);
        EyePicture last;
        int frame = 0;
        host.onViewTransform = [&] {
            // At the start of a frame the left target still holds the previous frame's picture.
            if (++frame < 3) {
                return;
            }
            EyePicture picture;
            picture.depthStencil.resize(static_cast<size_t>(WIDTH * HEIGHT));
            glBindFramebuffer(GL_READ_FRAMEBUFFER, renderer.eyeTargets[0]->getFramebuffer());
            renderer.readDepthStencil(picture.depthStencil);
            glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
            picture.rgba.resize(simvr_lastSubmittedPicture(0, nullptr, nullptr, nullptr, 0));
            simvr_lastSubmittedPicture(0, nullptr, nullptr, picture.rgba.data(), picture.rgba.size());
            last = picture;
            if (done(last, frame) || frame > 600) {
                renderer.closeVR();
            }
        };
        EXPECT_EQ(renderer.runRenderLoop(), VR::VRGlobals::NoError);
        return last;
    }
};

// The head stands at (0, 0, 1.7) in the host's world and looks down +y.
VR::MeasurementData measurementAhead() {
    return {{{-0.4f, 2.0f, 1.75f}, {0.4f, 2.0f, 1.75f}}, "m-ahead"};
}

TEST_F(HostObjectsRun, StoredMeasurementsAndAnnotationsAreDrawnWithTheirStencil) {
    RecordingHost host;
    host.setObjects({{{{-0.5f, 3.0f, 1.0f}, {-0.4f, 3.0f, 1.0f}}, "m-low"}, measurementAhead()},
                    {{{0.5, 2.5, 1.5}, "测量点 A", "a-right"}});
    const EyePicture picture = runUntil(
        host, [](const EyePicture& p, int) { return p.countStencil(4) > 0 && p.countStencil(128) > 0; });
    ASSERT_GT(picture.countStencil(4), 20) << "the second measurement (stencil 3 + 1) is where it projects";
    ASSERT_GT(picture.countStencil(128), 20) << "the annotation (stencil 128 + 0)";
    EXPECT_GT(host.count("getMeasurements"), 0);

    // The measurement runs across the middle of the view, 2 m ahead: on both sides of the centre.
    int sides[2] = {0, 0};
    for (int i = 0; i < WIDTH * HEIGHT; ++i) {
        sides[i % WIDTH < WIDTH / 2 ? 0 : 1] +=
            (picture.depthStencil[static_cast<size_t>(i)] & 0xFFu) == 4 ? 1 : 0;
    }
    EXPECT_GT(std::min(sides[0], sides[1]), 5);
}

TEST_F(HostObjectsRun, PendingMeasurementReplacesTheToolsMeasurement) {
    RecordingHost host;
    // As a real host does, the refined measurement is in the host's list too: the list the object grabber
    // fetches next must not take it away again.
    host.setPendingMeasurement(measurementAhead());
    host.setObjects({measurementAhead()}, {});
    const EyePicture picture = runUntil(host, [](const EyePicture& p, int) { return p.countStencil(3) > 0; });
    EXPECT_GT(picture.countStencil(3), 20) << "the refined measurement is shown as stored measurement 0";
    EXPECT_EQ(host.count("getPendingMeasurement"), 1);
    EXPECT_EQ(host.count("clearPendingMeasurement"), 1);
}

TEST_F(HostObjectsRun, MeshesAreLitAndHiddenWhenTheHostSaysSo) {
    for (const bool visible : {true, false}) {
        SCOPED_TRACE(visible ? "visible" : "hidden");
        RecordingHost host;
        host.meshVisible = visible;
        VR::MeshData wall;
        // A green wall 3 m ahead across the whole view.
        wall.positions = {{-5.0f, 3.0f, -2.0f}, {5.0f, 3.0f, -2.0f}, {-5.0f, 3.0f, 5.0f}, {5.0f, 3.0f, 5.0f}};
        wall.colors = {{0, 200, 0}, {0, 200, 0}, {0, 200, 0}, {0, 200, 0}};
        wall.indices = {0, 1, 2, 1, 3, 2};
        wall.mode = 4;
        host.meshes = {wall};
        const EyePicture picture = runUntil(host, [](const EyePicture&, int frame) { return frame > 5; });
        if (!visible) {
            EXPECT_EQ(picture.countStencil(2), 0);
            continue;
        }
        EXPECT_GT(picture.countStencil(2), WIDTH * HEIGHT / 2) << "the wall fills the view";
        const uint8_t* centre = picture.pixel(WIDTH / 2, HEIGHT / 2);
        EXPECT_GT(centre[1], 40) << "lit green";
        EXPECT_GT(centre[1], centre[0] + 20);
        EXPECT_GT(centre[1], centre[2] + 20);
    }
}

TEST_F(HostObjectsRun, TabletShowsTheHostsPageInTheLeftHand) {
    RecordingHost host;
    // BGRA, one colour: blue 200, green 50, red 10.
    std::vector<unsigned char> page(64 * 64 * 4);
    for (size_t i = 0; i < page.size(); i += 4) {
        page[i] = 200;
        page[i + 1] = 50;
        page[i + 2] = 10;
        page[i + 3] = 255;
    }
    host.setPage(page, 64, 64);
    const EyePicture picture =
        runUntil(host, [](const EyePicture& p, int) { return p.countStencil(192) > 100; });
    ASSERT_GT(picture.countStencil(192), 100) << "the tablet is in view below left";
    const auto colour = picture.meanColour(192);
    EXPECT_NEAR(colour[0], 10, 25);
    EXPECT_NEAR(colour[1], 50, 25);
    EXPECT_NEAR(colour[2], 200, 25);
}

} // namespace

namespace {

// Damaged host objects are shown as far as they can be, or skipped with a line in the log; the run goes on.
TEST_F(HostObjectsRun, DamagedObjectsNeverEndTheRun) {
    RecordingHost host;
    LogCapture log;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    host.setObjects({{{{nan, 2.0f, 1.7f}, {0.4f, 2.0f, 1.75f}}, "m-nan"},
                     {{{0.0f, 2.0f, 1.0f}}, "m-one"},
                     measurementAhead()},
                    {{{0.3, 2.5, 1.5}, "bad \xC3\x28 text", "a-bad"}});
    VR::MeshData outOfRange;
    outOfRange.positions = {{0, 2, 1}, {1, 2, 1}, {0, 2, 2}};
    outOfRange.indices = {0, 1, 7};
    VR::MeshData threeBytes = outOfRange;
    threeBytes.indices = {0, 1, 2};
    threeBytes.texCoords = {{0, 0}, {1, 0}, {0, 1}};
    threeBytes.texture = std::make_shared<Bitmap>(2, 2, 3, std::vector<unsigned char>(12, 200));
    host.meshes = {outOfRange, threeBytes};
    host.meshVisible = true;
    const EyePicture picture =
        runUntil(host, [](const EyePicture& p, int) { return p.countStencil(128) > 0; });
    EXPECT_GT(picture.countStencil(5), 20) << "the sound measurement after the damaged ones is drawn";
    EXPECT_GT(picture.countStencil(128), 20) << "the annotation shows its text with the bad bytes replaced";
    EXPECT_EQ(picture.countStencil(2), 0) << "both damaged meshes were skipped";
    EXPECT_EQ(log.count(L"Mesh with an index beyond its vertices skipped\n"), 1);
    EXPECT_EQ(log.count(L"Mesh with a texture that is not four bytes a pixel skipped\n"), 1);
    EXPECT_EQ(log.count(L"Exception caught"), 0);
}

} // namespace
