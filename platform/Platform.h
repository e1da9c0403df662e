#pragma once

#include <cstdint>
#include <string>

#include "platform/Export.h"

// The operating-system calls the library makes, behind one narrow header. PlatformWin32.cpp and
// PlatformPosix.cpp implement them; nothing else in the library includes an OS header.
namespace Platform {

// Writes one finished log line to the platform's debug output (the debugger on Windows, stderr elsewhere).
void writeDebugOutput(const std::wstring& line);

// Best effort: an OS that refuses a priority change leaves the thread as it was.
ORVEL_VR_EXPORT void setCurrentThreadPriorityHighest();
ORVEL_VR_EXPORT void setCurrentThreadPriorityLowest();

// Monotonic clock in nanoseconds; only differences are meaningful.
ORVEL_VR_EXPORT std::int64_t monotonicNanoseconds();

// CPU time the calling thread has used, in nanoseconds; only differences on the same thread are meaningful.
// On Windows it advances in scheduler ticks, so single short intervals read as 0 or one tick there.
ORVEL_VR_EXPORT std::int64_t currentThreadCpuNanoseconds();

// The folder of the running executable with its separator appended ("C:\App\" or "/opt/app/").
ORVEL_VR_EXPORT std::string executableFolder();

// The platform's path separator as used in the library's resource paths.
constexpr char pathSeparator() {
#ifdef _WIN32
    return '\\';
#else
    return '/';
#endif
}

// Dynamic libraries: null on failure. `libraryError` describes the last failure of `openLibrary`.
void* openLibrary(const std::string& name);
void* librarySymbol(void* library, const char* name);
void closeLibrary(void* library);
std::string libraryError();

// The window library loads the system's game-controller libraries when it starts and unloads them when it
// ends, while a thread one of them started may still run (seen under Wine: a page fault in the unloaded
// library between two sessions, or at exit). Loaded once more here, they stay for the life of the process.
// Does nothing where there are none.
void keepInputLibrariesLoaded();

// The GL context test and entry-point resolution the engine needs.
bool hasCurrentGLContext();
using GLProc = void (*)();
GLProc getGLProcAddress(const char* name);

} // namespace Platform
