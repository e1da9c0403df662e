#include "vr/LibrarySettings.h"

#include "platform/Platform.h"

namespace VR {

namespace {

std::string folder(const std::string& base, const char* name) {
    return base + "VR" + Platform::pathSeparator() + name + Platform::pathSeparator();
}

} // namespace

LibrarySettings::LibrarySettings()
    : exeFolder(Platform::executableFolder()), shaders(folder(exeFolder, "Shader")),
      models(folder(exeFolder, "Models")), font(folder(exeFolder, "Fonts") + "NotoSansCJKsc-Regular.otf") {}

const LibrarySettings& LibrarySettings::instance() {
    static const LibrarySettings settings;
    return settings;
}

} // namespace VR
