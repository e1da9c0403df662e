#include "engine/Texture.h"

#include "engine/Exception.h"
#include "engine/GLFunctions.h"

namespace Brume {

namespace {

struct PixelFormat {
    GLint storage;
    GLenum clientFormat;
    GLenum clientType;
    int bytesPerPixel;
};

PixelFormat pixelFormat(GLenum format) {
    switch (format) {
    case GL_RED:
        return {GL_R8, GL_RED, GL_UNSIGNED_BYTE, 1};
    case GL_RGBA:
        return {GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, 4};
    case GL_BGR:
        return {GL_RGBA8, GL_BGR, GL_UNSIGNED_BYTE, 3};
    case GL_BGRA:
        return {GL_RGBA8, GL_BGRA, GL_UNSIGNED_BYTE, 4};
    case GL_DEPTH_COMPONENT:
        return {GL_DEPTH_COMPONENT32F, GL_DEPTH_COMPONENT, GL_FLOAT, 4};
    case GL_DEPTH_STENCIL:
        return {GL_DEPTH24_STENCIL8, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, 4};
    default:
        throw Exception("Invalid texture format.");
    }
}

bool isMipmapFilter(GLint filter) {
    return filter >= GL_NEAREST_MIPMAP_NEAREST && filter <= GL_LINEAR_MIPMAP_LINEAR;
}

// Makes a texture current on unit 0 for the length of one operation and puts back the unit and the
// binding it found, also when the operation throws, so that texture work never disturbs what a draw
// bound. Each is switched, and switched back, only when it differs.
class BindingScope {
public:
    BindingScope() {
        glGetIntegerv(GL_ACTIVE_TEXTURE, &previousUnit);
        if (previousUnit != GL_TEXTURE0) {
            glActiveTexture(GL_TEXTURE0);
            unitChanged = true;
        }
        glGetIntegerv(GL_TEXTURE_BINDING_2D, &previousTexture);
    }

    explicit BindingScope(GLuint texture) : BindingScope() { bind(texture); }

    ~BindingScope() {
        if (textureChanged) {
            glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(previousTexture));
        }
        if (unitChanged) {
            glActiveTexture(static_cast<GLenum>(previousUnit));
        }
    }

    BindingScope(const BindingScope&) = delete;
    BindingScope& operator=(const BindingScope&) = delete;

    void bind(GLuint texture) {
        if (static_cast<GLuint>(previousTexture) != texture) {
            glBindTexture(GL_TEXTURE_2D, texture);
            textureChanged = true;
        }
    }

private:
    GLint previousUnit = GL_TEXTURE0;
    GLint previousTexture = 0;
    bool unitChanged = false;
    bool textureChanged = false;
};

} // namespace

Texture::Texture(int width, int height, GLenum format, GLenum magFilter, GLenum minFilter, GLenum wrapS,
                 GLenum wrapT)
    : format(format), width(width), height(height) {
    BindingScope scope;
    glGenTextures(1, &id);
    countGLObjects(1);
    scope.bind(id);

    PixelFormat pixels{};
    try {
        pixels = pixelFormat(format);
    } catch (...) {
        // The destructor will not run for a texture that was never made; its name must not leak.
        glDeleteTextures(1, &id);
        id = 0;
        countGLObjects(-1);
        throw;
    }
    if (format == GL_BGR) {
        glTexImage2D(GL_TEXTURE_2D, 0, pixels.storage, width, height, 0, GL_BGR, GL_UNSIGNED_BYTE, nullptr);
    }
    // Colour storage is always specified through RGBA; the upload format only matters for setData.
    const GLenum allocationFormat = pixels.storage == GL_RGBA8 ? GL_RGBA : pixels.clientFormat;
    glTexImage2D(GL_TEXTURE_2D, 0, pixels.storage, width, height, 0, allocationFormat, pixels.clientType,
                 nullptr);

    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, static_cast<GLint>(minFilter));
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, static_cast<GLint>(magFilter));
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, static_cast<GLint>(wrapS));
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, static_cast<GLint>(wrapT));
}

Texture::~Texture() {
    glDeleteTextures(1, &id);
    countGLObjects(-1);
}

void Texture::setData(const void* pixels, int unpackAlignment) {
    const PixelFormat upload = pixelFormat(format);
    BindingScope scope(id);
    glPixelStorei(GL_UNPACK_ALIGNMENT, unpackAlignment);
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width, height, upload.clientFormat, upload.clientType, pixels);
    GLint minFilter = 0;
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &minFilter);
    if (isMipmapFilter(minFilter)) {
        glGenerateMipmap(GL_TEXTURE_2D);
    }
}

int Texture::bytesPerPixel() const {
    return pixelFormat(format).bytesPerPixel;
}

bool Texture::usesMipmaps() const {
    BindingScope scope(id);
    GLint minFilter = 0;
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &minFilter);
    return isMipmapFilter(minFilter);
}

bool Texture::isComplete() const {
    BindingScope scope(id);
    GLint levelWidth = 0;
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &levelWidth);
    if (levelWidth <= 0) {
        return false;
    }
    GLint minFilter = 0;
    glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &minFilter);
    if (!isMipmapFilter(minFilter)) {
        return true;
    }
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 1, GL_TEXTURE_WIDTH, &levelWidth);
    return levelWidth > 0;
}

} // namespace Brume
