#include "engine/Shader.h"

#include <fstream>
#include <sstream>
#include <utility>
#include <vector>

#include "engine/Exception.h"

namespace Brume {

Shader::Shader(std::string source, GLenum type) {
    id = glCreateShader(type);
    if (id == 0) {
        throw Exception("Failed to create shader.");
    }
    const GLchar* text = source.c_str();
    glShaderSource(id, 1, &text, nullptr);
    glCompileShader(id);

    GLint status = 0;
    glGetShaderiv(id, GL_COMPILE_STATUS, &status);
    if (status != 0) {
        return;
    }
    GLint length = 0;
    glGetShaderiv(id, GL_INFO_LOG_LENGTH, &length);
    if (length < 1) {
        throw Exception("Failed to compile shader.");
    }
    // The driver's log is the most useful message there is; it goes out untouched, without its zero.
    std::vector<GLchar> log(static_cast<std::size_t>(length));
    glGetShaderInfoLog(id, length, nullptr, log.data());
    throw Exception(std::string(log.data(), static_cast<std::size_t>(length - 1)));
}

Shader::~Shader() {
    glDeleteShader(id);
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
