#pragma once

#include "engine/GL.h"
#include "platform/Export.h"

// Loader start-up, GL limits and the diagnostic hooks. All of it runs on the thread whose context is
// current; the limit caches are per thread because limits belong to the calling thread's context.
namespace Brume {

// Resolves every entry point of the current context. 0 when glGetIntegerv or glGetStringi is missing,
// otherwise 1 plus the number of core entry points that could not be resolved (non-zero means success).
ORVEL_VR_EXPORT int initGLFunctions();

// 0 when the extension is absent, otherwise 1 plus the number of its entry points that did not resolve.
ORVEL_VR_EXPORT int hasBindlessTexture();
ORVEL_VR_EXPORT int hasKHRDebug();

// True when the context's version is at least major.minor; the version is read once and kept.
ORVEL_VR_EXPORT bool isGLVersionAtLeast(int major, int minor);

// GL_MAX_TEXTURE_SIZE of the calling thread's context, queried on first use per thread.
// Throws "No OpenGL rendering context found." when no context is current.
ORVEL_VR_EXPORT int maxTextureSize();

// GL_MAX_TEXTURE_IMAGE_UNITS, cached per thread like maxTextureSize.
ORVEL_VR_EXPORT int maxTextureImageUnits();

// Debug-message callback for glDebugMessageCallback: prints errors and undefined behaviour only.
// The viewer does not install it; it is kept for diagnosis.
ORVEL_VR_EXPORT void GLAPIENTRY onGLDebugMessage(GLenum source, GLenum type, GLuint id, GLenum severity,
                                                 GLsizei length, const GLchar* message,
                                                 const void* userParam);

// GL objects the engine's classes hold in this process (buffers, vertex arrays, textures, framebuffers,
// shaders, programs): a count that keeps rising over a long session is a leak of GL memory.
ORVEL_VR_EXPORT long long liveGLObjects();
// Kept by the engine's classes as they make and delete their objects.
void countGLObjects(int change);

// Reports the name of every GL call made through the loader before it runs (tests, call tracing).
// Null switches observation off and the calls go straight to the driver again.
using GLCallHook = void (*)(const char* name);
ORVEL_VR_EXPORT void setGLCallHook(GLCallHook hook);

} // namespace Brume
