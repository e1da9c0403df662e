#pragma once

#include <string>

#include "platform/Export.h"

namespace VR {

// Where the library finds its resources: the folder "VR" beside the host executable. Made on first use
// (thread-safe) and kept for the life of the process; every path ends as the platform writes it.
class ORVEL_VR_EXPORT LibrarySettings {
public:
    static const LibrarySettings& instance();

    const std::string& executableFolder() const { return exeFolder; }
    const std::string& shaderFolder() const { return shaders; }
    const std::string& modelsFolder() const { return models; }
    const std::string& fontPath() const { return font; }
    unsigned labelWidth() const { return 1024; }
    unsigned labelHeight() const { return 256; }

    // The shader folder joined with a file name, as the renderers pass it to Material::loadShaders.
    std::string shaderPath(const std::string& fileName) const { return shaders + fileName; }

private:
    LibrarySettings();

    std::string exeFolder;
    std::string shaders;
    std::string models;
    std::string font;
};

} // namespace VR
