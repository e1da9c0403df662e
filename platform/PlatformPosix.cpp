#include <GLFW/glfw3.h>
#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Platform.h"
#include "platform/Utf.h"

namespace Platform {

void writeDebugOutput(const std::wstring& line) {
    const std::string text = VR::wideToUtf8(line);
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}

namespace {

// Linux schedules threads individually: setpriority on the thread id changes only the calling thread.
void setNice(int value) {
    const auto tid = static_cast<id_t>(::syscall(SYS_gettid));
    (void)::setpriority(PRIO_PROCESS, tid, value);
}

} // namespace

void setCurrentThreadPriorityHighest() {
    // Raising priority needs privileges that a desktop user rarely has; the attempt is enough.
    setNice(-10);
}

void setCurrentThreadPriorityLowest() {
    setNice(10);
}

std::int64_t monotonicNanoseconds() {
    timespec ts{};
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

std::int64_t currentThreadCpuNanoseconds() {
    timespec ts{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

std::string executableFolder() {
    std::vector<char> buffer(4096);
    const ssize_t n = ::readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
    if (n <= 0) {
        return "./";
    }
    std::string path(buffer.data(), static_cast<std::size_t>(n));
    const auto slash = path.find_last_of("\\/");
    if (slash == std::string::npos) {
        return "./";
    }
    return path.substr(0, slash + 1);
}

namespace {
std::mutex errorMutex;
std::string lastError;
} // namespace

void keepInputLibrariesLoaded() {}

void* openLibrary(const std::string& name) {
    void* handle = ::dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* error = ::dlerror();
        std::lock_guard<std::mutex> lock(errorMutex);
        lastError = error ? error : "unknown error";
    }
    return handle;
}

void* librarySymbol(void* library, const char* name) {
    if (library == nullptr) {
        return nullptr;
    }
    return ::dlsym(library, name);
}

void closeLibrary(void* library) {
    if (library != nullptr) {
        ::dlclose(library);
    }
}

std::string libraryError() {
    std::lock_guard<std::mutex> lock(errorMutex);
    return lastError;
}

namespace {

// A context made without a window (EGL on a headless GPU machine, as the benchmarks make one) is not
// GLFW's; EGL's own calls answer for it when the process has EGL loaded.
template <typename Function> Function eglFunction(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_DEFAULT, name));
}

bool glfwContextCurrent() {
    // GLFW reports an error, not a crash, when it was never initialised; the answer is then null.
    return ::glfwGetCurrentContext() != nullptr;
}

} // namespace

bool hasCurrentGLContext() {
    if (glfwContextCurrent()) {
        return true;
    }
    using CurrentContext = void* (*)();
    const auto current = eglFunction<CurrentContext>("eglGetCurrentContext");
    return current != nullptr && current() != nullptr;
}

GLProc getGLProcAddress(const char* name) {
    if (glfwContextCurrent()) {
        return ::glfwGetProcAddress(name);
    }
    using ProcAddress = GLProc (*)(const char*);
    const auto resolve = eglFunction<ProcAddress>("eglGetProcAddress");
    return resolve != nullptr ? resolve(name) : nullptr;
}

} // namespace Platform
