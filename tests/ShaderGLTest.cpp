#include <gtest/gtest.h>

#include <GLFW/glfw3.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/Mat4d.h"
#include "common/Vec3d.h"
#include "engine/Exception.h"
#include "engine/Material.h"
#include "engine/Shader.h"
#include "engine/Texture.h"
#include "tests/support/GLContext.h"

using Brume::Material;
using Brume::Shader;

namespace {

class ShaderGLTest : public OrvelTest::GLTest {};

template <typename F> std::string messageOf(F f) try {
    f();
    return "<no exception>";
} catch (const Brume::Exception& e) {
    return e.what();
}

const char* const VERTEX =
    "#version 410 core\nin vec3 Position;\nuniform mat4 transform;\nuniform vec3 offset;\n"
    "void main() { gl_Position = transform * vec4(Position + offset, 1.0); }\n";
const char* const FRAGMENT = R"(#version 410 core
uniform int mode;
uniform vec2 size;
uniform vec4 color;
uniform float unused;
uniform sampler2D first;
uniform sampler2D second;
out vec4 c;
void main() { c = color * float(mode) + vec4(size, 0.0, 0.0) + texture(first, size) + texture(second, size); }
)";

std::shared_ptr<Material> makeMaterial(const std::string& vertex, const std::string& fragment) {
    auto material = std::make_shared<Material>();
    material->attach(std::make_shared<Shader>(vertex, GL_VERTEX_SHADER));
    material->attach(std::make_shared<Shader>(fragment, GL_FRAGMENT_SHADER));
    return material;
}

std::shared_ptr<Brume::Texture> makeTexture() {
    return std::make_shared<Brume::Texture>(1, 1, GL_RGBA, GL_NEAREST, GL_NEAREST, GL_REPEAT, GL_REPEAT);
}

GLint samplerUnit(const Material& material, const char* name) {
    GLint unit = -1;
    glGetUniformiv(material.getProgram(), glGetUniformLocation(material.getProgram(), name), &unit);
    return unit;
}

} // namespace

TEST_F(ShaderGLTest, FailuresCarryFixedMessagesOrTheCompilersLog) {
    const std::string broken = "#version 410 core\nvoid main() { undeclared = 1.0; }\n";
    const std::string message = messageOf([&] { Shader(broken, GL_FRAGMENT_SHADER); });
    // The same source compiled directly gives the log to compare with.
    const GLuint reference = glCreateShader(GL_FRAGMENT_SHADER);
    const char* text = broken.c_str();
    glShaderSource(reference, 1, &text, nullptr);
    glCompileShader(reference);
    std::vector<char> log(4096);
    glGetShaderInfoLog(reference, 4096, nullptr, log.data());
    glDeleteShader(reference);
    EXPECT_EQ(message, std::string(log.data()));
    EXPECT_NE(message, "");

    EXPECT_EQ(messageOf([] { Brume::loadShaderFile("/nonexistent/Missing.vrt", GL_VERTEX_SHADER); }),
              "Failed to open shader file.");
    const std::string empty = (std::filesystem::temp_directory_path() / "orvel_engine_empty.frg").string();
    std::ofstream{empty};
    EXPECT_NE(messageOf([&] { Brume::loadShaderFile(empty, GL_FRAGMENT_SHADER); }), "<no exception>");
    std::filesystem::remove(empty);
}

TEST_F(ShaderGLTest, LoadShadersRelinksAfterEveryStage) {
    const auto folder = std::filesystem::temp_directory_path();
    const std::string vertexPath = (folder / "orvel_engine_test.vrt").string();
    const std::string fragmentPath = (folder / "orvel_engine_test.frg").string();
    std::ofstream(vertexPath) << VERTEX;
    std::ofstream(fragmentPath) << FRAGMENT;
    Material material;
    OrvelTest::GLCallRecorder recorder;
    material.loadShaders(vertexPath, "", fragmentPath);
    EXPECT_EQ(material.getShaders().size(), 2u);
    EXPECT_EQ(recorder.count("glLinkProgram"), 2);
    std::filesystem::remove(vertexPath);
    std::filesystem::remove(fragmentPath);
}

TEST_F(ShaderGLTest, UniformSettersReachTheProgramAndNameInactiveUniforms) {
    auto material = makeMaterial(VERTEX, FRAGMENT);
    const GLuint program = material->getProgram();
    material->set("mode", 3);
    material->set("size", std::pair<float, float>(0.25f, 0.75f));
    material->set("offset", Ko_1_1::Vec3d<float>(1, 2, 3));
    const float color[4] = {0.1f, 0.2f, 0.3f, 0.4f};
    material->set("color", color);
    Ko_1_1::Mat4d<float> transform;
    transform.at(0, 3) = 5.0f; // a translation: storage index 12, index 3 if it were transposed
    glUseProgram(0);
    material->set("transform", transform);

    GLint current = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &current);
    EXPECT_EQ(static_cast<GLuint>(current), program); // left bound for the draw that follows
    GLint mode = 0;
    glGetUniformiv(program, glGetUniformLocation(program, "mode"), &mode);
    EXPECT_EQ(mode, 3);
    float values[16] = {};
    glGetUniformfv(program, glGetUniformLocation(program, "size"), values);
    EXPECT_FLOAT_EQ(values[1], 0.75f);
    glGetUniformfv(program, glGetUniformLocation(program, "offset"), values);
    EXPECT_FLOAT_EQ(values[2], 3.0f);
    glGetUniformfv(program, glGetUniformLocation(program, "color"), values);
    EXPECT_FLOAT_EQ(values[3], 0.4f);
    glGetUniformfv(program, glGetUniformLocation(program, "transform"), values);
    EXPECT_FLOAT_EQ(values[12], 5.0f);

    // Declared but optimised away, or misspelt: both are inactive, and the program is not bound.
    glUseProgram(0);
    EXPECT_EQ(messageOf([&] { material->set("unused", 1.0f); }), "unused is not an active uniform variable.");
    EXPECT_EQ(messageOf([&] { material->set("Color", color); }), "Color is not an active uniform variable.");
    EXPECT_EQ(messageOf([&] { material->set("tex", makeTexture()); }),
              "tex is not an active uniform variable.");
    glGetIntegerv(GL_CURRENT_PROGRAM, &current);
    EXPECT_EQ(current, 0);
    EXPECT_TRUE(material->getTextures().empty());
}

TEST_F(ShaderGLTest, SamplerBindingsTakeOneMoreThanTheUnitLimit) {
    GLint units = 0;
    glGetIntegerv(GL_MAX_TEXTURE_IMAGE_UNITS, &units);
    // The fragment stage takes the limit; one more sampler in the vertex stage makes units + 1 distinct ones.
    const std::string n = std::to_string(units);
    auto material =
        makeMaterial("#version 410 core\nin vec3 Position;\nuniform sampler2D extra;\n"
                     "void main() { gl_Position = vec4(Position, 1.0) + texture(extra, vec2(0.0)); }\n",
                     "#version 410 core\nuniform sampler2D tex[" + n + "];\nout vec4 c;\nvoid main() {\n" +
                         " c = vec4(0.0);\n for (int i = 0; i < " + n +
                         "; ++i) { c += texture(tex[i], vec2(0.5)); }\n}\n");
    auto a = makeTexture();
    auto b = makeTexture();
    material->set("extra", a);
    material->set("tex[0]", b);
    material->set("extra", b); // replaced in place: same unit, old texture released
    EXPECT_EQ(material->getTextures()[0].texture, b);
    EXPECT_EQ(a.use_count(), 1);
    EXPECT_EQ(samplerUnit(*material, "extra"), 0);
    EXPECT_EQ(samplerUnit(*material, "tex[0]"), 1);

    for (int i = 1; i < units; ++i) {
        material->set(("tex[" + std::to_string(i) + "]").c_str(), a);
    }
    EXPECT_EQ(static_cast<int>(material->getTextures().size()), units + 1);
    EXPECT_EQ(samplerUnit(*material, ("tex[" + std::to_string(units - 1) + "]").c_str()), units);
    // Past the limit even replacing an existing binding is refused.
    const std::string expected = "Only " + n + " textures are supported per material.";
    EXPECT_EQ(messageOf([&] { material->set("extra", a); }), expected);
}

TEST_F(ShaderGLTest, TextureUnitLimitIsQueriedOncePerThread) {
    auto material = makeMaterial(VERTEX, FRAGMENT);
    auto texture = makeTexture();
    // A thread that has never asked for the limit asks once, then keeps the answer.
    int queries[2] = {-1, -1};
    glfwMakeContextCurrent(nullptr);
    std::thread other([&] {
        glfwMakeContextCurrent(context->window());
        OrvelTest::GLCallRecorder recorder;
        material->set("first", texture);
        queries[0] = recorder.count("glGetIntegerv");
        recorder.clear();
        material->set("second", texture);
        queries[1] = recorder.count("glGetIntegerv");
        glfwMakeContextCurrent(nullptr);
    });
    other.join();
    glfwMakeContextCurrent(context->window());
    EXPECT_EQ(queries[0], 1);
    EXPECT_EQ(queries[1], 0);
}
