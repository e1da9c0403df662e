#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/IVRView.h"
#include "common/Mat4d.h"
#include "common/Vec3d.h"
#include "engine/Renderer.h"
#include "platform/Export.h"
#include "vr/RunStatistics.h"
#include "vr/VRGlobals.h"

struct GLFWwindow;
class AnnotationController;
class CameraAnimationVR;
class HTMLView;
class IOpenVR;
class ITreadmill;
class LabelRenderer;
class MeasurementController;
class MeshRenderer;
class Object3dGrabber;
class PointRenderer;

namespace Brume {
class Geometry;
class Material;
class Target;
} // namespace Brume

namespace VR {

class PointGrabber;
class LaserBeam;
class RunRecorder;
class TimedHostView;
class TeleportRenderer;

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

// Owns everything a VR run needs: the OpenVR access object, the desktop mirror window with its GL
// context, the eye targets, the scene objects and the worker threads. `init` and `runRenderLoop` must run
// on the same thread, which becomes the render thread; `closeVR` may be called from any thread.
// renderScene is the class's only virtual operation; the destructor is deliberately not virtual so the
// virtual table keeps that single slot (the manager owns and deletes the concrete type).
class ORVEL_VR_EXPORT VRRenderer {
public:
    static const unsigned defaultWindowWidth = 1280;
    static const unsigned defaultWindowHeight = 720;
    static const unsigned defaultFramebufferWidth = 1500;
    static const unsigned defaultFramebufferHeight = 1500;

    // Reads the state of a key of the desktop window; glfwGetKey unless replaced.
    using KeyQuery = std::function<int(GLFWwindow* window, int key)>;

    VRRenderer(Ko_1_1::Vec3d<float> startPosition, IVRView* view, std::shared_ptr<IOpenVR> openVr);
    ~VRRenderer();
    VRRenderer(const VRRenderer&) = delete;
    VRRenderer& operator=(const VRRenderer&) = delete;

    VRGlobals::ErrorCodes init(float sizeScale, float secondScale, bool option, bool secondOption);
    VRGlobals::ErrorCodes runRenderLoop();
    // Only raises the close flag; the frame loop ends at the top of its next frame. Safe from any thread at
    // any moment, also before init and after the run has ended.
    void closeVR();

    // Replaces the key query used by the keyboard commands (automation, remote input).
    void setKeyQuery(KeyQuery query);

    // The run's figures so far; any thread, at any moment (zeros before the run).
    RunStatistics getStatistics() const;

protected:
    virtual void renderScene(const Ko_1_1::Mat4d<float>& viewProjection, int eye);

    void updateVRMatrices(float* headAngularVelocity);
    // headWorld: the head's pose in the world; headTracking: the head's pose in tracking space.
    void handleControllers(const Ko_1_1::Mat4d<float>& headWorld, const Ko_1_1::Mat4d<float>& headTracking);
    void handleLeftController(float move, float turn);
    void handleRightController(bool triggerPressed, bool primaryPressed, bool gripPressed, float trigger,
                               const Ko_1_1::Mat4d<float>& headWorld,
                               const Ko_1_1::Mat4d<float>& headTracking);
    // Casts the picking ray along the controller's -z axis. True when it hit anything drawn; hitPoint is
    // then where, stencil what (0 when the hit has no stencil of its own), hitIsWall whether the surface
    // around a point or mesh hit is steep.
    bool sendRay(const Ko_1_1::Mat4d<float>& controllerMatrix, Ko_1_1::Vec3d<float>& hitPoint,
                 bool& hitIsWall, unsigned char& stencil);
    // Draws everything pickable into the picking target with its stencil value; pointSize is the size of
    // scan points in that pass.
    void renderSceneForController(const Ko_1_1::Mat4d<float>& viewMatrix,
                                  const Ko_1_1::Mat4d<float>& projection, float pointSize);
    // Moves the user by this frame's share of the treadmill's walking speed.
    void applyTreadmill();
    // The tablet's pose in the world, held by the left controller.
    Ko_1_1::Mat4d<float> tabletPose() const;
    void drawControllers(const Ko_1_1::Mat4d<float>& viewProjection);
    void updateFromAnimations();
    void handleKeyboard(const Ko_1_1::Mat4d<float>& view, float step);
    bool glfwGetKeyOnce(GLFWwindow* window, int key);
    // 10 while either shift key is held, else 1.
    float keyboardSpeedFactor() const;

    void createScreenshot(const Ko_1_1::Mat4d<float>& view);
    void blur(int eye);
    void readDepthStencil(std::vector<unsigned int>& values) const;
    void clearFrameBuffer(int eye);
    void duplicateFramebufferToWindow();

    // The user's world transform from cameraPosition and viewAngles (tracking space -> host world).
    void updateCameraTransform();
    // A model of the models folder, read by the host; an empty geometry when the host cannot read it.
    std::shared_ptr<Brume::Geometry> loadMesh(const std::string& fileName);
    // Takes over the host's measurements and annotations when the object grabber has new ones.
    void takeOverObjects();
    // The measurement the host finished refining replaces the tool's measurement in progress.
    void takeOverPendingMeasurement();
    // An eye's camera-to-world matrix for the point grabber, with the head turned by lookAhead.
    Ko_1_1::Mat4d<float> streamedCamera(int eye, const Ko_1_1::Mat4d<float>& lookAhead) const;

    // CPU time the render thread has spent inside the host's view.
    std::int64_t hostCpuNanoseconds() const;

    bool createWindow();
    void createSceneObjects();
    void stopGrabbers();
    // Releases every GL object while the context is still current.
    void shutdownGL();
    // Stops the threads, shuts the runtime down and closes the window; teardown also tells the host.
    void releaseResources();
    void teardown();

    // Constructed until init succeeds, Ready until the loop starts, Closed once it has ended: init and
    // runRenderLoop out of turn answer InitializationError instead of starting threads twice or telling the
    // host of a second close.
    enum class RunState { Constructed, Ready, Running, Closed };

    bool vrEnabled = true;
    int eyeCount = 2;
    std::shared_ptr<IOpenVR> openVr;
    GLFWwindow* window = nullptr;
    // The host's view as the library calls it: through hostView, which times the render thread's calls.
    IVRView* view;
    // Declared before everything that calls the host or records, so both outlive them.
    std::unique_ptr<TimedHostView> hostView;
    std::unique_ptr<RunRecorder> recorder;
    std::atomic<RunState> state{RunState::Constructed};
    // Raised by closeVR from any thread; only the render thread touches the window.
    std::atomic<bool> closeRequested{false};
    std::thread::id renderThread;

    // Duration in seconds of every camera glide (teleports, the host's fly-to requests).
    float teleportAnimationTime = 0.05f;
    std::unique_ptr<PointGrabber> pointGrabber;
    std::unique_ptr<Object3dGrabber> objectGrabber;
    std::shared_ptr<PointRenderer> pointRenderer;
    std::shared_ptr<LabelRenderer> infoLabel;
    std::shared_ptr<HTMLView> htmlView;
    std::shared_ptr<MeasurementController> measurementController;
    std::shared_ptr<AnnotationController> annotationController;
    std::shared_ptr<MeshRenderer> meshRenderer;
    std::shared_ptr<TeleportRenderer> teleportRenderer;
    std::shared_ptr<LaserBeam> laserBeam;
    std::shared_ptr<CameraAnimationVR> currentAnimation;
    std::shared_ptr<ITreadmill> treadmill;
    // The beam model of the pointing controller, read by the host at set-up.
    std::shared_ptr<Brume::Geometry> cylinderGeometry;

    unsigned renderWidth = defaultFramebufferWidth;
    unsigned renderHeight = defaultFramebufferHeight;
    float renderScale = 1.0f;
    bool firstOption = false;
    bool secondOption = false;
    int windowHeight = static_cast<int>(defaultWindowHeight);
    int windowWidth = static_cast<int>(defaultWindowWidth);

    Ko_1_1::Mat4d<float> headPose;
    Ko_1_1::Mat4d<float> leftEyeToHead;
    Ko_1_1::Mat4d<float> rightEyeToHead;
    Ko_1_1::Mat4d<float> leftProjection;
    Ko_1_1::Mat4d<float> rightProjection;
    Ko_1_1::Mat4d<float> cameraTransform;
    // World poses of the hand controllers, written every frame in which they are tracked.
    Ko_1_1::Mat4d<float> leftControllerMatrix;
    Ko_1_1::Mat4d<float> rightControllerMatrix;
    // Set once a controller was tracked in this run: a lost controller stays where it was last seen.
    bool leftControllerSeen = false;
    bool rightControllerSeen = false;

    // Pointing and teleporting.
    int pickTargetSize = 160;
    std::shared_ptr<Brume::Target> pickTarget;
    std::vector<unsigned int> pickValues;
    std::vector<Ko_1_1::Vec3d<double>> pickSurface;
    // The device handled as the pointing controller, and where the user stood when the frame began.
    unsigned pointingDevice = 0;
    Ko_1_1::Vec3d<float> frameStartPosition;
    // The measurement or annotation under the ray this frame; empty otherwise.
    std::string selectedUuid;
    bool hitIsWall = false;
    bool pointerActive = false;
    bool teleportActive = false;
    // Where the tablet sits relative to the left controller.
    Ko_1_1::Mat4d<float> tabletOffset;
    // The current eye pass's matrices, for the objects that build their geometry per eye.
    Ko_1_1::Mat4d<float> eyeWorldToHead;
    Ko_1_1::Mat4d<float> eyeHeadToEye;
    Ko_1_1::Mat4d<float> eyeProjection;
    Ko_1_1::Mat4d<float> viewRotation;
    Ko_1_1::Mat4d<float> viewTranslation;
    Ko_1_1::Mat4d<float> trackingToHostRotation;

    Ko_1_1::Vec3d<float> cameraPosition;
    Ko_1_1::Vec3d<float> viewAngles;
    float moveSpeed = 0.005f;
    float pointSize = 1.0f;
    float pointSizeFactor = 1.0f;
    std::uint16_t pointResolution = 1300;
    bool fullscreen = false;
    std::array<unsigned char, 349> keyOnceState{};
    KeyQuery keyQuery;

    Brume::Renderer renderer;
    std::array<std::shared_ptr<Brume::Target>, 2> eyeTargets;
    std::shared_ptr<Brume::Target> blurTarget;
    std::shared_ptr<Brume::Material> blurMaterial;
    std::shared_ptr<Brume::Geometry> fullScreenQuad;
    std::shared_ptr<Brume::Material> pointMaterial;
    std::shared_ptr<Brume::Geometry> pointGeometry;
    bool blurEyes = false;
    bool flyToRejectionLogged = false;
};

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

} // namespace VR
