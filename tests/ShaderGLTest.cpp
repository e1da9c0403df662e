#include <gtest/gtest.h>

#include <GLFW/glfw3.h>

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
#include "tests/support/Messages.h"
#include "tests/support/TempFolder.h"

using Brume::Material;
using Brume::Shader;
using OrvelTest::makeMaterial;
using OrvelTest::thrownMessage;

namespace {

class ShaderGLTest : public OrvelTest::GLTest {};

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

std::shared_ptr<Brume::Texture> makeTexture() {
    return OrvelTest::makeTexture(1, 1, GL_RGBA);
}

GLint integerUniform(const Material& material, const std::string& name) {
    GLint unit = -1;
    glGetUniformiv(material.getProgram(), glGetUniformLocation(material.getProgram(), name.c_str()), &unit);
    return unit;
}

// One element of a float uniform as the program holds it.
float uniformElement(GLuint program, const char* name, int index) {
    float values[16] = {};
    glGetUniformfv(program, glGetUniformLocation(program, name), values);
    return values[index];
}

} // namespace

TEST_F(ShaderGLTest, FailuresCarryFixedMessagesOrTheCompilersLog) {
    const std::string broken = "#version 410 core\nvoid main() { undeclared = 1.0; }\n";
    const std::string message = thrownMessage([&] { Shader(broken, GL_FRAGMENT_SHADER); });
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

    const OrvelTest::TempFolder folder;
    EXPECT_EQ(thrownMessage([&] { Brume::loadShaderFile(folder.path("Missing.vrt"), GL_VERTEX_SHADER); }),
              "Failed to open shader file.");
    std::ofstream{folder.path("empty.frg")};
    EXPECT_NE(thrownMessage([&] { Brume::loadShaderFile(folder.path("empty.frg"), GL_FRAGMENT_SHADER); }),
              "<no exception>");
}

TEST_F(ShaderGLTest, LoadShadersRelinksAfterEveryStage) {
    const OrvelTest::TempFolder folder;
    std::ofstream(folder.path("test.vrt")) << VERTEX;
    std::ofstream(folder.path("test.frg")) << FRAGMENT;
    Material material;
    OrvelTest::GLCallRecorder recorder;
    material.loadShaders(folder.path("test.vrt"), "", folder.path("test.frg"));
    EXPECT_EQ(material.getShaders().size(), 2u);
    EXPECT_EQ(recorder.count("glLinkProgram"), 2);
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
    EXPECT_EQ(integerUniform(*material, "mode"), 3);
    EXPECT_FLOAT_EQ(uniformElement(program, "size", 1), 0.75f);
    EXPECT_FLOAT_EQ(uniformElement(program, "offset", 2), 3.0f);
    EXPECT_FLOAT_EQ(uniformElement(program, "color", 3), 0.4f);
    EXPECT_FLOAT_EQ(uniformElement(program, "transform", 12), 5.0f);

    // Declared but optimised away, or misspelt: both are inactive, and the program is not bound.
    glUseProgram(0);
    EXPECT_EQ(thrownMessage([&] { material->set("unused", 1.0f); }),
              "unused is not an active uniform variable.");
    EXPECT_EQ(thrownMessage([&] { material->set("Color", color); }),
              "Color is not an active uniform variable.");
    EXPECT_EQ(thrownMessage([&] { material->set("tex", makeTexture()); }),
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
    EXPECT_EQ(integerUniform(*material, "extra"), 0);
    EXPECT_EQ(integerUniform(*material, "tex[0]"), 1);

    for (int i = 1; i < units; ++i) {
        material->set(("tex[" + std::to_string(i) + "]").c_str(), a);
    }
    EXPECT_EQ(static_cast<int>(material->getTextures().size()), units + 1);
    EXPECT_EQ(integerUniform(*material, "tex[" + std::to_string(units - 1) + "]"), units);
    // Past the limit even replacing an existing binding is refused.
    const std::string expected = "Only " + n + " textures are supported per material.";
    EXPECT_EQ(thrownMessage([&] { material->set("extra", a); }), expected);
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
