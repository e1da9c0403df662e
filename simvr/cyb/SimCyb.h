#pragma once

// Control API of the simulated walking-platform library (libCybSDK.so / CybSDK.dll built from simvr/cyb/).
//
// The library serves the vendor's plain C exports (CybSDK_VirtDevice_FindDevice, _Open, _IsOpen, _Close,
// _GetPlayerHeight, _ResetPlayerHeight, _GetPlayerOrientation, _GetMovementSpeed, _GetMovementDirection,
// _ResetPlayerOrientation, _CreateDeviceMockupXInput) for one simulated device; these extra C exports let a
// test or a demo script that device. They live in the same library file, so a client that loads it by name
// can resolve them from the same handle, e.g.
//     auto setSpeed = reinterpret_cast<decltype(&simcyb_setSpeed)>(dlsym(handle, "simcyb_setSpeed"));
//
// Every function is thread-safe (one mutex inside the library). Flags are ints (0 = false, anything else =
// true).
//
// Defaults (also restored by simcyb_reset):
// - no device: FindDevice answers null, so a client runs as on a machine without the platform;
// - the device is closed, and opening it succeeds;
// - orientation 0 (a fraction of a full turn), speed 0, movement direction 1 (walking forward), player
//   height 1.7.
//
// The device answers its readings whether or not it is open. Its handle is a pointer to the one simulated
// device; a call with any other handle answers false or 0 and changes nothing. CreateDeviceMockupXInput
// hands out the same device, present or not. Open answers whether it succeeded (also on an open device),
// Close whether the device was open. ResetPlayerOrientation sets the orientation to 0; ResetPlayerHeight
// keeps the height.

#include <stdint.h>

#if defined(_WIN32)
#if defined(SIMCYB_BUILDING)
#define SIMCYB_API __declspec(dllexport)
#else
#define SIMCYB_API __declspec(dllimport)
#endif
#else
#define SIMCYB_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

// Restores every default above and clears every counter.
SIMCYB_API void simcyb_reset(void);

// Whether FindDevice finds the device.
SIMCYB_API void simcyb_setDevicePresent(int present);
// Opens or closes the device behind the client's back, e.g. as another application left it.
SIMCYB_API void simcyb_setAlreadyOpen(int open);
// Whether Open succeeds; a failed Open leaves the device as it was.
SIMCYB_API void simcyb_setOpenSucceeds(int succeeds);

// Readings: GetPlayerOrientation, GetMovementSpeed, GetMovementDirection, GetPlayerHeight.
SIMCYB_API void simcyb_setOrientation(float fractionOfTurn);
SIMCYB_API void simcyb_setSpeed(float speed);
SIMCYB_API void simcyb_setMovementDirection(float direction);
SIMCYB_API void simcyb_setPlayerHeight(float height);

// --- Queries -------------------------------------------------------------------------------------------

SIMCYB_API uint32_t simcyb_findDeviceCount(void); // FindDevice calls
SIMCYB_API uint32_t simcyb_openCount(void);       // Open calls on the device, failed ones included
SIMCYB_API uint32_t simcyb_closeCount(void);      // Close calls on the device
SIMCYB_API int simcyb_isOpen(void);

#ifdef __cplusplus
}
#endif
