#pragma once

#include "engine/GL.h"

// Alpha blending for a translucent plate, with the caller's blend state put back when the scope ends.
// Render thread only.
class BlendScope {
public:
    BlendScope() : wasEnabled(glIsEnabled(GL_BLEND) == GL_TRUE) {
        glGetIntegerv(GL_BLEND_SRC_RGB, &srcRgb);
        glGetIntegerv(GL_BLEND_DST_RGB, &dstRgb);
        glGetIntegerv(GL_BLEND_SRC_ALPHA, &srcAlpha);
        glGetIntegerv(GL_BLEND_DST_ALPHA, &dstAlpha);
        glEnable(GL_BLEND);
        glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    }
    ~BlendScope() {
        glBlendFuncSeparate(static_cast<GLenum>(srcRgb), static_cast<GLenum>(dstRgb),
                            static_cast<GLenum>(srcAlpha), static_cast<GLenum>(dstAlpha));
        if (!wasEnabled) {
            glDisable(GL_BLEND);
        }
    }
    BlendScope(const BlendScope&) = delete;
    BlendScope& operator=(const BlendScope&) = delete;

private:
    bool wasEnabled;
    GLint srcRgb = GL_ONE;
    GLint dstRgb = GL_ZERO;
    GLint srcAlpha = GL_ONE;
    GLint dstAlpha = GL_ZERO;
};
