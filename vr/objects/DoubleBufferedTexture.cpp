#include "vr/objects/DoubleBufferedTexture.h"

#include "engine/Texture.h"

DoubleBufferedTexture::DoubleBufferedTexture(int width, int height, GLenum format)
    : pixelWidth(width), pixelHeight(height) {
    // The page is shown at about its own resolution in the hand, so no mipmaps: a new page is uploaded
    // whenever the host has one, and regenerating them each time would cost the render thread.
    for (auto& texture : textures) {
        texture = std::make_shared<Brume::Texture>(width, height, format, GL_LINEAR, GL_LINEAR,
                                                   GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
    }
}
