#include "simvr/SimCompositor.h"

#include <cmath>
#include <thread>

#if defined(_WIN32)
#include <windows.h>
#else
#define GL_GLEXT_PROTOTYPES 1
#endif
#include <GL/gl.h>

#include "simvr/SimRuntime.h"

#ifndef GL_PIXEL_PACK_BUFFER
#define GL_PIXEL_PACK_BUFFER 0x88EB
#endif
#ifndef GL_PIXEL_PACK_BUFFER_BINDING
#define GL_PIXEL_PACK_BUFFER_BINDING 0x88ED
#endif

namespace SimVR {

namespace {

using Clock = SimRuntime::Clock;

// Beyond GL 1.1, which is all that every platform's GL library exports directly.
#if defined(_WIN32)
using BindBufferFunction = void(APIENTRY*)(GLenum, GLuint);
BindBufferFunction bindBufferFunction() {
    // PROC is declared without parameters; going through void (*)() says the cast is meant.
    return reinterpret_cast<BindBufferFunction>(
        reinterpret_cast<void (*)()>(wglGetProcAddress("glBindBuffer")));
}
#else
using BindBufferFunction = void (*)(GLenum, GLuint);
BindBufferFunction bindBufferFunction() {
    return &glBindBuffer;
}
#endif

// The first frame boundary after `now` of a display that started at `start`.
Clock::time_point nextFrameBoundary(Clock::time_point start, float frequency, Clock::time_point now) {
    const std::chrono::duration<double> period(1.0 / frequency);
    const double elapsedFrames = std::chrono::duration<double>(now - start) / period;
    const double next = std::floor(elapsedFrames) + 1.0;
    return start + std::chrono::duration_cast<Clock::duration>(period * next);
}

vr::EVRCompositorError submitFailed(vr::EVRCompositorError error) {
    SimRuntime::instance().locked([](SimRuntime::State& state) { ++state.submitErrorCount; });
    return error;
}

} // namespace

void SimCompositor::SetTrackingSpace(vr::ETrackingUniverseOrigin origin) {
    SimRuntime::instance().locked([&](SimRuntime::State& state) { state.trackingSpace = origin; });
}

vr::ETrackingUniverseOrigin SimCompositor::GetTrackingSpace() {
    return SimRuntime::instance().locked([](SimRuntime::State& state) { return state.trackingSpace; });
}

void SimCompositor::waitForFrameBoundary() {
    Clock::time_point start;
    float frequency = 0.0f;
    const bool paced = SimRuntime::instance().locked([&](SimRuntime::State& state) {
        start = state.sessionStart;
        frequency = state.displayFrequency;
        return state.paced && state.displayFrequency > 0.0f;
    });
    if (paced) {
        std::this_thread::sleep_until(nextFrameBoundary(start, frequency, Clock::now()));
    }
}

vr::EVRCompositorError SimCompositor::WaitGetPoses(vr::TrackedDevicePose_t* renderPoses,
                                                   uint32_t renderPoseCount,
                                                   vr::TrackedDevicePose_t* gamePoses,
                                                   uint32_t gamePoseCount) {
    SimRuntime& runtime = SimRuntime::instance();
    const bool initialized = runtime.locked([](SimRuntime::State& state) { return state.initialized; });
    if (!initialized) {
        return vr::VRCompositorError_RequestFailed;
    }
    if (renderPoseCount > SimRuntime::DEVICE_COUNT || gamePoseCount > SimRuntime::DEVICE_COUNT) {
        return vr::VRCompositorError_IndexOutOfRange;
    }

    waitForFrameBoundary();

    simvr_PoseScript script = nullptr;
    void* user = nullptr;
    uint64_t frameIndex = 0;
    double seconds = 0.0;
    runtime.locked([&](SimRuntime::State& state) {
        ++state.waitGetPosesCount;
        frameIndex = state.sessionFrames++;
        seconds = std::chrono::duration<double>(Clock::now() - state.sessionStart).count();
        script = state.poseScript;
        user = state.poseScriptUser;
    });
    // Without the lock: the script sets poses and input through the control API.
    if (script != nullptr) {
        script(frameIndex, seconds, user);
    }

    runtime.locked([&](SimRuntime::State& state) {
        for (uint32_t i = 0; i < SimRuntime::DEVICE_COUNT; ++i) {
            state.lastPoses[i] = SimRuntime::poseOf(state.devices[i]);
        }
    });
    return GetLastPoses(renderPoses, renderPoseCount, gamePoses, gamePoseCount);
}

vr::EVRCompositorError SimCompositor::GetLastPoses(vr::TrackedDevicePose_t* renderPoses,
                                                   uint32_t renderPoseCount,
                                                   vr::TrackedDevicePose_t* gamePoses,
                                                   uint32_t gamePoseCount) {
    if (renderPoseCount > SimRuntime::DEVICE_COUNT || gamePoseCount > SimRuntime::DEVICE_COUNT) {
        return vr::VRCompositorError_IndexOutOfRange;
    }
    SimRuntime::instance().locked([&](SimRuntime::State& state) {
        for (uint32_t i = 0; renderPoses != nullptr && i < renderPoseCount; ++i) {
            renderPoses[i] = state.lastPoses[i];
        }
        for (uint32_t i = 0; gamePoses != nullptr && i < gamePoseCount; ++i) {
            gamePoses[i] = state.lastPoses[i];
        }
    });
    return vr::VRCompositorError_None;
}

vr::EVRCompositorError
SimCompositor::GetLastPoseForTrackedDeviceIndex(vr::TrackedDeviceIndex_t deviceIndex,
                                                vr::TrackedDevicePose_t* outputPose,
                                                vr::TrackedDevicePose_t* outputGamePose) {
    if (!SimRuntime::validIndex(deviceIndex)) {
        return vr::VRCompositorError_IndexOutOfRange;
    }
    SimRuntime::instance().locked([&](SimRuntime::State& state) {
        if (outputPose != nullptr) {
            *outputPose = state.lastPoses[deviceIndex];
        }
        if (outputGamePose != nullptr) {
            *outputGamePose = state.lastPoses[deviceIndex];
        }
    });
    return vr::VRCompositorError_None;
}

bool SimCompositor::readTexture(uint32_t texture, bool capture, uint32_t& width, uint32_t& height,
                                std::vector<uint8_t>& rgba) {
    // Not a texture name of the current context (or no context at all): glIsTexture answers false.
    if (glIsTexture(texture) != GL_TRUE) {
        return false;
    }
    GLint previousTexture = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &previousTexture);
    glBindTexture(GL_TEXTURE_2D, texture);
    // A texture of another target cannot be bound here; the error is this call's own and is consumed.
    if (glGetError() != GL_NO_ERROR) {
        glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(previousTexture));
        return false;
    }
    GLint levelWidth = 0;
    GLint levelHeight = 0;
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &levelWidth);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &levelHeight);
    const bool hasStorage = levelWidth > 0 && levelHeight > 0;
    if (hasStorage && capture) {
        GLint packBuffer = 0;
        GLint alignment = 4;
        GLint rowLength = 0;
        GLint skipRows = 0;
        GLint skipPixels = 0;
        glGetIntegerv(GL_PIXEL_PACK_BUFFER_BINDING, &packBuffer);
        glGetIntegerv(GL_PACK_ALIGNMENT, &alignment);
        glGetIntegerv(GL_PACK_ROW_LENGTH, &rowLength);
        glGetIntegerv(GL_PACK_SKIP_ROWS, &skipRows);
        glGetIntegerv(GL_PACK_SKIP_PIXELS, &skipPixels);
        const BindBufferFunction bindBuffer = bindBufferFunction();
        if (packBuffer != 0 && bindBuffer != nullptr) {
            bindBuffer(GL_PIXEL_PACK_BUFFER, 0);
        }
        glPixelStorei(GL_PACK_ALIGNMENT, 4);
        glPixelStorei(GL_PACK_ROW_LENGTH, 0);
        glPixelStorei(GL_PACK_SKIP_ROWS, 0);
        glPixelStorei(GL_PACK_SKIP_PIXELS, 0);

        rgba.resize(static_cast<size_t>(levelWidth) * static_cast<size_t>(levelHeight) * 4);
        glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());

        glPixelStorei(GL_PACK_ALIGNMENT, alignment);
        glPixelStorei(GL_PACK_ROW_LENGTH, rowLength);
        glPixelStorei(GL_PACK_SKIP_ROWS, skipRows);
        glPixelStorei(GL_PACK_SKIP_PIXELS, skipPixels);
        if (packBuffer != 0 && bindBuffer != nullptr) {
            bindBuffer(GL_PIXEL_PACK_BUFFER, static_cast<GLuint>(packBuffer));
        }
    } else {
        rgba.clear();
    }
    glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(previousTexture));
    width = static_cast<uint32_t>(levelWidth);
    height = static_cast<uint32_t>(levelHeight);
    return hasStorage;
}

vr::EVRCompositorError SimCompositor::Submit(vr::EVREye eye, const vr::Texture_t* texture,
                                             const vr::VRTextureBounds_t*, vr::EVRSubmitFlags) {
    bool capture = true;
    const bool initialized = SimRuntime::instance().locked([&](SimRuntime::State& state) {
        capture = state.captureSubmits;
        return state.initialized;
    });
    if (!initialized) {
        return submitFailed(vr::VRCompositorError_RequestFailed);
    }
    if (eye != vr::Eye_Left && eye != vr::Eye_Right) {
        return submitFailed(vr::VRCompositorError_IndexOutOfRange);
    }
    if (texture == nullptr || texture->handle == nullptr) {
        return submitFailed(vr::VRCompositorError_InvalidTexture);
    }
    if (texture->eType != vr::TextureType_OpenGL) {
        return submitFailed(vr::VRCompositorError_TextureIsOnWrongDevice);
    }
    // An OpenGL texture's handle is the texture name itself, widened to a pointer.
    const uintptr_t handle = reinterpret_cast<uintptr_t>(texture->handle);
    if (handle > UINT32_MAX) {
        return submitFailed(vr::VRCompositorError_InvalidTexture);
    }

    SimRuntime::Picture picture;
    picture.texture = static_cast<uint32_t>(handle);
    if (!readTexture(picture.texture, capture, picture.width, picture.height, picture.rgba)) {
        return submitFailed(vr::VRCompositorError_InvalidTexture);
    }
    SimRuntime::instance().locked([&](SimRuntime::State& state) {
        state.pictures[eye] = std::move(picture);
        ++state.submitCount[eye];
    });
    return vr::VRCompositorError_None;
}

void SimCompositor::ClearLastSubmittedFrame() {
    SimRuntime::instance().locked([](SimRuntime::State& state) {
        state.pictures[0] = SimRuntime::Picture();
        state.pictures[1] = SimRuntime::Picture();
    });
}

void SimCompositor::PostPresentHandoff() {
    SimRuntime::instance().locked([](SimRuntime::State& state) { ++state.postPresentHandoffCount; });
}

// The timing records are not declared by this runtime's clients; no history is offered.
bool SimCompositor::GetFrameTiming(vr::Compositor_FrameTiming*, uint32_t) {
    return false;
}

uint32_t SimCompositor::GetFrameTimings(vr::Compositor_FrameTiming*, uint32_t) {
    return 0;
}

float SimCompositor::GetFrameTimeRemaining() {
    return SimRuntime::instance().locked([](SimRuntime::State& state) {
        if (!state.initialized || state.displayFrequency <= 0.0f) {
            return 0.0f;
        }
        const Clock::time_point now = Clock::now();
        const Clock::time_point next = nextFrameBoundary(state.sessionStart, state.displayFrequency, now);
        return std::chrono::duration<float>(next - now).count();
    });
}

void SimCompositor::GetCumulativeStats(vr::Compositor_CumulativeStats*, uint32_t) {}

void SimCompositor::FadeToColor(float, float red, float green, float blue, float alpha, bool) {
    SimRuntime::instance().locked([&](SimRuntime::State& state) {
        state.fadeColor = {red, green, blue, alpha};
    });
}

vr::HmdColor_t SimCompositor::GetCurrentFadeColor(bool) {
    return SimRuntime::instance().locked([](SimRuntime::State& state) { return state.fadeColor; });
}

void SimCompositor::FadeGrid(float, bool fadeIn) {
    SimRuntime::instance().locked([&](SimRuntime::State& state) { state.gridAlpha = fadeIn ? 1.0f : 0.0f; });
}

float SimCompositor::GetCurrentGridAlpha() {
    return SimRuntime::instance().locked([](SimRuntime::State& state) { return state.gridAlpha; });
}

vr::EVRCompositorError SimCompositor::SetSkyboxOverride(const vr::Texture_t* textures,
                                                        uint32_t textureCount) {
    return textures == nullptr || textureCount == 0 ? vr::VRCompositorError_InvalidTexture
                                                    : vr::VRCompositorError_None;
}

void SimCompositor::ClearSkyboxOverride() {}

void SimCompositor::CompositorBringToFront() {}

void SimCompositor::CompositorGoToBack() {}

void SimCompositor::CompositorQuit() {}

bool SimCompositor::IsFullscreen() {
    return true;
}

uint32_t SimCompositor::GetCurrentSceneFocusProcess() {
    return 0;
}

uint32_t SimCompositor::GetLastFrameRenderer() {
    return 0;
}

bool SimCompositor::CanRenderScene() {
    return true;
}

void SimCompositor::ShowMirrorWindow() {
    SimRuntime::instance().locked([](SimRuntime::State& state) { state.mirrorVisible = true; });
}

void SimCompositor::HideMirrorWindow() {
    SimRuntime::instance().locked([](SimRuntime::State& state) { state.mirrorVisible = false; });
}

bool SimCompositor::IsMirrorWindowVisible() {
    return SimRuntime::instance().locked([](SimRuntime::State& state) { return state.mirrorVisible; });
}

void SimCompositor::CompositorDumpImages() {}

bool SimCompositor::ShouldAppRenderWithLowResources() {
    return false;
}

void SimCompositor::ForceInterleavedReprojectionOn(bool) {}

void SimCompositor::ForceReconnectProcess() {}

void SimCompositor::SuspendRendering(bool) {}

vr::EVRCompositorError SimCompositor::GetMirrorTextureD3D11(vr::EVREye, void*, void** d3d11View) {
    if (d3d11View != nullptr) {
        *d3d11View = nullptr;
    }
    return vr::VRCompositorError_SharedTexturesNotSupported;
}

void SimCompositor::ReleaseMirrorTextureD3D11(void*) {}

vr::EVRCompositorError SimCompositor::GetMirrorTextureGL(vr::EVREye, vr::glUInt_t* textureId,
                                                         vr::glSharedTextureHandle_t* sharedHandle) {
    if (textureId != nullptr) {
        *textureId = 0;
    }
    if (sharedHandle != nullptr) {
        *sharedHandle = nullptr;
    }
    return vr::VRCompositorError_SharedTexturesNotSupported;
}

bool SimCompositor::ReleaseSharedGLTexture(vr::glUInt_t, vr::glSharedTextureHandle_t) {
    return false;
}

void SimCompositor::LockGLSharedTextureForAccess(vr::glSharedTextureHandle_t) {}

void SimCompositor::UnlockGLSharedTextureForAccess(vr::glSharedTextureHandle_t) {}

uint32_t SimCompositor::GetVulkanInstanceExtensionsRequired(char* value, uint32_t bufferSize) {
    if (value != nullptr && bufferSize > 0) {
        value[0] = '\0';
    }
    return 0;
}

uint32_t SimCompositor::GetVulkanDeviceExtensionsRequired(vr::VkPhysicalDevice_T*, char* value,
                                                          uint32_t bufferSize) {
    return GetVulkanInstanceExtensionsRequired(value, bufferSize);
}

} // namespace SimVR
