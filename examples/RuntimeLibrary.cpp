#include "examples/RuntimeLibrary.h"

#include <vector>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>
#endif

namespace Demo {

#if defined(_WIN32)
const char* const RuntimeLibrary::FILE_NAME = "openvr_api.dll";
#else
const char* const RuntimeLibrary::FILE_NAME = "libopenvr_api.so";
#endif

namespace {

#if defined(_WIN32)
std::wstring wide(const std::string& text) {
    const int n = ::MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, nullptr, 0);
    std::wstring out(n > 0 ? static_cast<std::size_t>(n) : 1u, L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, &out[0], n);
    out.resize(out.size() - 1);
    return out;
}

std::string utf8(const wchar_t* text) {
    const int n = ::WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string out(n > 0 ? static_cast<std::size_t>(n) : 1u, '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text, -1, &out[0], n, nullptr, nullptr);
    out.resize(out.size() - 1);
    return out;
}

std::string modulePath(HMODULE module) {
    std::vector<wchar_t> buffer(32768);
    const DWORD n = ::GetModuleFileNameW(module, buffer.data(), static_cast<DWORD>(buffer.size()));
    buffer[n < buffer.size() ? n : buffer.size() - 1] = L'\0';
    return utf8(buffer.data());
}
#endif

} // namespace

bool RuntimeLibrary::open(const std::string& nameOrPath) {
    close();
#if defined(_WIN32)
    handle = reinterpret_cast<void*>(::LoadLibraryW(wide(nameOrPath).c_str()));
    if (handle == nullptr) {
        lastError = nameOrPath + ": LoadLibraryW failed with error " + std::to_string(::GetLastError());
    }
#else
    handle = ::dlopen(nameOrPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* reason = ::dlerror();
        lastError = reason != nullptr ? reason : nameOrPath + ": cannot be opened";
    }
#endif
    if (handle != nullptr) {
        lastError.clear();
    }
    return handle != nullptr;
}

void RuntimeLibrary::close() {
    if (handle == nullptr) {
        return;
    }
#if defined(_WIN32)
    ::FreeLibrary(reinterpret_cast<HMODULE>(handle));
#else
    ::dlclose(handle);
#endif
    handle = nullptr;
}

void* RuntimeLibrary::symbol(const char* name) const {
    if (handle == nullptr) {
        return nullptr;
    }
#if defined(_WIN32)
    return reinterpret_cast<void*>(::GetProcAddress(reinterpret_cast<HMODULE>(handle), name));
#else
    return ::dlsym(handle, name);
#endif
}

std::string RuntimeLibrary::file() const {
    if (handle == nullptr) {
        return {};
    }
#if defined(_WIN32)
    return modulePath(reinterpret_cast<HMODULE>(handle));
#else
    link_map* map = nullptr;
    if (::dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr || map->l_name == nullptr) {
        return FILE_NAME;
    }
    return map->l_name;
#endif
}

std::string RuntimeLibrary::executableFolder() {
#if defined(_WIN32)
    std::string path = modulePath(nullptr);
#else
    std::vector<char> buffer(4096);
    const ssize_t n = ::readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
    std::string path(buffer.data(), n > 0 ? static_cast<std::size_t>(n) : 0u);
#endif
    const std::size_t slash = path.find_last_of("\\/");
    if (slash == std::string::npos) {
#if defined(_WIN32)
        return ".\\";
#else
        return "./";
#endif
    }
    return path.substr(0, slash + 1);
}

} // namespace Demo
