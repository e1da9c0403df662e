#pragma once

// Control API of the simulated OpenVR runtime (libopenvr_api.so / openvr_api.dll built from simvr/).
//
// The runtime serves the OpenVR 1.0.9 binary interface to an unchanged client; these extra C exports let a
// test or a demo script the session from outside: whether a runtime and a headset are present, which init
// errors come back, the devices' poses over time, controller input, render-model loading, and what the
// client submitted. They live in the same library as the OpenVR entry points, so a client that loads the
// library by name can resolve them from the same handle, e.g.
//     auto reset = reinterpret_cast<decltype(&simvr_reset)>(dlsym(handle, "simvr_reset"));
//
// Every function is thread-safe (one mutex inside the runtime): a test may drive the runtime from another
// thread while the client runs its frame loop. Flags are ints (0 = false, anything else = true), device
// classes, roles, properties and errors are the OpenVR enum values.
//
// Defaults (also restored by simvr_reset):
// - runtime installed, headset present, no scripted init errors, paced to the display frequency;
// - headset (device 0): tracking system "simvr", model number "SimVR Headset", serial "SIMVR-0001",
//   render model "simvr_hmd", recommended size 1512 x 1680 per eye, 90 Hz, IPD 0.064 m, standing at
//   (0, 1.7, 0) looking down -z;
// - device 1: left-hand controller at (-0.2, 1.2, -0.3); device 2: right-hand controller at
//   (0.2, 1.2, -0.3); both render model "simvr_controller", whose "body" component is the render model
//   "simvr_controller_body"; devices 3 to 15: class Invalid, not connected;
// - setting "steamvr"/"supersampleScale" = 1.0;
// - render models and textures answer "loading" (100) 3 times before they are delivered.

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#if defined(SIMVR_BUILDING)
#define SIMVR_API __declspec(dllexport)
#else
#define SIMVR_API __declspec(dllimport)
#endif
#else
#define SIMVR_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

// Called at the start of every WaitGetPoses, on the thread that calls it, with no lock held, so it may call
// any simvr_ setter (poses, velocities, controller state). frameIndex counts WaitGetPoses calls since the
// last successful VR_InitInternal, from 0; seconds is the monotonic time since that init.
typedef void (*simvr_PoseScript)(uint64_t frameIndex, double seconds, void* user);

// --- Session -------------------------------------------------------------------------------------------

// Restores every default above, clears every counter and captured picture, removes the pose script, and
// ends a running session (without counting a shutdown).
SIMVR_API void simvr_reset(void);

// VR_IsRuntimeInstalled; when not installed, VR_InitInternal fails with 100 (InstallationNotFound).
SIMVR_API void simvr_setInstalled(int installed);
// VR_IsHmdPresent; when absent, VR_InitInternal fails with 108 (HmdNotFound).
SIMVR_API void simvr_setHmdPresent(int present);
// Each VR_InitInternal call consumes the next error of the sequence (0 = success); once the sequence is
// used up every call succeeds. Replaces the previous sequence; count 0 clears it.
SIMVR_API void simvr_setInitErrors(const int32_t* errors, uint32_t count);
// Makes VR_GetGenericInterface fail with 105 and VR_IsInterfaceVersionValid answer false for one of the
// four interface versions ("IVRCompositor_020", ...), or serve it again.
SIMVR_API void simvr_setInterfaceAvailable(const char* interfaceVersion, int available);

// --- Headset and settings ------------------------------------------------------------------------------

// Any null argument leaves that property unchanged.
SIMVR_API void simvr_setHmdProperties(const char* trackingSystemName, const char* modelNumber,
                                      const char* serialNumber);
SIMVR_API void simvr_setRecommendedSize(uint32_t width, uint32_t height);
// Display frequency (Prop_DisplayFrequency_Float of device 0) and the pacing of WaitGetPoses.
SIMVR_API void simvr_setDisplayFrequency(float hertz);
// Sets or removes the setting "steamvr"/"supersampleScale"; removed, IVRSettings::GetFloat reports an
// error and answers 0.
SIMVR_API void simvr_setSupersampleScale(float scale);
SIMVR_API void simvr_removeSupersampleScale(void);
// Paced (default): WaitGetPoses sleeps until the next frame boundary of the display frequency. Unpaced:
// it returns at once.
SIMVR_API void simvr_setPaced(int paced);
// On (default): Submit reads each eye texture's pixels back for simvr_lastSubmittedPicture. Off: Submit only
// checks the texture and records its size, which keeps large eye textures cheap on software GL.
SIMVR_API void simvr_setSubmitCapture(int capture);

// Any string property of any device (1000 tracking system, 1001 model number, 1002 serial, 1003 render
// model name, ...); value null removes it, so reading it reports TrackedProp_UnknownProperty.
SIMVR_API void simvr_setStringProperty(uint32_t deviceIndex, int32_t property, const char* value);

// --- Devices (index 0 to 15; 0 is the headset) ---------------------------------------------------------

// Class, controller role and connected flag in one call. A connected device with a valid pose tracks as
// Running_OK.
SIMVR_API void simvr_setDevice(uint32_t deviceIndex, int32_t deviceClass, int32_t role, int connected);
SIMVR_API void simvr_setDeviceClass(uint32_t deviceIndex, int32_t deviceClass);
SIMVR_API void simvr_setControllerRole(uint32_t deviceIndex, int32_t role);
SIMVR_API void simvr_setDeviceConnected(uint32_t deviceIndex, int connected);
// Device-to-absolute-tracking matrix, 3 x 4 row-major (12 floats, translation in the last column); also
// makes the pose valid.
SIMVR_API void simvr_setDevicePose(uint32_t deviceIndex, const float matrix34[12]);
SIMVR_API void simvr_setDevicePoseValid(uint32_t deviceIndex, int valid);
// Linear velocity (m/s) and angular velocity (rad/s), three floats each; null leaves that vector.
SIMVR_API void simvr_setDeviceVelocity(uint32_t deviceIndex, const float velocity[3],
                                       const float angularVelocity[3]);
// The script is called at every WaitGetPoses (see simvr_PoseScript); null removes it.
SIMVR_API void simvr_setPoseScript(simvr_PoseScript script, void* user);

// Controller state for GetControllerState: button masks (1 << button id) and 5 axes as x, y pairs
// (10 floats; null = all zero). The packet number increases whenever the state changes.
SIMVR_API void simvr_setControllerState(uint32_t deviceIndex, uint64_t buttonsPressed,
                                        uint64_t buttonsTouched, const float axes[10]);

// --- Render models -------------------------------------------------------------------------------------

// How many times LoadRenderModel_Async and LoadTexture_Async answer 100 (loading) for a name or texture
// before delivering it (counted per name / texture id, from the first request after the last delivery).
SIMVR_API void simvr_setRenderModelLoadingPolls(uint32_t polls);
// When set, LoadTexture_Async answers VRRenderModelError_InvalidTexture (400) once loading is done.
SIMVR_API void simvr_setTextureLoadFails(int fails);

// --- Queries -------------------------------------------------------------------------------------------

SIMVR_API uint32_t simvr_initCount(void);     // successful VR_InitInternal calls
SIMVR_API uint32_t simvr_shutdownCount(void); // VR_ShutdownInternal calls while initialised
SIMVR_API int simvr_isInitialized(void);
SIMVR_API int32_t simvr_lastApplicationType(void); // of the last VR_InitInternal call, -1 before any
SIMVR_API uint64_t simvr_waitGetPosesCount(void);
SIMVR_API uint64_t simvr_postPresentHandoffCount(void);

// Successful Submit calls for eye 0 (left) or 1 (right).
SIMVR_API uint64_t simvr_submitCount(uint32_t eye);
// Submit calls that were answered with an error, both eyes together.
SIMVR_API uint64_t simvr_submitErrorCount(void);
// The picture of the last successful Submit of an eye, as the GL texture held it: RGBA, 4 bytes a pixel,
// rows from the bottom row up (GL order). Writes width and height (either may be null) and returns the
// picture's byte count (width * height * 4), 0 when the eye has no picture. Copies the bytes only when
// rgba is non-null and capacity holds them all.
SIMVR_API size_t simvr_lastSubmittedPicture(uint32_t eye, uint32_t* width, uint32_t* height, uint8_t* rgba,
                                            size_t capacity);
// GL texture name of the last successful Submit of an eye, 0 when none.
SIMVR_API uint32_t simvr_lastSubmittedTexture(uint32_t eye);

// Haptic pulses in the order TriggerHapticPulse received them. simvr_hapticPulse returns 0 when index is
// out of range; any output pointer may be null.
SIMVR_API uint32_t simvr_hapticPulseCount(void);
SIMVR_API int simvr_hapticPulse(uint32_t index, uint32_t* deviceIndex, uint32_t* axis,
                                uint16_t* microseconds);

// Delivered render models and textures, and the ones the client freed.
SIMVR_API uint32_t simvr_renderModelLoadCount(void);
SIMVR_API uint32_t simvr_renderModelFreeCount(void);
SIMVR_API uint32_t simvr_textureLoadCount(void);
SIMVR_API uint32_t simvr_textureFreeCount(void);

#ifdef __cplusplus
}
#endif
