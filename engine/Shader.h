#pragma once

#include <memory>
#include <string>

#include "engine/GL.h"
#include "platform/Export.h"

namespace Brume {

// One compiled shader stage. The stage is the caller's choice, never derived from a file name.
// Held through std::shared_ptr; render thread only.
class ORVEL_VR_EXPORT Shader {
public:
    // Throws "Failed to create shader.", "Failed to compile shader." or the compiler's log as the message.
    Shader(std::string source, GLenum type);
    ~Shader();
    Shader(const Shader&) = delete;
    Shader& operator=(const Shader&) = delete;

    GLuint getId() const { return id; }

private:
    GLuint id = 0;
};

// Reads the whole file and compiles it; throws "Failed to open shader file." when it cannot be opened.
ORVEL_VR_EXPORT std::shared_ptr<Shader> loadShaderFile(std::string path, GLenum type);

} // namespace Brume
