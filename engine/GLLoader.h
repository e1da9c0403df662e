#pragma once

// C interface of the loader initialisation in GLLoader.c. The engine calls it through initGLFunctions.

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*OrvelGLProc)(void);
typedef OrvelGLProc (*OrvelGLResolve)(const char* name);

/* Resolves every entry point through `resolve`. Returns 0 when glGetIntegerv or glGetStringi is missing,
 * otherwise 1 plus the number of core entry points that could not be resolved. */
int orvelLoadGL(OrvelGLResolve resolve);

/* Extension flags: 0 when absent, else 1 plus the number of the extension's unresolved entry points. */
int orvelGLHasBindlessTexture(void);
int orvelGLHasKHRDebug(void);

/* Call observation for tests and diagnosis: with a non-null hook every GL call made through the loader
 * reports its name before it runs; with null the calls go straight to the driver again. */
typedef void (*OrvelGLCallHook)(const char* name);
void orvelSetGLCallHook(OrvelGLCallHook hook);

#ifdef __cplusplus
}
#endif
