/* Compiles the generated loader and replaces its start-up: the engine resolves the two mandatory
 * queries first, matches extension names exactly and counts what the driver could not give, instead of
 * only loading what the context version claims. */
#include "engine/GLLoader.h"

#include <string.h>

#include "gl.c"

typedef struct {
    OrvelGLResolve resolve;
    int missing;
} OrvelCountingResolver;

static GLADapiproc orvelCountingLoad(void* user, const char* name) {
    OrvelCountingResolver* resolver = (OrvelCountingResolver*)user;
    GLADapiproc proc = (GLADapiproc)resolver->resolve(name);
    if (proc == NULL) {
        resolver->missing++;
    }
    return proc;
}

static void orvelSetCoreVersionFlags(int value) {
    GLAD_GL_VERSION_1_0 = GLAD_GL_VERSION_1_1 = GLAD_GL_VERSION_1_2 = GLAD_GL_VERSION_1_3 = value;
    GLAD_GL_VERSION_1_4 = GLAD_GL_VERSION_1_5 = GLAD_GL_VERSION_2_0 = GLAD_GL_VERSION_2_1 = value;
    GLAD_GL_VERSION_3_0 = GLAD_GL_VERSION_3_1 = GLAD_GL_VERSION_3_2 = GLAD_GL_VERSION_3_3 = value;
    GLAD_GL_VERSION_4_0 = GLAD_GL_VERSION_4_1 = GLAD_GL_VERSION_4_2 = GLAD_GL_VERSION_4_3 = value;
    GLAD_GL_VERSION_4_4 = GLAD_GL_VERSION_4_5 = GLAD_GL_VERSION_4_6 = value;
}

int orvelLoadGL(OrvelGLResolve resolve) {
    OrvelCountingResolver resolver;
    GLint extensionCount = 0;
    GLint i;
    int bindless = 0;
    int khrDebug = 0;

    GLAD_GL_ARB_bindless_texture = 0;
    GLAD_GL_KHR_debug = 0;
    resolver.resolve = resolve;
    resolver.missing = 0;

    glad_glGetIntegerv = (PFNGLGETINTEGERVPROC)resolve("glGetIntegerv");
    if (glad_glGetIntegerv == NULL) {
        return 0;
    }
    glad_glGetStringi = (PFNGLGETSTRINGIPROC)resolve("glGetStringi");
    if (glad_glGetStringi == NULL) {
        return 0;
    }

    glad_glGetIntegerv(GL_NUM_EXTENSIONS, &extensionCount);
    for (i = 0; i < extensionCount; ++i) {
        const char* name = (const char*)glad_glGetStringi(GL_EXTENSIONS, (GLuint)i);
        if (name == NULL) {
            continue;
        }
        if (strcmp(name, "GL_ARB_bindless_texture") == 0) {
            bindless = 1;
        } else if (strcmp(name, "GL_KHR_debug") == 0) {
            khrDebug = 1;
        }
    }
    if (bindless) {
        GLAD_GL_ARB_bindless_texture = 1;
        resolver.missing = 0;
        glad_gl_load_GL_ARB_bindless_texture(orvelCountingLoad, &resolver);
        GLAD_GL_ARB_bindless_texture = 1 + resolver.missing;
    }
    if (khrDebug) {
        GLAD_GL_KHR_debug = 1;
        resolver.missing = 0;
        glad_gl_load_GL_KHR_debug(orvelCountingLoad, &resolver);
        GLAD_GL_KHR_debug = 1 + resolver.missing;
    }

    /* The generated per-version loaders skip versions whose flag is clear; every core entry point is
     * wanted here, so the flags are raised for the duration of the load. */
    orvelSetCoreVersionFlags(1);
    resolver.missing = 0;
    glad_gl_load_GL_VERSION_1_0(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_1_1(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_1_2(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_1_3(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_1_4(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_1_5(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_2_0(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_2_1(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_3_0(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_3_1(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_3_2(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_3_3(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_4_0(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_4_1(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_4_2(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_4_3(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_4_4(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_4_5(orvelCountingLoad, &resolver);
    glad_gl_load_GL_VERSION_4_6(orvelCountingLoad, &resolver);

    /* Calls go straight to the driver unless a hook is installed. */
    gladUninstallGLDebug();
    return 1 + resolver.missing;
}

int orvelGLHasBindlessTexture(void) {
    return GLAD_GL_ARB_bindless_texture;
}
int orvelGLHasKHRDebug(void) {
    return GLAD_GL_KHR_debug;
}

static OrvelGLCallHook orvelHook = NULL;

static void orvelPreCall(const char* name, GLADapiproc proc, int argCount, ...) {
    (void)proc;
    (void)argCount;
    if (orvelHook != NULL) {
        orvelHook(name);
    }
}

static void orvelPostCall(void* result, const char* name, GLADapiproc proc, int argCount, ...) {
    (void)result;
    (void)name;
    (void)proc;
    (void)argCount;
}

void orvelSetGLCallHook(OrvelGLCallHook hook) {
    orvelHook = hook;
    if (hook != NULL) {
        gladSetGLPreCallback(orvelPreCall);
        gladSetGLPostCallback(orvelPostCall);
        gladInstallGLDebug();
    } else {
        gladUninstallGLDebug();
    }
}
