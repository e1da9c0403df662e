#include "engine/Target.h"

#include <utility>

#include "engine/Exception.h"
#include "engine/GLFunctions.h"
#include "engine/Texture.h"

namespace Brume {

Target::Target(std::shared_ptr<Texture> colorBuffer, std::shared_ptr<Texture> depthBuffer)
    : colorBuffer(std::move(colorBuffer)), depthBuffer(std::move(depthBuffer)) {
    if (!this->colorBuffer) {
        throw Exception("colorBuffer must not be nullptr");
    }
    if (!this->depthBuffer) {
        throw Exception("depthBuffer must not be nullptr");
    }
    glGenFramebuffers(1, &framebuffer);
    countGLObjects(1);
    glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, this->colorBuffer->getId(),
                           0);
    // Picking writes into the stencil buffer, which only a depth-and-stencil texture provides.
    const GLenum depthAttachment = this->depthBuffer->getFormat() == GL_DEPTH_STENCIL
                                       ? GL_DEPTH_STENCIL_ATTACHMENT
                                       : GL_DEPTH_ATTACHMENT;
    glFramebufferTexture2D(GL_FRAMEBUFFER, depthAttachment, GL_TEXTURE_2D, this->depthBuffer->getId(), 0);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
        glDeleteFramebuffers(1, &framebuffer);
        framebuffer = 0;
        countGLObjects(-1);
        throw Exception("Frame buffer incomplete.");
    }
}

Target::~Target() {
    glDeleteFramebuffers(1, &framebuffer);
    countGLObjects(-1);
    framebuffer = 0;
    depthBuffer.reset();
    colorBuffer.reset();
}

} // namespace Brume
