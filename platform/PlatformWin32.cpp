#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include <mutex>
#include <string>

#include "platform/Platform.h"
#include "platform/Utf.h"

namespace Platform {

void writeDebugOutput(const std::wstring& line) {
    ::OutputDebugStringW(line.c_str());
}

void setCurrentThreadPriorityHighest() {
    ::SetThreadPriority(::GetCurrentThread(), THREAD_PRIORITY_HIGHEST);
}

void setCurrentThreadPriorityLowest() {
    ::SetThreadPriority(::GetCurrentThread(), THREAD_PRIORITY_LOWEST);
}

std::int64_t monotonicNanoseconds() {
    LARGE_INTEGER frequency;
    LARGE_INTEGER counter;
    ::QueryPerformanceFrequency(&frequency);
    ::QueryPerformanceCounter(&counter);
    // Whole seconds and the remainder are scaled apart so the product never overflows.
    const std::int64_t seconds = counter.QuadPart / frequency.QuadPart;
    const std::int64_t remainder = counter.QuadPart % frequency.QuadPart;
    return seconds * 1000000000LL + remainder * 1000000000LL / frequency.QuadPart;
}

std::int64_t currentThreadCpuNanoseconds() {
    FILETIME creation;
    FILETIME exited;
    FILETIME kernel;
    FILETIME user;
    if (!::GetThreadTimes(::GetCurrentThread(), &creation, &exited, &kernel, &user)) {
        return 0;
    }
    auto hundredNanoseconds = [](const FILETIME& t) {
        return (static_cast<std::int64_t>(t.dwHighDateTime) << 32) |
               static_cast<std::int64_t>(t.dwLowDateTime);
    };
    return (hundredNanoseconds(kernel) + hundredNanoseconds(user)) * 100;
}

std::string executableFolder() {
    char buffer[MAX_PATH * 4] = {};
    const DWORD n = ::GetModuleFileNameA(nullptr, buffer, static_cast<DWORD>(sizeof(buffer)));
    std::string path(buffer, n);
    const auto slash = path.find_last_of("\\/");
    if (slash == std::string::npos) {
        return ".\\";
    }
    return path.substr(0, slash) + "\\";
}

namespace {
std::mutex errorMutex;
std::string lastError;
} // namespace

void keepInputLibrariesLoaded() {
    static const bool loaded = [] {
        ::LoadLibraryW(L"xinput1_4.dll");
        ::LoadLibraryW(L"dinput8.dll");
        return true;
    }();
    (void)loaded;
}

void* openLibrary(const std::string& name) {
    const std::wstring wide = VR::utf8ToWide(name);
    HMODULE module = ::LoadLibraryW(wide.c_str());
    if (module == nullptr) {
        std::lock_guard<std::mutex> lock(errorMutex);
        lastError = "LoadLibraryW failed with error " + std::to_string(::GetLastError());
    }
    return reinterpret_cast<void*>(module);
}

void* librarySymbol(void* library, const char* name) {
    if (library == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<void*>(::GetProcAddress(reinterpret_cast<HMODULE>(library), name));
}

void closeLibrary(void* library) {
    if (library != nullptr) {
        ::FreeLibrary(reinterpret_cast<HMODULE>(library));
    }
}

std::string libraryError() {
    std::lock_guard<std::mutex> lock(errorMutex);
    return lastError;
}

bool hasCurrentGLContext() {
    return ::wglGetCurrentContext() != nullptr;
}

GLProc getGLProcAddress(const char* name) {
    // wglGetProcAddress answers only for entry points beyond OpenGL 1.1 and signals failure with a few
    // small values besides null; the rest come from the system's opengl32.
    PROC proc = ::wglGetProcAddress(name);
    const auto value = reinterpret_cast<std::intptr_t>(proc);
    if (proc == nullptr || value == 1 || value == 2 || value == 3 || value == -1) {
        static HMODULE openGL = ::LoadLibraryA("OpenGL32.dll");
        proc = openGL ? ::GetProcAddress(openGL, name) : nullptr;
    }
    return reinterpret_cast<GLProc>(proc);
}

} // namespace Platform
