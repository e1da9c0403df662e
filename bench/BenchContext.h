#pragma once

// An OpenGL 4.1 core context for a benchmark, current for its whole run: a hidden GLFW window where there is
// a display (Xvfb with Mesa here), otherwise a surfaceless EGL context on the machine's first GPU device, so
// the same benchmarks run on a headless GPU machine.

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLFW/glfw3.h>

#include <cstdio>
#include <string>

#include "engine/GL.h"
#include "engine/GLFunctions.h"

namespace Bench {

class Context {
public:
    Context() {
        if (glfwInit() == GLFW_TRUE) {
            glfwWindowHint(GLFW_VISIBLE, GLFW_FALSE);
            glfwWindowHint(GLFW_CONTEXT_VERSION_MAJOR, 4);
            glfwWindowHint(GLFW_CONTEXT_VERSION_MINOR, 1);
            glfwWindowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_CORE_PROFILE);
            window = glfwCreateWindow(64, 64, "bench", nullptr, nullptr);
        }
        if (window != nullptr) {
            glfwMakeContextCurrent(window);
        } else if (!makeHeadless()) {
            std::fprintf(stderr, "no headless EGL context: %s (EGL error 0x%x)\n", failure, eglGetError());
            return;
        }
        ready = Brume::initGLFunctions() != 0;
        if (!ready) {
            std::fprintf(stderr, "the GL entry points could not be loaded\n");
        }
    }
    ~Context() {
        if (window != nullptr) {
            glfwDestroyWindow(window);
        }
        glfwTerminate();
        if (display != EGL_NO_DISPLAY) {
            eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
            eglDestroyContext(display, context);
            eglTerminate(display);
        }
    }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    bool ok() const { return ready; }
    // The GL implementation measured, for the report.
    static std::string renderer() {
        const auto* name = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
        return name != nullptr ? name : "?";
    }

private:
    bool makeHeadless() {
        const auto queryDevices =
            reinterpret_cast<PFNEGLQUERYDEVICESEXTPROC>(eglGetProcAddress("eglQueryDevicesEXT"));
        const auto platformDisplay =
            reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
        EGLDeviceEXT devices[8];
        EGLint count = 0;
        failure = "no EGL device enumeration";
        if (queryDevices == nullptr || platformDisplay == nullptr || !queryDevices(8, devices, &count) ||
            count < 1) {
            return false;
        }
        failure = "the device's display does not start";
        display = platformDisplay(EGL_PLATFORM_DEVICE_EXT, devices[0], nullptr);
        if (display == EGL_NO_DISPLAY || !eglInitialize(display, nullptr, nullptr) ||
            !eglBindAPI(EGL_OPENGL_API)) {
            display = EGL_NO_DISPLAY;
            return false;
        }
        const EGLint configAttributes[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE,
                                           EGL_OPENGL_BIT, EGL_NONE};
        EGLConfig config = nullptr;
        EGLint configs = 0;
        const EGLint contextAttributes[] = {EGL_CONTEXT_MAJOR_VERSION,
                                            4,
                                            EGL_CONTEXT_MINOR_VERSION,
                                            1,
                                            EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                            EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
                                            EGL_NONE};
        failure = "no OpenGL configuration";
        if (!eglChooseConfig(display, configAttributes, &config, 1, &configs) || configs < 1) {
            return false;
        }
        failure = "no OpenGL 4.1 core context";
        context = eglCreateContext(display, config, EGL_NO_CONTEXT, contextAttributes);
        return context != EGL_NO_CONTEXT && eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context);
    }

    GLFWwindow* window = nullptr;
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLContext context = EGL_NO_CONTEXT;
    bool ready = false;
    const char* failure = "";
};

} // namespace Bench
