#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/Mat4d.h"
#include "common/Vec3d.h"
#include "engine/GL.h"
#include "platform/Export.h"

namespace Brume {

class Shader;
class Texture;

// One linked GL program with its attached stages and the textures bound to its sampler uniforms. The
// position of a texture binding is its texture unit. Uniform locations are looked up by name on every
// set; nothing is cached. Held through std::shared_ptr; render thread only.
class ORVEL_VR_EXPORT Material {
public:
    struct TextureBinding {
        GLint location;
        std::shared_ptr<Texture> texture;
    };

    // Throws "Failed to create program." when GL gives no program.
    Material();
    ~Material();
    Material(const Material&) = delete;
    Material& operator=(const Material&) = delete;

    // Attaches and relinks at once; throws "Failed to link program.".
    void attach(std::shared_ptr<Shader> shader);

    // Loads and attaches the stages whose paths are not empty, in the order vertex, geometry, fragment.
    void loadShaders(std::string vertexFile, std::string geometryFile, std::string fragmentFile);

    // Uniform setters. Each throws "<name> is not an active uniform variable." for an unknown name and
    // leaves the program bound on success.
    void set(const char* name, int value);
    void set(const char* name, float value);
    void set(const char* name, const std::pair<float, float>& value);
    void set(const char* name, const Ko_1_1::Vec3d<float>& value);
    void set(const char* name, const float (&value)[4]);
    void set(const char* name, const Ko_1_1::Mat4d<float>& value);
    // Binds the texture to this sampler's unit; throws "Only N textures are supported per material."
    void set(const char* name, std::shared_ptr<Texture> texture);
    // Booleans are integers in GLSL; without this overload a bool would silently pick another member.
    void set(const char* name, bool value) { set(name, value ? 1 : 0); }

    const std::vector<std::shared_ptr<Shader>>& getShaders() const { return shaders; }
    const std::vector<TextureBinding>& getTextures() const { return textures; }
    GLuint getProgram() const { return program; }

private:
    GLint activeLocation(const char* name) const;

    std::vector<std::shared_ptr<Shader>> shaders;
    std::vector<TextureBinding> textures;
    GLuint program = 0;
};

} // namespace Brume
