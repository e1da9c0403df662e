#include "vr/VRRenderer.h"

#include "vr/IOpenVR.h"
#include "vr/RunRecorder.h"
#include "vr/SharedMaterials.h"
#include "vr/TimedHostView.h"
#include "vr/VrModelRenderer.h"
#include "vr/input/CameraAnimationVR.h"
#include "vr/input/ControllerInput.h"
#include "vr/input/LaserBeam.h"
#include "vr/input/TeleportRenderer.h"
#include "vr/input/Treadmill.h"
#include "vr/objects/AnnotationController.h"
#include "vr/objects/HTMLView.h"
#include "vr/objects/LabelRenderer.h"
#include "vr/objects/MeasurementController.h"
#include "vr/objects/MeshRenderer.h"
#include "vr/objects/Object3dGrabber.h"
#include "vr/openvr/OpenVRTypes.h"

#include <GLFW/glfw3.h>

#include <cmath>
#include <exception>
#include <mutex>
#include <string>

#include "engine/Buffer.h"
#include "engine/GL.h"
#include "engine/GLFunctions.h"
#include "engine/Geometry.h"
#include "engine/Material.h"
#include "engine/Target.h"
#include "engine/Texture.h"
#include "platform/Log.h"
#include "platform/Platform.h"
#include "platform/Utf.h"
#include "vr/LibrarySettings.h"
#include "vr/points/PointGrabber.h"
#include "vr/points/PointRenderer.h"

namespace VR {

namespace {

constexpr float NEAR_Z = -0.2f;
constexpr float FAR_Z = -1000.0f;
constexpr float HALF_PI = 1.5707964f;
// Width in pixels of measurement lines; annotation arrows are twice as wide.
constexpr float LINE_WIDTH = 3.0f;
constexpr float PI = 3.1415927f;
constexpr float TWO_PI = 6.2831855f;
// The picking camera: a narrow frustum along the controller's axis.
constexpr float PICK_NEAR_Z = -0.01f;
constexpr float PICK_FAR_Z = -1000.0f;
constexpr float PICK_FIELD_OF_VIEW = 0.1f;
constexpr float PICK_POINT_SIZE = 5.0f;
// Rounded so that the largest 24-bit depth, the cleared background, comes out as exactly 1 in float.
constexpr float DEPTH_SCALE = 5.960465e-08f;
// Hit kinds reported to the host.
constexpr int HIT_NOTHING = 0;
constexpr int HIT_POINTS = 1;
constexpr int HIT_MESH = 2;
constexpr int HIT_MEASUREMENT = 5;
constexpr int HIT_ANNOTATION = 6;

// Input state shared by every renderer of the process: edges are detected against the previous frame,
// whichever run that was in.
// Button states are kept per device: with two pointing devices (say, before the runtime has assigned the
// hands) one device's release must not count as the other's press.
constexpr unsigned DEVICE_COUNT = 16;
bool lastLeftTouchpadPressed = false;
bool lastGripPressed[DEVICE_COUNT] = {};
bool lastPrimaryPressed[DEVICE_COUNT] = {};
bool rayHit = false;
Ko_1_1::Vec3d<float> hitPoint;

// OpenVR composes its projections for a [0, 1] depth range, and the clip distances the loop hands it are
// negative; GL clips depth to [-w, w]. The x and y rows are kept as the headset gives them (they carry
// the lens's asymmetric field of view) and the depth row is written for GL from the same clip distances.
Ko_1_1::Mat4d<float> withGLDepthRow(Ko_1_1::Mat4d<float> projection) {
    const float n = -NEAR_Z;
    const float f = -FAR_Z;
    projection.at(2, 0) = 0.0f;
    projection.at(2, 1) = 0.0f;
    projection.at(2, 2) = -(f + n) / (f - n);
    projection.at(2, 3) = -2.0f * f * n / (f - n);
    projection.at(3, 0) = 0.0f;
    projection.at(3, 1) = 0.0f;
    projection.at(3, 2) = -1.0f;
    projection.at(3, 3) = 0.0f;
    return projection;
}

void drainGLErrors() {
    while (glGetError() != GL_NO_ERROR) {
    }
}

void logException(const std::exception& e) {
    logLine(L"Exception caught: %s\n", utf8ToWide(e.what()).c_str());
}

void logUnknownException() {
    logLine(L"Exception caught: unknown exception\n");
}

// The close notice comes after the run's own catch; what the host throws from it must not reach the host's
// call to init or runRenderLoop.
void tellHostClosed(IVRView& view) {
    try {
        view.onVrClosed();
    } catch (const std::exception& e) {
        logException(e);
    } catch (...) {
        logUnknownException();
    }
}

bool isFinite(const Ko_1_1::Vec3d<float>& v) {
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

// The primary monitor's mode, fetched once for the process: full screen always uses that mode. A copy is
// kept rather than GLFW's pointer, which dies with glfwTerminate when a host runs several sessions.
const GLFWvidmode* cachedVideoMode() {
    static std::once_flag once;
    static GLFWvidmode mode{};
    static bool known = false;
    std::call_once(once, [] {
        const GLFWvidmode* current = glfwGetVideoMode(glfwGetPrimaryMonitor());
        if (current != nullptr) {
            mode = *current;
            known = true;
        }
    });
    return known ? &mode : nullptr;
}

Ko_1_1::Mat4d<float> trackingMatrix(const vr::HmdMatrix34_t& pose) {
    Ko_1_1::Mat4d<float> tracking;
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 4; ++column) {
            tracking.at(row, column) = pose.m[row][column];
        }
    }
    return tracking;
}

// The world point seen at normalised device coordinates (x, y) and window depth through a perspective
// projection from a camera at cameraToWorld; in double, since depths near the far plane lose their
// precision otherwise.
Ko_1_1::Vec3d<double> unproject(const Ko_1_1::Mat4d<float>& projection,
                                const Ko_1_1::Mat4d<float>& cameraToWorld, double x, double y, double depth) {
    const double zNdc = 2.0 * depth - 1.0;
    const double z =
        -static_cast<double>(projection.at(2, 3)) / (zNdc + static_cast<double>(projection.at(2, 2)));
    const double vx = x * -z / static_cast<double>(projection.at(0, 0));
    const double vy = y * -z / static_cast<double>(projection.at(1, 1));
    Ko_1_1::Vec3d<double> world;
    for (int row = 0; row < 3; ++row) {
        const double value = static_cast<double>(cameraToWorld.at(row, 0)) * vx +
                             static_cast<double>(cameraToWorld.at(row, 1)) * vy +
                             static_cast<double>(cameraToWorld.at(row, 2)) * z +
                             static_cast<double>(cameraToWorld.at(row, 3));
        (row == 0 ? world.x : row == 1 ? world.y : world.z) = value;
    }
    return world;
}

Ko_1_1::Vec3d<float> toFloat(const Ko_1_1::Vec3d<double>& v) {
    return {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
}

std::shared_ptr<Brume::Target> makeTarget(unsigned width, unsigned height, GLenum depthFormat) {
    auto color = std::make_shared<Brume::Texture>(static_cast<int>(width), static_cast<int>(height), GL_RGBA,
                                                  GL_LINEAR, GL_LINEAR, GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
    auto depth =
        std::make_shared<Brume::Texture>(static_cast<int>(width), static_cast<int>(height), depthFormat,
                                         GL_NEAREST, GL_NEAREST, GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
    return std::make_shared<Brume::Target>(color, depth);
}

} // namespace

VRRenderer::VRRenderer(Ko_1_1::Vec3d<float> startPosition, IVRView* view_, std::shared_ptr<IOpenVR> openVr_)
    : openVr(std::move(openVr_)), view(view_), recorder(std::make_unique<RunRecorder>()),
      cameraPosition(startPosition) {
    if (!isFinite(cameraPosition)) {
        // Every matrix of the run derives from it: the host would be told of a non-finite view each frame.
        logLine(L"Start position is not finite; starting at the origin\n");
        cameraPosition = {0.0f, 0.0f, 0.0f};
    }
    if (view != nullptr) {
        hostView = std::make_unique<TimedHostView>(*view);
        view = hostView.get();
    }
    // OpenVR's tracking space is y-up, the host's world z-up.
    trackingToHostRotation.setRotation({1.0f, 0.0f, 0.0f}, HALF_PI);
    tabletOffset = Ko_1_1::Mat4d<float>::translationMatrix({0.0f, -0.1f, -0.4f});
    updateCameraTransform();
    keyQuery = [](GLFWwindow* w, int key) { return glfwGetKey(w, key); };
}

VRRenderer::~VRRenderer() {
    // A renderer whose loop never ran still holds its threads, the runtime and the window. The host is not
    // told of a close here: no run took place.
    if (window != nullptr) {
        releaseResources();
    } else {
        stopGrabbers();
    }
}

void VRRenderer::setKeyQuery(KeyQuery query) {
    if (query) {
        keyQuery = std::move(query);
    }
}

VRGlobals::ErrorCodes VRRenderer::init(float sizeScale, float secondScale, bool option, bool secondOption_) {
    if (state != RunState::Constructed) {
        logLine(L"init refused: the viewer was already started\n");
        return VRGlobals::InitializationError;
    }
    try {
        if (hostView) {
            hostView->setTimedThread(std::this_thread::get_id());
        }
        firstOption = option;
        secondOption = secondOption_;

        vr::EVRInitError error = vr::VRInitError_None;
        float supersample = 1.0f;
        const VRGlobals::ErrorCodes started = openVr->init(&renderWidth, &renderHeight, &error, &supersample);
        if (started != VRGlobals::NoError) {
            return started;
        }

        const int kind = openVr->isOculus() ? 1 : (openVr->isVive() ? 0 : 2);
        view->setHeadsetKind(kind);

        renderWidth = static_cast<unsigned>(static_cast<float>(renderWidth) * sizeScale);
        renderHeight = static_cast<unsigned>(static_cast<float>(renderHeight) * sizeScale);
        renderScale = supersample * sizeScale;
        if (renderWidth == 0 || renderHeight == 0) {
            throw std::runtime_error("The headset reported an empty render target size.");
        }

        // The width uses 1080 against a height of 720 on purpose: the mirror is wider than one eye.
        windowHeight = 720;
        windowWidth = static_cast<int>(static_cast<double>(renderWidth) * 1080.0 / renderHeight);
        if (!createWindow()) {
            // Nothing else was started; the runtime must not stay up behind a failed set-up.
            openVr->shutdown();
            return VRGlobals::WindowCreationFailed;
        }

        glEnable(GL_BLEND);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);

        secondScale *= 1300.0f;
        pointResolution = static_cast<std::uint16_t>(secondScale);

        pointGrabber = std::make_unique<PointGrabber>(
            [this](float fov, unsigned short width, unsigned short height, float nearZ, float farZ,
                   Ko_1_1::Vec3d<double> position, Ko_1_1::Vec3d<double> up, Ko_1_1::Vec3d<double> back,
                   std::vector<Point3dRGBA>& points) {
                view->queryPoints(fov, width, height, nearZ, farZ, position, up, back, points);
            });
        pointGrabber->setResolution(pointResolution, pointResolution);
        pointGrabber->setNumEyes(eyeCount);
        pointGrabber->setRecorder(recorder.get());

        objectGrabber = std::make_unique<Object3dGrabber>(
            [this](std::vector<MeasurementData>& measurements, std::vector<AnnotationData>& annotations) {
                measurements = view->getMeasurements();
                annotations = view->getAnnotations();
            });
        objectGrabber->startThread();

        createSceneObjects();

        // Before the frame loop hands it its cameras the worker would ask the host what an unset camera sees.
        pointGrabber->waitForCameras();
        pointGrabber->startThread();

        treadmill = std::make_shared<Virtualizer>();
        if (treadmill->isConnected()) {
            logLine(L"Virtualizer connected.\n");
        } else {
            treadmill.reset();
        }

        glClearColor(0.5f, 0.5f, 0.5f, 0.0f);
        glViewport(0, 0, static_cast<GLsizei>(static_cast<float>(renderWidth) * renderScale),
                   static_cast<GLsizei>(static_cast<float>(renderHeight) * renderScale));
        state = RunState::Ready;
        return VRGlobals::NoError;
    } catch (const std::exception& e) {
        logException(e);
        // The set-up undoes itself: the host sees a renderer as it was before init, told of the close once.
        releaseResources();
        tellHostClosed(*view);
        return VRGlobals::InitializationError;
    } catch (...) {
        // Whatever a host throws that is not a standard exception ends the set-up the same way.
        logUnknownException();
        releaseResources();
        tellHostClosed(*view);
        return VRGlobals::InitializationError;
    }
}

bool VRRenderer::createWindow() {
    Platform::keepInputLibrariesLoaded();
    if (!glfwInit()) {
        logLine(L"ERROR: Could not start GLFW\n");
        return false;
    }
    (void)cachedVideoMode();
    glfwDefaultWindowHints();
    glfwWindowHint(GLFW_CONTEXT_VERSION_MAJOR, 4);
    glfwWindowHint(GLFW_CONTEXT_VERSION_MINOR, 1);
    glfwWindowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_CORE_PROFILE);
    glfwWindowHint(GLFW_RESIZABLE, GLFW_TRUE);
    window = glfwCreateWindow(windowWidth, windowHeight, "ORVEL VR", nullptr, nullptr);
    if (window == nullptr) {
        logLine(L"ERROR: Could not open window with GLFW\n");
        glfwTerminate();
        return false;
    }
    glfwMakeContextCurrent(window);
    renderThread = std::this_thread::get_id();
    if (Brume::initGLFunctions() == 0) {
        throw std::runtime_error("OpenGL entry points could not be loaded.");
    }
    drainGLErrors();
    glfwSwapInterval(0);
    drainGLErrors();
    return true;
}

void VRRenderer::createSceneObjects() {
    const auto& settings = LibrarySettings::instance();

    // The recommended size already holds the user's supersampling setting; the targets take it as it is.
    eyeTargets[0] = makeTarget(renderWidth, renderHeight, GL_DEPTH_STENCIL);
    eyeTargets[1] = makeTarget(renderWidth, renderHeight, GL_DEPTH_STENCIL);

    infoLabel = std::make_shared<LabelRenderer>();
    htmlView = std::make_shared<HTMLView>(*view);
    htmlView->setVrEnabled(vrEnabled);
    measurementController = std::make_shared<MeasurementController>(LINE_WIDTH, view);
    annotationController = std::make_shared<AnnotationController>(LINE_WIDTH);
    meshRenderer = std::make_shared<MeshRenderer>(view);
    meshRenderer->buildMeshes();
    cylinderGeometry = loadMesh("Cylinder.ply");
    laserBeam = std::make_shared<LaserBeam>(cylinderGeometry);
    teleportRenderer = std::make_shared<TeleportRenderer>(1.0f);
    pickTarget = makeTarget(static_cast<unsigned>(pickTargetSize), static_cast<unsigned>(pickTargetSize),
                            GL_DEPTH_STENCIL);

    updateVRMatrices(nullptr);

    blurTarget = makeTarget(renderWidth, renderHeight, GL_DEPTH_COMPONENT);
    blurMaterial = std::make_shared<Brume::Material>();
    blurMaterial->loadShaders(settings.shaderPath("Identity.vrt"), "", settings.shaderPath("Blur.frg"));
    auto quadBuffer = std::make_shared<Brume::Buffer>(
        GL_STATIC_DRAW, sizeof(Ko_1_1::Vec3d<float>),
        std::vector<Brume::Buffer::Attribute>{Brume::Buffer::Attribute("position", GL_FLOAT, 3, 0)});
    quadBuffer->setData(std::vector<Ko_1_1::Vec3d<float>>{
        {-1.0f, -1.0f, 0.0f}, {1.0f, -1.0f, 0.0f}, {-1.0f, 1.0f, 0.0f}, {1.0f, 1.0f, 0.0f}});
    fullScreenQuad = std::make_shared<Brume::Geometry>(GL_TRIANGLE_STRIP);
    fullScreenQuad->addBuffer(quadBuffer);

    pointRenderer = std::make_shared<PointRenderer>(*pointGrabber, pointSize, 0, 0);
    pointRenderer->setRecorder(recorder.get());
    pointGeometry = std::make_shared<Brume::Geometry>(GL_POINTS);
    pointGeometry->addBuffer(std::make_shared<Brume::Buffer>(
        GL_DYNAMIC_DRAW, sizeof(Point3dRGB),
        std::vector<Brume::Buffer::Attribute>{
            Brume::Buffer::Attribute("Position", GL_FLOAT, 3, 0),
            Brume::Buffer::Attribute("VertexColor", GL_UNSIGNED_BYTE, 4, 12)}));
    pointMaterial = std::make_shared<Brume::Material>();
    pointMaterial->loadShaders(settings.shaderPath("Points.vrt"), "", settings.shaderPath("Points.frg"));
}

std::shared_ptr<Brume::Geometry> VRRenderer::loadMesh(const std::string& fileName) {
    std::vector<float> positions;
    std::vector<float> attributes;
    std::vector<unsigned int> indices;
    Ko_1_1::StringVal* path =
        Ko_1_1::StringVal::constructUtf8(LibrarySettings::instance().modelsFolder() + fileName);
    bool loaded = false;
    try {
        loaded = view->loadMeshData(path, positions, attributes, indices);
    } catch (...) {
        path->unref();
        throw;
    }
    path->unref();

    auto geometry = std::make_shared<Brume::Geometry>(GL_TRIANGLES);
    if (!loaded || positions.size() < 3) {
        return geometry;
    }
    auto positionBuffer = std::make_shared<Brume::Buffer>(
        GL_STATIC_DRAW, 3 * sizeof(float),
        std::vector<Brume::Buffer::Attribute>{Brume::Buffer::Attribute("position", GL_FLOAT, 3, 0)});
    positionBuffer->setData(positions);
    geometry->addBuffer(positionBuffer);
    // The second array holds a normal per vertex.
    if (attributes.size() == positions.size()) {
        auto normalBuffer = std::make_shared<Brume::Buffer>(
            GL_STATIC_DRAW, 3 * sizeof(float),
            std::vector<Brume::Buffer::Attribute>{Brume::Buffer::Attribute("normal", GL_FLOAT, 3, 0)});
        normalBuffer->setData(attributes);
        geometry->addBuffer(normalBuffer);
    }
    if (!indices.empty()) {
        geometry->setIndices(indices.data(), indices.size(), GL_UNSIGNED_INT, sizeof(unsigned int));
    }
    return geometry;
}

void VRRenderer::closeVR() {
    // The window may be torn down on the render thread at this very moment, so another thread never
    // touches it: the loop reads this flag beside the window's own close flag.
    closeRequested = true;
}

void VRRenderer::updateCameraTransform() {
    viewTranslation = Ko_1_1::Mat4d<float>::translationMatrix(cameraPosition);
    viewRotation = Ko_1_1::Mat4d<float>::rotation({0.0f, 0.0f, 1.0f}, viewAngles.z) *
                   Ko_1_1::Mat4d<float>::rotation({0.0f, 1.0f, 0.0f}, viewAngles.y) *
                   Ko_1_1::Mat4d<float>::rotation({1.0f, 0.0f, 0.0f}, viewAngles.x);
    cameraTransform = viewTranslation * viewRotation * trackingToHostRotation;
}

void VRRenderer::updateVRMatrices(float* headAngularVelocity) {
    if (vrEnabled) {
        float scratch[3] = {0.0f, 0.0f, 0.0f};
        openVr->updatePoses(NEAR_Z, FAR_Z, &headPose, &leftEyeToHead, &rightEyeToHead, &leftProjection,
                            &rightProjection, headAngularVelocity ? headAngularVelocity : scratch);
    } else {
        leftProjection = Ko_1_1::Mat4d<float>::perspective(static_cast<float>(renderWidth),
                                                           static_cast<float>(renderHeight), NEAR_Z, FAR_Z,
                                                           0.7853982f, 0.0f, 0.0f);
    }
}

Ko_1_1::Mat4d<float> VRRenderer::streamedCamera(int eye, const Ko_1_1::Mat4d<float>& lookAhead) const {
    const Ko_1_1::Vec3d<float> headPosition = headPose.translation();
    const auto headAhead = Ko_1_1::Mat4d<float>::translationMatrix(headPosition) * lookAhead *
                           Ko_1_1::Mat4d<float>::translationMatrix(-headPosition) * headPose;
    return cameraTransform * headAhead * (eye == 0 ? leftEyeToHead : rightEyeToHead);
}

VRGlobals::ErrorCodes VRRenderer::runRenderLoop() {
    RunState expected = RunState::Ready;
    if (!state.compare_exchange_strong(expected, RunState::Running)) {
        logLine(L"runRenderLoop refused: the viewer is not set up, or its run has ended\n");
        return VRGlobals::InitializationError;
    }
    VRGlobals::ErrorCodes result = VRGlobals::NoError;
    try {
        Platform::setCurrentThreadPriorityHighest();
        recorder->runStarted(Platform::monotonicNanoseconds());
        while (!closeRequested && !glfwWindowShouldClose(window)) {
            const std::int64_t start = Platform::monotonicNanoseconds();
            const std::int64_t cpuStart = Platform::currentThreadCpuNanoseconds();
            const std::int64_t hostCpuStart = hostCpuNanoseconds();

            float headAngularVelocity[3] = {0.0f, 0.0f, 0.0f};
            updateVRMatrices(headAngularVelocity);
            const std::int64_t poseTime = Platform::monotonicNanoseconds();
            updateCameraTransform();
            view->setViewTransform(cameraTransform);

            // Points are streamed for where the head will look 0.1 s from now.
            const auto lookAhead =
                Ko_1_1::Mat4d<float>::rotation({0.0f, 1.0f, 0.0f}, 0.1f * headAngularVelocity[1]);

            if (vrEnabled) {
                handleControllers(cameraTransform * headPose, headPose);
            }
            updateFromAnimations();

            glClearColor(0.5f, 0.5f, 0.5f, 0.0f);
            glViewport(0, 0, static_cast<GLsizei>(renderWidth), static_cast<GLsizei>(renderHeight));

            pointGrabber->setResolution(pointResolution, pointResolution);
            pointGrabber->setNumEyes(eyeCount);
            pointGrabber->setPointSize(view->getPointSize());
            pointSizeFactor = pointSize;
            pointRenderer->setPointSize(static_cast<float>(view->getPointSize()) * pointSizeFactor);

            for (int eye = 0; eye < eyeCount; ++eye) {
                const auto& eyeToHead = eye == 0 ? leftEyeToHead : rightEyeToHead;
                const auto projection =
                    !vrEnabled ? leftProjection : withGLDepthRow(eye == 0 ? leftProjection : rightProjection);
                const auto eyeToWorld = cameraTransform * headPose * eyeToHead;
                const auto viewProjection = projection * eyeToWorld.affineInverse();
                eyeWorldToHead = (cameraTransform * headPose).affineInverse();
                eyeHeadToEye = eyeToHead.affineInverse();
                eyeProjection = projection;
                auto streamed = streamedCamera(eye, lookAhead);
                pointGrabber->setCameraToWorldMatrix(streamed, static_cast<unsigned long long>(eye),
                                                     poseTime);

                renderScene(viewProjection, eye);
                openVr->submit(eye == 0 ? vr::Eye_Left : vr::Eye_Right,
                               eyeTargets[static_cast<std::size_t>(eye)]->getColorBuffer()->getId());
                // The compositor's submission can leave a GL error behind.
                glGetError();
            }
            openVr->postPresentHandoff();
            duplicateFramebufferToWindow();
            glfwSwapBuffers(window);
            glfwPollEvents();

            const float speedFactor = keyboardSpeedFactor();
            const double frameTimeMs =
                static_cast<double>(Platform::monotonicNanoseconds() - start) / 1000000000.0 * 1000.0;
            handleKeyboard(cameraTransform, speedFactor * static_cast<float>(frameTimeMs));

            // The CPU interval lies inside the frame's, so a thread's CPU time never reads above the frame.
            const std::int64_t renderCpu =
                (Platform::currentThreadCpuNanoseconds() - cpuStart) - (hostCpuNanoseconds() - hostCpuStart);
            const std::int64_t end = Platform::monotonicNanoseconds();
            recorder->frameEnded(end - start, renderCpu, end);
        }
    } catch (const std::exception& e) {
        logException(e);
        result = VRGlobals::InitializationError;
    } catch (...) {
        logUnknownException();
        result = VRGlobals::InitializationError;
    }
    recorder->runEnded(Platform::monotonicNanoseconds());
    teardown();
    state = RunState::Closed;
    return result;
}

RunStatistics VRRenderer::getStatistics() const {
    RunStatistics statistics = recorder->snapshot(Platform::monotonicNanoseconds());
    statistics.glObjects = Brume::liveGLObjects();
    return statistics;
}

std::int64_t VRRenderer::hostCpuNanoseconds() const {
    return hostView ? hostView->hostCpuNanoseconds() : 0;
}

void VRRenderer::stopGrabbers() {
    if (pointGrabber) {
        pointGrabber->stopThread();
    }
    if (objectGrabber) {
        objectGrabber->stopThread();
    }
}

void VRRenderer::shutdownGL() {
    infoLabel.reset();
    htmlView.reset();
    measurementController.reset();
    annotationController.reset();
    meshRenderer.reset();
    cylinderGeometry.reset();
    teleportRenderer.reset();
    laserBeam.reset();
    pickTarget.reset();
    currentAnimation.reset();
    pointRenderer.reset();
    pointGeometry.reset();
    pointMaterial.reset();
    fullScreenQuad.reset();
    blurMaterial.reset();
    blurTarget.reset();
    eyeTargets[0].reset();
    eyeTargets[1].reset();
    renderer.setTarget(nullptr);
    SharedMaterials::releaseAll();
}

void VRRenderer::releaseResources() {
    stopGrabbers();
    // The platform's device is closed with its last owner.
    treadmill.reset();
    openVr->shutdown();
    if (window != nullptr) {
        shutdownGL();
        glfwDestroyWindow(window);
    }
    glfwTerminate();
    window = nullptr;
}

void VRRenderer::teardown() {
    releaseResources();
    tellHostClosed(*view);
}

void VRRenderer::clearFrameBuffer(int eye) {
    renderer.setTarget(eyeTargets[static_cast<std::size_t>(eye)]);
    renderer.clear();
    // Picking relies on a stencil that starts at 0 (nothing) every pass.
    glStencilMask(0xFF);
    glClearStencil(0);
    glClear(GL_STENCIL_BUFFER_BIT);
}

void VRRenderer::renderScene(const Ko_1_1::Mat4d<float>& viewProjection, int eye) {
    clearFrameBuffer(eye);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_LESS);
    // Everything drawn writes its own stencil value, so the eye's stencil names what is where.
    glEnable(GL_STENCIL_TEST);
    glStencilOp(GL_KEEP, GL_KEEP, GL_REPLACE);
    glStencilMask(0xFF);

    // New host data is taken over once a frame, before the first eye, so both eyes show the same objects
    // with the same stencil values; a batch is uploaded once a frame too, so the per-frame upload stays
    // within its limit.
    if (eye == 0) {
        takeOverObjects();
        pointRenderer->uploadNewBuffer();
    }
    glStencilFunc(GL_ALWAYS, PointRenderer::STENCIL_INDEX, 0xFF);
    pointRenderer->drawPoints(renderer, viewProjection);

    if (view->isMeshVisible()) {
        // Lights fixed in the world: their directions go through the same view as the surfaces.
        const Ko_1_1::Mat4d<float> worldToEye = eyeHeadToEye * eyeWorldToHead;
        glStencilFunc(GL_ALWAYS, MeshRenderer::STENCIL_INDEX, 0xFF);
        meshRenderer->drawMeshes(renderer, viewProjection, worldToEye, worldToEye, false);
    }

    takeOverPendingMeasurement();
    measurementController->draw(renderer, eyeWorldToHead, eyeHeadToEye, eyeProjection, false);
    annotationController->draw(renderer, viewProjection, eyeWorldToHead, eyeHeadToEye, eyeProjection, true);

    if (leftControllerSeen) {
        htmlView->draw(renderer, viewProjection * tabletPose(), nullptr, true);
    }

    // The laser, the teleport pad and the controllers belong to nothing the host knows.
    glStencilFunc(GL_ALWAYS, 0, 0xFF);
    if (rightControllerSeen) {
        teleportRenderer->draw(renderer, viewProjection, teleportActive);
        laserBeam->draw(renderer, viewProjection, teleportRenderer->getLineStart(),
                        teleportRenderer->getLineEnd(), teleportRenderer->getLineHitsTarget() == 1);
    }
    drawControllers(viewProjection);

    // The info label floats a metre in front of the head, a little below the line of sight.
    glStencilFunc(GL_ALWAYS, 0, 0xFF);
    const Ko_1_1::Mat4d<float> headWorld = eyeWorldToHead.affineInverse();
    infoLabel->draw(renderer, viewProjection * headWorld *
                                  Ko_1_1::Mat4d<float>::translationMatrix({0.0f, -0.15f, -1.0f}));

    glDisable(GL_STENCIL_TEST);
    glDisable(GL_DEPTH_TEST);
    if (blurEyes) {
        blur(eye);
    }
}

void VRRenderer::takeOverObjects() {
    objectGrabber->tryProcessObjects(
        [this](const std::vector<MeasurementData>& measurements) {
            measurementController->updateMeasurements(measurements);
        },
        [this](const std::vector<AnnotationData>& annotations) {
            annotationController->updateAnnotations(annotations);
        });
}

void VRRenderer::takeOverPendingMeasurement() {
    if (!view->hasPendingMeasurement()) {
        return;
    }
    MeasurementData measurement;
    view->getPendingMeasurement(measurement);
    measurementController->endMeasurement();
    measurementController->addMeasurement(measurement);
    infoLabel->setVisible(false);
    view->clearPendingMeasurement();
}

void VRRenderer::applyTreadmill() {
    if (!treadmill || !treadmill->isConnected()) {
        return;
    }
    const float angle =
        static_cast<float>(static_cast<double>(treadmill->getDirection()) * 6.283185307179586);
    // The platform reports a speed per second; frames come 90 times a second.
    const float step = treadmill->getSpeed() * 0.011111111f;
    if (!std::isfinite(angle) || !std::isfinite(step)) {
        return;
    }
    if (std::fabs(step) > 0.001f) {
        logLine(L"dir %f %f speed %f \n", static_cast<double>(angle), static_cast<double>(angle * 0.5f / PI),
                static_cast<double>(step));
    }
    const Ko_1_1::Mat4d<float> walk = viewRotation * trackingToHostRotation *
                                      Ko_1_1::Mat4d<float>::rotation({0.0f, -1.0f, 0.0f}, angle) *
                                      Ko_1_1::Mat4d<float>::translationMatrix({0.0f, 0.0f, step});
    cameraPosition += walk.translation();
}

void VRRenderer::handleControllers(const Ko_1_1::Mat4d<float>& headWorld,
                                   const Ko_1_1::Mat4d<float>& headTracking) {
    frameStartPosition = cameraPosition;
    applyTreadmill();

    pointerActive = false;
    for (unsigned index = 1; index < DEVICE_COUNT; ++index) {
        // A renderer without a headset has no controllers; there is deliberately no emulated one.
        if (!vrEnabled) {
            continue;
        }
        vr::TrackedDevicePose_t pose{};
        if (!openVr->getDevicePose(index, &pose)) {
            continue;
        }
        // One broken pose would otherwise turn the user's position into NaN for the rest of the run.
        bool finite = true;
        for (const auto& row : pose.mDeviceToAbsoluteTracking.m) {
            for (const float value : row) {
                finite = finite && std::isfinite(value);
            }
        }
        if (!finite) {
            continue;
        }
        vr::VRControllerState_t state{};
        openVr->getControllerState(&state, index);
        const bool thumbstick = openVr->isOculus();
        const Input::ControllerButtons buttons = Input::readButtons(state, thumbstick);

        const Ko_1_1::Mat4d<float> world = viewTranslation * viewRotation * trackingToHostRotation *
                                           trackingMatrix(pose.mDeviceToAbsoluteTracking);
        // Every device that is not the left hand points, trackers with no role included.
        if ((openVr->updateControllerRole(index) & 0xFF) != vr::TrackedControllerRole_LeftHand) {
            rightControllerMatrix = world;
            rightControllerSeen = true;
            pointingDevice = index;
            handleRightController(buttons.triggerPressed, buttons.primaryPressed, buttons.gripPressed,
                                  buttons.trigger, headWorld, headTracking);
        } else {
            const Input::Locomotion locomotion =
                Input::leftLocomotion(state, buttons, thumbstick, lastLeftTouchpadPressed);
            leftControllerMatrix = world;
            leftControllerSeen = true;
            handleLeftController(locomotion.move, locomotion.turn);
        }
    }
}

void VRRenderer::handleLeftController(float move, float turn) {
    const float speed = Input::speedCurve(move, openVr->isOculus());
    const float k = speed * 30.0f * moveSpeed;
    const Ko_1_1::Vec3d<float> direction = -leftControllerMatrix.column(2);
    // Height lock keeps the feet where they are; the horizontal step is not stretched to make up for it.
    if (view->isHeightLocked()) {
        cameraPosition.x += k * direction.x;
        cameraPosition.y += k * direction.y;
    } else {
        cameraPosition += direction * k;
    }
    viewAngles.z -= turn * 0.01f;
}

Ko_1_1::Mat4d<float> VRRenderer::tabletPose() const {
    return leftControllerMatrix * tabletOffset *
           Ko_1_1::Mat4d<float>::rotation({1.0f, 0.0f, 0.0f}, -0.7853982f);
}

void VRRenderer::handleRightController(bool triggerPressed, bool primaryPressed, bool gripPressed,
                                       float trigger, const Ko_1_1::Mat4d<float>& headWorld,
                                       const Ko_1_1::Mat4d<float>& headTracking) {
    const unsigned device = pointingDevice < DEVICE_COUNT ? pointingDevice : 0;
    const bool gripPress = gripPressed && !lastGripPressed[device];
    const bool primaryPress = primaryPressed && !lastPrimaryPressed[device];
    const bool primaryRelease = !primaryPressed && lastPrimaryPressed[device];
    lastGripPressed[device] = gripPressed;
    lastPrimaryPressed[device] = primaryPressed;
    if (gripPress) {
        createScreenshot(headWorld);
    }

    hitIsWall = false;
    unsigned char stencil = 0;
    rayHit = sendRay(rightControllerMatrix, hitPoint, hitIsWall, stencil);
    pointerActive = rayHit;

    measurementController->resetHighlight();
    annotationController->resetHighlight();
    selectedUuid.clear();

    const Ko_1_1::Vec3d<float> controllerPosition = rightControllerMatrix.translation();
    int hitKind = HIT_NOTHING;
    if (stencil >= HTMLView::STENCIL_START_INDEX) {
        Ko_1_1::Vec3d<float> tabletHit;
        if (!htmlView->handleInput(tabletPose(), rightControllerMatrix, primaryPressed || triggerPressed,
                                   tabletHit)) {
            return;
        }
        pointerActive = false;
        teleportActive = false;
        teleportRenderer->setLine(controllerPosition, tabletHit);
        teleportRenderer->setLineHitsTarget(1);
        return;
    }
    if (stencil >= AnnotationController::STENCIL_START_INDEX) {
        selectedUuid = annotationController->getUuidAtStencilIndex(stencil);
        if (!selectedUuid.empty()) {
            annotationController->highlight(stencil);
        }
        hitKind = HIT_ANNOTATION;
    } else if (stencil >= MeasurementController::STENCIL_START_INDEX) {
        selectedUuid = measurementController->getUuidAtStencilIndex(stencil);
        if (!selectedUuid.empty()) {
            measurementController->highlight(stencil);
        }
        hitKind = HIT_MEASUREMENT;
    } else if (stencil == MeshRenderer::STENCIL_INDEX) {
        hitKind = HIT_MESH;
    } else if (stencil == PointRenderer::STENCIL_INDEX) {
        hitKind = HIT_POINTS;
    }

    // Measuring.
    if (openVr->isOculus() && trigger > 0.98f) {
        trigger = 1.0f;
    }
    const bool canPlace = rayHit && selectedUuid.empty();
    const bool placed = measurementController->handleInput(trigger, canPlace, controllerPosition, hitPoint);
    const bool measuring = measurementController->isMeasurementInProgress();
    if (placed) {
        const float searchRadius = (hitKind == HIT_POINTS || hitKind == HIT_MESH)
                                       ? (hitPoint - controllerPosition).length() * 0.01f
                                       : 0.0f;
        std::vector<Ko_1_1::Vec3d<float>> points;
        if (!measuring && measurementController->getMeasurement(points)) {
            view->onMeasurementFinished(hitPoint, searchRadius, hitKind);
        } else if (measuring) {
            view->onMeasurementPointAdded(hitPoint, searchRadius, hitKind);
            infoLabel->setText("Measuring");
        }
    }
    const std::string infoText = measurementController->getInfoText();
    if (!infoText.empty()) {
        infoLabel->setText(infoText);
    }
    infoLabel->setVisible(!infoText.empty());

    // The laser line: to the hit, or a long free ray.
    if (!rayHit && !measuring) {
        Ko_1_1::Vec3d<float> direction = -rightControllerMatrix.column(2);
        const float length = direction.length();
        if (length > 0.0f) {
            direction = direction * (1.0f / length);
        }
        teleportRenderer->setLine(controllerPosition, controllerPosition + direction * 1000.0f);
        teleportRenderer->setLineHitsTarget(0);
    } else {
        teleportRenderer->setLine(controllerPosition, hitPoint);
        teleportRenderer->setLineHitsTarget(1);
    }

    // Teleporting: the head lands at eye height over a floor, or back from a wall toward the user.
    const Ko_1_1::Vec3d<float> head = headWorld.translation();
    const float headHeight = headTracking.at(1, 3);
    Ko_1_1::Vec3d<float> offset;
    if (teleportActive) {
        offset = Input::landingOffset(hitIsWall, hitPoint, head, headHeight);
        teleportRenderer->setPadPosition(hitPoint + offset - Ko_1_1::Vec3d<float>{0.0f, 0.0f, headHeight});
    }
    // Over empty space the button does nothing: an aimed teleport completes on a later release over a hit.
    if (!rayHit) {
        return;
    }
    if (primaryPress && selectedUuid.empty()) {
        teleportActive = true;
    } else if (primaryRelease && teleportActive) {
        if (selectedUuid.empty()) {
            // The head position is the frame's; this frame's walking and flying must not shift the landing.
            const Ko_1_1::Vec3d<float> origin = frameStartPosition - head + hitPoint + offset;
            currentAnimation = std::make_shared<CameraAnimationVR>(
                cameraPosition, origin, viewAngles, viewAngles, static_cast<double>(teleportAnimationTime));
        }
        teleportActive = false;
    } else if (primaryRelease && !selectedUuid.empty()) {
        Ko_1_1::StringVal* uuid = Ko_1_1::StringVal::constructUtf8(selectedUuid);
        try {
            view->onObjectClicked(uuid);
        } catch (...) {
            uuid->unref();
            throw;
        }
        uuid->unref();
    }
}

bool VRRenderer::sendRay(const Ko_1_1::Mat4d<float>& controllerMatrix, Ko_1_1::Vec3d<float>& hit, bool& wall,
                         unsigned char& stencil) {
    const int n = pickTargetSize;
    const float size = static_cast<float>(n);
    const Ko_1_1::Mat4d<float> viewMatrix = controllerMatrix.affineInverse();
    const Ko_1_1::Mat4d<float> projection = Ko_1_1::Mat4d<float>::perspective(
        size, size, PICK_NEAR_Z, PICK_FAR_Z, PICK_FIELD_OF_VIEW, 0.0f, 0.0f);
    renderSceneForController(viewMatrix, projection, PICK_POINT_SIZE);

    pickValues.resize(static_cast<std::size_t>(n) * static_cast<std::size_t>(n));
    glBindFramebuffer(GL_READ_FRAMEBUFFER, pickTarget->getFramebuffer());
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(0, 0, n, n, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, pickValues.data());
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    auto value = [this, n](int x, int y) {
        return pickValues[static_cast<std::size_t>(y) * static_cast<std::size_t>(n) +
                          static_cast<std::size_t>(x)];
    };
    auto depthOf = [](unsigned int word) { return static_cast<float>(word >> 8) * DEPTH_SCALE; };

    const int centre = n / 2;
    stencil = static_cast<unsigned char>(value(centre, centre) & 0xFF);
    float depth0 = 1.0f;
    if (stencil != 0) {
        depth0 = depthOf(value(centre, centre));
    } else {
        // Thin things (lines, sparse points) are found on a small spiral around the centre.
        for (const Input::SpiralOffset& offset : Input::pickSpiral()) {
            const int x =
                static_cast<int>(static_cast<float>(n) / 2.0f + 2.5f * static_cast<float>(offset.i));
            const int y =
                static_cast<int>(static_cast<float>(n) / 2.0f + 2.5f * static_cast<float>(offset.j));
            if (x < 0 || y < 0 || x >= n || y >= n) {
                continue;
            }
            const float depth = depthOf(value(x, y));
            if (depth < 1.0f) {
                stencil = static_cast<unsigned char>(value(x, y) & 0xFF);
                depth0 = depth;
                break;
            }
        }
    }
    // The hit lies on the controller's axis, at the depth found.
    hit = toFloat(unproject(projection, controllerMatrix, 0.0, 0.0, static_cast<double>(depth0)));
    if (depth0 == 1.0f) {
        return false;
    }
    if (stencil == PointRenderer::STENCIL_INDEX || stencil == MeshRenderer::STENCIL_INDEX) {
        std::vector<Ko_1_1::Vec3d<double>>& surface = pickSurface;
        surface.clear();
        for (int y = 0; y < n; ++y) {
            for (int x = 0; x < n; ++x) {
                const unsigned int word = value(x, y);
                const unsigned int s = word & 0xFF;
                const float d = depthOf(word);
                if ((s != PointRenderer::STENCIL_INDEX && s != MeshRenderer::STENCIL_INDEX) || !(d < 1.0f) ||
                    std::fabs(depth0 - d) / (1.0f - depth0) >= 0.1f) {
                    continue;
                }
                surface.push_back(unproject(projection, controllerMatrix, 2.0 * x / n - 1.0,
                                            2.0 * y / n - 1.0, static_cast<double>(d)));
            }
        }
        wall = false;
        Ko_1_1::Vec3d<double> normal;
        if (surface.size() > 2 && Input::fitPlane(surface, normal)) {
            wall = Input::isWall(normal);
        }
    }
    return true;
}

void VRRenderer::renderSceneForController(const Ko_1_1::Mat4d<float>& viewMatrix,
                                          const Ko_1_1::Mat4d<float>& projection, float pickPointSize) {
    const GLsizei size = static_cast<GLsizei>(pickTargetSize);
    renderer.setTarget(pickTarget);
    renderer.clear();
    glViewport(0, 0, size, size);
    glStencilMask(0xFF);
    glClearStencil(0);
    glClear(GL_STENCIL_BUFFER_BIT);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_LESS);
    glEnable(GL_STENCIL_TEST);
    glStencilOp(GL_KEEP, GL_KEEP, GL_REPLACE);

    // Only depth and stencil are read back.
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    const Ko_1_1::Mat4d<float> viewProjection = projection * viewMatrix;
    // The newest batch alone, every point at one size: the eye pictures' wide periphery points would
    // cover the narrow picking view.
    pointRenderer->drawSingleBuffer(renderer, viewProjection, pickPointSize, true);

    if (view->isMeshVisible()) {
        meshRenderer->drawMeshes(renderer, viewProjection, viewMatrix, viewMatrix, true);
    }
    measurementController->draw(renderer, viewMatrix, Ko_1_1::Mat4d<float>(), projection, true);
    annotationController->drawCached(renderer, viewProjection, viewMatrix, projection, true);
    if (leftControllerSeen) {
        htmlView->draw(renderer, viewProjection * tabletPose(), nullptr, true);
    }

    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDisable(GL_STENCIL_TEST);
    glDisable(GL_DEPTH_TEST);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    renderer.setTarget(nullptr);
    glViewport(0, 0, static_cast<GLsizei>(renderWidth), static_cast<GLsizei>(renderHeight));
}

void VRRenderer::updateFromAnimations() {
    Ko_1_1::Vec3d<float> target;
    float distance = 0.0f;
    Ko_1_1::Vec3d<float> direction;
    const bool requested = view->takeFlyToRequest(target, distance, direction);
    bool usable = std::isfinite(distance) && isFinite(target) && isFinite(direction);
    if (requested && usable) {
        const Ko_1_1::Mat4d<float> headWorld = cameraTransform * headPose;
        Ko_1_1::Vec3d<float> f = -headWorld.column(2);
        const float a0 = std::atan2(f.y, f.x);
        float a1 = a0;
        const float directionLength = direction.length();
        if (directionLength > 0.0f) {
            f = direction * (1.0f / directionLength);
            a1 = std::atan2(f.y, f.x);
        }
        float delta = a1 - a0;
        if (delta < -PI) {
            delta += TWO_PI;
        } else if (delta > PI) {
            delta -= TWO_PI;
        }
        const Ko_1_1::Vec3d<float> endAngles{viewAngles.x, viewAngles.y, viewAngles.z + delta};
        // Where the head will be once turned, composed as the frame loop composes the head's pose.
        const Ko_1_1::Mat4d<float> turned = Ko_1_1::Mat4d<float>::translationMatrix(cameraPosition) *
                                            Ko_1_1::Mat4d<float>::rotation({0.0f, 0.0f, 1.0f}, endAngles.z) *
                                            Ko_1_1::Mat4d<float>::rotation({0.0f, 1.0f, 0.0f}, endAngles.y) *
                                            Ko_1_1::Mat4d<float>::rotation({1.0f, 0.0f, 0.0f}, endAngles.x) *
                                            trackingToHostRotation * headPose;
        const Ko_1_1::Vec3d<float> endPosition =
            (target - f * distance) + (cameraPosition - turned.translation());
        // Finite values far enough out overflow on the way.
        usable = isFinite(endPosition);
        if (usable) {
            currentAnimation =
                std::make_shared<CameraAnimationVR>(cameraPosition, endPosition, viewAngles, endAngles,
                                                    static_cast<double>(teleportAnimationTime));
        }
    }
    // A host that keeps asking is told once.
    if (requested && !usable && !flyToRejectionLogged) {
        logLine(L"Fly-to request with a non-finite target, distance, direction or destination ignored\n");
        flyToRejectionLogged = true;
    }
    if (currentAnimation) {
        // The last frame lands exactly on the end values, whenever the clock is read.
        if (currentAnimation->isFinished()) {
            cameraPosition = currentAnimation->getEndPosition();
            viewAngles = currentAnimation->getEndAngles();
            currentAnimation.reset();
        } else {
            cameraPosition = currentAnimation->getPosition();
            viewAngles = currentAnimation->getAngles();
        }
    }
}

void VRRenderer::drawControllers(const Ko_1_1::Mat4d<float>& viewProjection) {
    const std::pair<bool, const Ko_1_1::Mat4d<float>*> hands[2] = {
        {leftControllerSeen, &leftControllerMatrix}, {rightControllerSeen, &rightControllerMatrix}};
    for (int hand = 0; hand < 2; ++hand) {
        if (!hands[hand].first) {
            continue;
        }
        const VrModelRenderer* model = openVr->getControllerModel(hand == 0);
        if (model != nullptr) {
            model->draw(renderer, viewProjection * *hands[hand].second);
        }
    }
}

void VRRenderer::duplicateFramebufferToWindow() {
    int width = 0;
    int height = 0;
    glfwGetFramebufferSize(window, &width, &height);
    if (width <= 0 || height <= 0 || !eyeTargets[0]) {
        return;
    }
    glBindFramebuffer(GL_READ_FRAMEBUFFER, eyeTargets[0]->getFramebuffer());
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, 0);
    glBlitFramebuffer(0, 0, static_cast<GLint>(renderWidth), static_cast<GLint>(renderHeight), 0, 0, width,
                      height, GL_COLOR_BUFFER_BIT, GL_LINEAR);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
}

void VRRenderer::createScreenshot(const Ko_1_1::Mat4d<float>& viewMatrix) {
    // After a swap the back buffer's contents are undefined; the mirror picture is copied in again.
    duplicateFramebufferToWindow();
    std::vector<unsigned char> pixels(static_cast<std::size_t>(windowWidth) *
                                      static_cast<std::size_t>(windowHeight) * 4);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(0, 0, windowWidth, windowHeight, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    view->onScreenshot(pixels, static_cast<unsigned>(windowWidth), static_cast<unsigned>(windowHeight),
                       viewMatrix);
}

void VRRenderer::blur(int eye) {
    const auto& eyeTarget = eyeTargets[static_cast<std::size_t>(eye)];
    if (!eyeTarget || !eyeTarget->getColorBuffer() || !blurTarget || !blurTarget->getColorBuffer() ||
        !blurMaterial) {
        return;
    }
    // The filter replaces pixels, alpha included: blending (on for the scene) would mix the averages with
    // what the targets held, and over the background, whose alpha is 0, leave them unchanged.
    const GLboolean blending = glIsEnabled(GL_BLEND);
    glDisable(GL_BLEND);
    renderer.setTarget(blurTarget);
    blurMaterial->set("image", eyeTarget->getColorBuffer());
    blurMaterial->set("horizontal", true);
    blurMaterial->set("boxSize", 2);
    renderer.draw(blurMaterial, fullScreenQuad, 0, 0);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);

    renderer.setTarget(eyeTarget);
    blurMaterial->set("image", blurTarget->getColorBuffer());
    blurMaterial->set("horizontal", false);
    renderer.draw(blurMaterial, fullScreenQuad, 0, 0);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    if (blending == GL_TRUE) {
        glEnable(GL_BLEND);
    }
}

void VRRenderer::readDepthStencil(std::vector<unsigned int>& values) const {
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(0, 0, static_cast<GLsizei>(renderWidth), static_cast<GLsizei>(renderHeight),
                 GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, values.data());
}

float VRRenderer::keyboardSpeedFactor() const {
    const bool shift = keyQuery(window, GLFW_KEY_LEFT_SHIFT) == GLFW_PRESS ||
                       keyQuery(window, GLFW_KEY_RIGHT_SHIFT) == GLFW_PRESS;
    return shift ? 10.0f : 1.0f;
}

bool VRRenderer::glfwGetKeyOnce(GLFWwindow* w, int key) {
    if (key < 0 || key >= static_cast<int>(keyOnceState.size())) {
        return false;
    }
    auto& state = keyOnceState[static_cast<std::size_t>(key)];
    if (keyQuery(w, key) != GLFW_PRESS) {
        state = 0;
        return false;
    }
    if (state == 0) {
        state = 1;
        return true;
    }
    return false;
}

void VRRenderer::handleKeyboard(const Ko_1_1::Mat4d<float>& viewMatrix, float step) {
    const float k = step * moveSpeed;
    const auto c0 = viewMatrix.column(0);
    const auto c1 = viewMatrix.column(1);
    const auto c2 = viewMatrix.column(2);
    auto held = [this](int key) { return keyQuery(window, key) == GLFW_PRESS; };

    if (held(GLFW_KEY_W)) {
        cameraPosition -= c2 * k;
    }
    if (held(GLFW_KEY_S)) {
        cameraPosition += c2 * k;
    }
    if (held(GLFW_KEY_A)) {
        cameraPosition -= c0 * k;
    }
    if (held(GLFW_KEY_D)) {
        cameraPosition += c0 * k;
    }
    if (held(GLFW_KEY_F)) {
        cameraPosition -= c1 * k;
    }
    if (held(GLFW_KEY_R)) {
        cameraPosition += c1 * k;
    }
    if (held(GLFW_KEY_Q)) {
        viewAngles.z += 0.003f;
    }
    if (held(GLFW_KEY_E)) {
        viewAngles.z -= 0.003f;
    }
    if (glfwGetKeyOnce(window, GLFW_KEY_P)) {
        pointGrabber->setPausePC2(!pointGrabber->getPausePC2());
        logLine(L"PC2 paused = %s\n", pointGrabber->getPausePC2() ? L"true" : L"false");
    }
    if (glfwGetKeyOnce(window, GLFW_KEY_O)) {
        createScreenshot(viewMatrix);
        logLine(L"Screenshot taken.\n");
    }
    if (glfwGetKeyOnce(window, GLFW_KEY_KP_ADD)) {
        pointSize += 0.1f;
        logLine(L"New point size: %f\n", static_cast<double>(pointSize));
    }
    if (glfwGetKeyOnce(window, GLFW_KEY_KP_SUBTRACT)) {
        pointSize -= 0.1f;
        logLine(L"New point size: %f\n", static_cast<double>(pointSize));
    }
    // Enter's once-state is consumed before Alt is looked at: Enter first, Alt later does nothing.
    if (glfwGetKeyOnce(window, GLFW_KEY_ENTER) && (held(GLFW_KEY_LEFT_ALT) || held(GLFW_KEY_RIGHT_ALT))) {
        const GLFWvidmode* mode = cachedVideoMode();
        const int refreshRate = mode ? mode->refreshRate : GLFW_DONT_CARE;
        // Without a known video mode the window stays as it is, and so does the flag.
        if (!fullscreen && mode != nullptr) {
            glfwSetWindowMonitor(window, glfwGetPrimaryMonitor(), 0, 0, mode->width, mode->height,
                                 refreshRate);
            fullscreen = true;
        } else if (fullscreen) {
            glfwSetWindowMonitor(window, nullptr, 10, 30, windowWidth, windowHeight, refreshRate);
            fullscreen = false;
        }
    }
    if (held(GLFW_KEY_ESCAPE)) {
        glfwSetWindowShouldClose(window, GLFW_TRUE);
        return;
    }
}

} // namespace VR
