#include "tests/support/GLContext.h"

#include "engine/Renderer.h"
#include "engine/Target.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "engine/GLFunctions.h"
#include "engine/Shader.h"
#include "platform/Platform.h"

namespace OrvelTest {

namespace {
std::vector<std::string>* recorded = nullptr;

void recordCall(const char* name) {
    if (recorded != nullptr) {
        recorded->emplace_back(name);
    }
}
} // namespace

GLContext::GLContext(int width, int height) {
    // A busy Xvfb refuses a fresh connection now and then (EAGAIN while its listen queue is full), so
    // opening the display gets a few tries before the test is given up.
    bool initialised = false;
    Platform::keepInputLibrariesLoaded();
    for (int attempt = 0; attempt < 20 && !initialised; ++attempt) {
        initialised = glfwInit() == GLFW_TRUE;
        if (!initialised) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
    if (!initialised) {
        return;
    }
    glfwDefaultWindowHints();
    glfwWindowHint(GLFW_VISIBLE, GLFW_FALSE);
    glfwWindowHint(GLFW_CONTEXT_VERSION_MAJOR, 4);
    glfwWindowHint(GLFW_CONTEXT_VERSION_MINOR, 1);
    glfwWindowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_CORE_PROFILE);
    glfwWindowHint(GLFW_OPENGL_FORWARD_COMPAT, GLFW_TRUE);
    handle = glfwCreateWindow(width, height, "test", nullptr, nullptr);
    if (handle == nullptr) {
        glfwTerminate();
        return;
    }
    glfwMakeContextCurrent(handle);
    Brume::initGLFunctions();
    while (glGetError() != GL_NO_ERROR) {
    }
}

GLContext::~GLContext() {
    if (handle != nullptr) {
        glfwMakeContextCurrent(nullptr);
        glfwDestroyWindow(handle);
        glfwTerminate();
    }
}

void GLTest::SetUp() {
    context = new GLContext();
    ASSERT_TRUE(context->valid()) << "no OpenGL 4.1 core context (is a display or Xvfb available?)";
}

void GLTest::TearDown() {
    if (context != nullptr && context->valid()) {
        EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR)) << "the test left a GL error behind";
    }
    delete context;
    context = nullptr;
}

GLCallRecorder::GLCallRecorder() {
    recorded = new std::vector<std::string>();
    Brume::setGLCallHook(recordCall);
}

GLCallRecorder::~GLCallRecorder() {
    Brume::setGLCallHook(nullptr);
    delete recorded;
    recorded = nullptr;
}

const std::vector<std::string>& GLCallRecorder::calls() const {
    return *recorded;
}

int GLCallRecorder::count(const std::string& name) const {
    return static_cast<int>(std::count(recorded->begin(), recorded->end(), name));
}

void GLCallRecorder::clear() {
    recorded->clear();
}

Rgba readPixel(int x, int y) {
    Rgba p{};
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(x, y, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, &p);
    return p;
}

std::shared_ptr<Brume::Material> makeMaterial(const std::string& vertex, const std::string& fragment) {
    auto material = std::make_shared<Brume::Material>();
    material->attach(std::make_shared<Brume::Shader>(vertex, GL_VERTEX_SHADER));
    material->attach(std::make_shared<Brume::Shader>(fragment, GL_FRAGMENT_SHADER));
    return material;
}

std::shared_ptr<Brume::Texture> makeTexture(int width, int height, GLenum format, GLenum minFilter) {
    return std::make_shared<Brume::Texture>(width, height, format, GL_NEAREST, minFilter, GL_CLAMP_TO_EDGE,
                                            GL_CLAMP_TO_EDGE);
}

std::shared_ptr<Brume::Target> makeTarget(int width, int height) {
    return std::make_shared<Brume::Target>(makeTexture(width, height, GL_RGBA),
                                           makeTexture(width, height, GL_DEPTH_STENCIL));
}

void drawInto(Brume::Renderer& renderer, int width, int height) {
    renderer.setTarget(makeTarget(width, height));
    glViewport(0, 0, width, height);
    glEnable(GL_DEPTH_TEST);
    glEnable(GL_STENCIL_TEST);
    glStencilOp(GL_KEEP, GL_KEEP, GL_REPLACE);
    glStencilMask(0xFF);
    glClearColor(0, 0, 0, 0);
    glClearStencil(0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT);
}

unsigned readStencil(int x, int y) {
    GLuint depthStencil = 0;
    glReadPixels(x, y, 1, 1, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, &depthStencil);
    return depthStencil & 0xFFu;
}

} // namespace OrvelTest
