#pragma once

// Marks the classes and functions that form the library's binary boundary. Everything else is hidden.
#if defined(ORVEL_VR_STATIC)
#define ORVEL_VR_EXPORT
#elif defined(_WIN32)
#if defined(ORVEL_VR_BUILDING)
#define ORVEL_VR_EXPORT __declspec(dllexport)
#else
#define ORVEL_VR_EXPORT __declspec(dllimport)
#endif
#else
#define ORVEL_VR_EXPORT __attribute__((visibility("default")))
#endif
