#pragma once

#include <memory>

#include "engine/GL.h"
#include "platform/Export.h"

namespace Brume {

class Texture;

// An off-screen frame buffer of a colour texture and a depth (or depth-and-stencil) texture. Only a
// GL_DEPTH_STENCIL depth texture gives the target a stencil buffer. Held through std::shared_ptr; render
// thread only.
class ORVEL_VR_EXPORT Target {
public:
    // Throws "colorBuffer must not be nullptr", "depthBuffer must not be nullptr" or
    // "Frame buffer incomplete.". On success the new frame buffer is left bound.
    Target(std::shared_ptr<Texture> colorBuffer, std::shared_ptr<Texture> depthBuffer);
    ~Target();
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    const std::shared_ptr<Texture>& getColorBuffer() const { return colorBuffer; }
    const std::shared_ptr<Texture>& getDepthBuffer() const { return depthBuffer; }
    GLuint getFramebuffer() const { return framebuffer; }

private:
    std::shared_ptr<Texture> colorBuffer;
    std::shared_ptr<Texture> depthBuffer;
    GLuint framebuffer = 0;
};

} // namespace Brume
