#pragma once

#include <string>

namespace Demo {

// One OpenVR API library (libopenvr_api.so, openvr_api.dll) that the program opens itself before the viewer
// starts. The platform loader keeps a single module per library name, so the viewer's own load by bare name
// finds this module instead of searching: whichever file is opened here is the runtime the session runs on.
// Opening by bare name searches the way the loader does; a path opens exactly that file.
//
// Owned by the program and kept open until the VR session has ended. Use from one thread.
class RuntimeLibrary {
public:
    static const char* const FILE_NAME;

    RuntimeLibrary() = default;
    RuntimeLibrary(const RuntimeLibrary&) = delete;
    RuntimeLibrary& operator=(const RuntimeLibrary&) = delete;
    ~RuntimeLibrary() { close(); }

    // Closes the library held before. False, with error() saying why, when the file could not be opened.
    bool open(const std::string& nameOrPath);
    void close();
    bool isOpen() const { return handle != nullptr; }
    const std::string& error() const { return lastError; }

    // Null when the library has no such export.
    void* symbol(const char* name) const;
    template <typename Function> Function function(const char* name) const {
        return reinterpret_cast<Function>(symbol(name));
    }
    // The file the loader actually mapped, which a bare name does not tell.
    std::string file() const;

    // The running program's folder, ending in its separator.
    static std::string executableFolder();

private:
    void* handle = nullptr;
    std::string lastError;
};

} // namespace Demo
