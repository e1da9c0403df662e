#include "engine/Material.h"

#include <string>
#include <utility>

#include "engine/Exception.h"
#include "engine/GLFunctions.h"
#include "engine/Shader.h"
#include "engine/Texture.h"

namespace Brume {

Material::Material() {
    program = glCreateProgram();
    if (program == 0) {
        throw Exception("Failed to create program.");
    }
    countGLObjects(1);
}

Material::~Material() {
    glDeleteProgram(program);
    countGLObjects(-1);
    textures.clear();
    shaders.clear();
}

void Material::attach(std::shared_ptr<Shader> shader) {
    shaders.push_back(std::move(shader));
    // Relinking after every stage keeps the program usable at each step; a vertex-only program links.
    glAttachShader(program, shaders.back()->getId());
    glLinkProgram(program);
    GLint status = 0;
    glGetProgramiv(program, GL_LINK_STATUS, &status);
    if (status == 0) {
        throw Exception("Failed to link program.");
    }
}

void Material::loadShaders(std::string vertexFile, std::string geometryFile, std::string fragmentFile) {
    if (!vertexFile.empty()) {
        attach(loadShaderFile(std::move(vertexFile), GL_VERTEX_SHADER));
    }
    if (!geometryFile.empty()) {
        attach(loadShaderFile(std::move(geometryFile), GL_GEOMETRY_SHADER));
    }
    if (!fragmentFile.empty()) {
        attach(loadShaderFile(std::move(fragmentFile), GL_FRAGMENT_SHADER));
    }
}

GLint Material::activeLocation(const char* name) const {
    const GLint location = glGetUniformLocation(program, name);
    if (location == -1) {
        throw Exception(std::string(name) + " is not an active uniform variable.");
    }
    return location;
}

void Material::set(const char* name, int value) {
    const GLint location = activeLocation(name);
    glUseProgram(program);
    glUniform1i(location, value);
}

void Material::set(const char* name, float value) {
    const GLint location = activeLocation(name);
    glUseProgram(program);
    glUniform1f(location, value);
}

void Material::set(const char* name, const std::pair<float, float>& value) {
    const GLint location = activeLocation(name);
    const GLfloat components[2] = {value.first, value.second};
    glUseProgram(program);
    glUniform2fv(location, 1, components);
}

void Material::set(const char* name, const Ko_1_1::Vec3d<float>& value) {
    const GLint location = activeLocation(name);
    const GLfloat components[3] = {value.x, value.y, value.z};
    glUseProgram(program);
    glUniform3fv(location, 1, components);
}

void Material::set(const char* name, const float (&value)[4]) {
    const GLint location = activeLocation(name);
    glUseProgram(program);
    glUniform4fv(location, 1, value);
}

void Material::set(const char* name, const Ko_1_1::Mat4d<float>& value) {
    const GLint location = activeLocation(name);
    glUseProgram(program);
    // Column-major storage is exactly what GL expects, so the matrix goes up as it lies in memory.
    glUniformMatrix4fv(location, 1, GL_FALSE, value.data());
}

void Material::set(const char* name, std::shared_ptr<Texture> texture) {
    const GLint location = activeLocation(name);
    // Deliberately strictly greater: a material holding the maximum still takes one more binding.
    const int maximum = maxTextureImageUnits();
    if (textures.size() > static_cast<std::size_t>(maximum)) {
        throw Exception("Only " + std::to_string(maximum) + " textures are supported per material.");
    }
    std::size_t unit = 0;
    while (unit < textures.size() && textures[unit].location != location) {
        ++unit;
    }
    if (unit < textures.size()) {
        textures[unit].texture = std::move(texture);
    } else {
        textures.push_back({location, std::move(texture)});
    }
    glUseProgram(program);
    glUniform1i(location, static_cast<GLint>(unit));
}

} // namespace Brume
