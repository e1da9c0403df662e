#include "engine/GLFunctions.h"

#include <atomic>
#include <cstdio>
#include <cstring>

#include "engine/Exception.h"
#include "engine/GLLoader.h"
#include "platform/Platform.h"

namespace Brume {

namespace {

OrvelGLProc resolve(const char* name) {
    return reinterpret_cast<OrvelGLProc>(Platform::getGLProcAddress(name));
}

int glMajor = 0;
int glMinor = 0;

// -1: not queried yet on this thread.
thread_local int cachedMaxTextureSize = -1;
thread_local int cachedMaxTextureUnits = -1;

std::atomic<long long> glObjects{0};

} // namespace

long long liveGLObjects() {
    return glObjects.load(std::memory_order_relaxed);
}

void countGLObjects(int change) {
    glObjects.fetch_add(change, std::memory_order_relaxed);
}

int initGLFunctions() {
    glMajor = 0;
    glMinor = 0;
    return orvelLoadGL(resolve);
}

int hasBindlessTexture() {
    return orvelGLHasBindlessTexture();
}

int hasKHRDebug() {
    return orvelGLHasKHRDebug();
}

bool isGLVersionAtLeast(int major, int minor) {
    if (glMajor == 0) {
        glGetIntegerv(GL_MAJOR_VERSION, &glMajor);
        glGetIntegerv(GL_MINOR_VERSION, &glMinor);
    }
    return glMajor > major || (glMajor == major && glMinor >= minor);
}

int maxTextureSize() {
    if (!Platform::hasCurrentGLContext()) {
        throw Exception("No OpenGL rendering context found.");
    }
    if (cachedMaxTextureSize == -1) {
        glGetIntegerv(GL_MAX_TEXTURE_SIZE, &cachedMaxTextureSize);
    }
    return cachedMaxTextureSize;
}

int maxTextureImageUnits() {
    if (cachedMaxTextureUnits == -1) {
        glGetIntegerv(GL_MAX_TEXTURE_IMAGE_UNITS, &cachedMaxTextureUnits);
    }
    return cachedMaxTextureUnits;
}

void GLAPIENTRY onGLDebugMessage(GLenum source, GLenum type, GLuint id, GLenum severity, GLsizei length,
                                 const GLchar* message, const void* userParam) {
    (void)source;
    (void)id;
    (void)severity;
    (void)length;
    (void)userParam;
    if (type != GL_DEBUG_TYPE_ERROR && type != GL_DEBUG_TYPE_UNDEFINED_BEHAVIOR) {
        return;
    }
    std::fprintf(stderr, "OpenGL Debug: %s\n", message ? message : "");
}

void setGLCallHook(GLCallHook hook) {
    orvelSetGLCallHook(hook);
}

} // namespace Brume
