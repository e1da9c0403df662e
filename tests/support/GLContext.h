#pragma once

#include <GLFW/glfw3.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "engine/GL.h"
#include "engine/Material.h"
#include "engine/Texture.h"

namespace Brume {
class Renderer;
class Target;
} // namespace Brume

namespace OrvelTest {

// A hidden GLFW window with a 4.1 core context, current on the calling thread, loader initialised.
// Tests that need GL derive their fixture from GLTest; it ends every test by asserting that glGetError
// reports nothing, so a test that leaves an error behind fails.
class GLContext {
public:
    GLContext(int width = 64, int height = 64);
    ~GLContext();
    GLContext(const GLContext&) = delete;
    GLContext& operator=(const GLContext&) = delete;

    GLFWwindow* window() const { return handle; }
    bool valid() const { return handle != nullptr; }

private:
    GLFWwindow* handle = nullptr;
};

class GLTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    GLContext* context = nullptr;
};

// Records the names of GL calls the engine makes while alive (through the loader's debug hooks).
class GLCallRecorder {
public:
    GLCallRecorder();
    ~GLCallRecorder();
    const std::vector<std::string>& calls() const;
    int count(const std::string& name) const;
    void clear();
};

// Reads an RGBA pixel of the currently bound read frame buffer.
struct Rgba {
    unsigned char r, g, b, a;
};
Rgba readPixel(int x, int y);

// The stencil value at a pixel of the currently bound read frame buffer.
unsigned readStencil(int x, int y);

// A program linked from the two sources; compile and link failures throw as the engine reports them.
std::shared_ptr<Brume::Material> makeMaterial(const std::string& vertex, const std::string& fragment);
// A texture with clamped edges and GL_NEAREST magnification.
std::shared_ptr<Brume::Texture> makeTexture(int width, int height, GLenum format,
                                            GLenum minFilter = GL_NEAREST);
// An RGBA colour and depth-stencil target of the size, like an eye's.
std::shared_ptr<Brume::Target> makeTarget(int width, int height);
// Makes such a target the renderer's, cleared to black with depth 1 and stencil 0, viewport over it, depth
// test on and the stencil test writing the reference wherever a fragment lands, as the frame loop draws.
void drawInto(Brume::Renderer& renderer, int width, int height);

} // namespace OrvelTest
