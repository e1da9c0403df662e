#pragma once

#include <memory>

#include "engine/GL.h"

namespace Brume {
class Texture;
}

// Two textures of one size and format: a new image is written into the back one while the front one is
// shown, then the two change places. Owned by the tablet; render thread only.
class DoubleBufferedTexture {
public:
    DoubleBufferedTexture(int width, int height, GLenum format);

    const std::shared_ptr<Brume::Texture>& back() const { return textures[backIndex]; }
    const std::shared_ptr<Brume::Texture>& front() const { return textures[1 - backIndex]; }
    void swap() { backIndex = 1 - backIndex; }

    int width() const { return pixelWidth; }
    int height() const { return pixelHeight; }

private:
    std::shared_ptr<Brume::Texture> textures[2];
    int backIndex = 0;
    int pixelWidth;
    int pixelHeight;
};
