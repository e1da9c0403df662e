#pragma once

#include "engine/GL.h"
#include "platform/Export.h"

namespace Brume {

// A 2D texture in one of six formats (GL_RED, GL_RGBA, GL_BGR, GL_BGRA, GL_DEPTH_COMPONENT,
// GL_DEPTH_STENCIL). Every operation that binds it restores the active unit and the binding it found, so
// texture work never disturbs the bindings a draw set up. Held through std::shared_ptr; render thread only.
class ORVEL_VR_EXPORT Texture {
public:
    // Note the order: magnification filter before minification filter. Throws "Invalid texture format.".
    Texture(int width, int height, GLenum format, GLenum magFilter, GLenum minFilter, GLenum wrapS,
            GLenum wrapT);
    ~Texture();
    Texture(const Texture&) = delete;
    Texture& operator=(const Texture&) = delete;

    // Replaces the whole image; GL_UNPACK_ALIGNMENT is left at unpackAlignment. Regenerates mipmaps when
    // the minification filter uses them.
    void setData(const void* pixels, int unpackAlignment);

    int bytesPerPixel() const;
    bool usesMipmaps() const;
    bool isComplete() const;

    GLenum getFormat() const { return format; }
    GLuint getId() const { return id; }
    int getWidth() const { return width; }
    int getHeight() const { return height; }

private:
    GLenum format;
    GLuint id = 0;
    int width;
    int height;
};

} // namespace Brume
