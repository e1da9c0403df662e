#include "engine/Shader.h"

#include <fstream>
#include <sstream>
#include <utility>
#include <vector>

#include "engine/Exception.h"
#include "engine/GLFunctions.h"

namespace Brume {

Shader::Shader(std::string source, GLenum type) {
    id = glCreateShader(type);
    if (id == 0) {
        throw Exception("Failed to create shader.");
    }
    countGLObjects(1);
    const GLchar* text = source.c_str();
    glShaderSource(id, 1, &text, nullptr);
    glCompileShader(id);

    GLint status = 0;
    glGetShaderiv(id, GL_COMPILE_STATUS, &status);
    if (status != 0) {
        return;
    }
    // The destructor does not run for a shader that failed, so its name goes here.
    GLint length = 0;
    glGetShaderiv(id, GL_INFO_LOG_LENGTH, &length);
    std::string message = "Failed to compile shader.";
    if (length >= 1) {
        // The driver's log is the most useful message there is; it goes out untouched, without its zero.
        std::vector<GLchar> log(static_cast<std::size_t>(length));
        glGetShaderInfoLog(id, length, nullptr, log.data());
        message.assign(log.data(), static_cast<std::size_t>(length - 1));
    }
    glDeleteShader(id);
    countGLObjects(-1);
    throw Exception(message);
}

Shader::~Shader() {
    glDeleteShader(id);
    countGLObjects(-1);
}

std::shared_ptr<Shader> loadShaderFile(std::string path, GLenum type) {
    std::ifstream file(path);
    if (file.fail() || file.bad()) {
        throw Exception("Failed to open shader file.");
    }
    std::stringstream text;
    text << file.rdbuf();
    return std::make_shared<Shader>(text.str(), type);
}

} // namespace Brume
