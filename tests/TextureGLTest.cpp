#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "engine/Target.h"
#include "engine/Texture.h"
#include "tests/support/GLContext.h"
#include "tests/support/Messages.h"

using Brume::Target;
using Brume::Texture;
using OrvelTest::makeTexture;
using OrvelTest::thrownMessage;

namespace {

class TextureGLTest : public OrvelTest::GLTest {};

GLint integer(GLenum name) {
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
}

} // namespace

TEST_F(TextureGLTest, OperationsLeaveOtherUnitsAndBindingsAlone) {
    GLuint drawn[2] = {};
    glGenTextures(2, drawn);
    glBindTexture(GL_TEXTURE_2D, drawn[0]); // unit 0, where texture operations do their work
    glActiveTexture(GL_TEXTURE3);
    glBindTexture(GL_TEXTURE_2D, drawn[1]);
    auto expectUntouched = [&](const char* step) {
        EXPECT_EQ(integer(GL_ACTIVE_TEXTURE), GL_TEXTURE3) << step;
        EXPECT_EQ(static_cast<GLuint>(integer(GL_TEXTURE_BINDING_2D)), drawn[1]) << step;
        glActiveTexture(GL_TEXTURE0);
        EXPECT_EQ(static_cast<GLuint>(integer(GL_TEXTURE_BINDING_2D)), drawn[0]) << step;
        glActiveTexture(GL_TEXTURE3);
    };

    auto texture = makeTexture(4, 4, GL_RGBA, GL_LINEAR_MIPMAP_LINEAR);
    expectUntouched("construction");
    EXPECT_FALSE(texture->isComplete()); // no level 1 yet
    const std::uint32_t pixels[16] = {};
    texture->setData(pixels, 4);
    EXPECT_TRUE(texture->usesMipmaps());
    EXPECT_TRUE(texture->isComplete()); // setData generated the mipmaps
    expectUntouched("setData and queries");
    // The failing construction had already bound its new name when it threw.
    EXPECT_EQ(thrownMessage([] { makeTexture(1, 1, GL_RGB); }), "Invalid texture format.");
    expectUntouched("failed construction");
    glActiveTexture(GL_TEXTURE0);
    glDeleteTextures(2, drawn);
}

TEST_F(TextureGLTest, BgrUploadsWithTheGivenAlignmentAndWithoutMipmaps) {
    EXPECT_EQ(makeTexture(1, 1, GL_BGR)->bytesPerPixel(), 3);
    EXPECT_EQ(makeTexture(1, 1, GL_DEPTH_COMPONENT)->bytesPerPixel(), 4);
    // Rows of a 3x2 BGR image are 9 bytes long: only alignment 1 finds the second row at byte 9.
    auto bgr = makeTexture(3, 2, GL_BGR, GL_LINEAR);
    unsigned char pixels[18];
    for (int i = 0; i < 18; ++i) {
        pixels[i] = static_cast<unsigned char>(i + 1);
    }
    bgr->setData(pixels, 1);
    EXPECT_EQ(integer(GL_UNPACK_ALIGNMENT), 1); // left as set

    unsigned char rgba[24] = {};
    GLint format = 0;
    GLint level1 = 0;
    glBindTexture(GL_TEXTURE_2D, bgr->getId());
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_INTERNAL_FORMAT, &format);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 1, GL_TEXTURE_WIDTH, &level1);
    EXPECT_EQ(rgba[12], 12); // second row, first pixel: blue 10, green 11, red 12
    EXPECT_EQ(rgba[14], 10);
    EXPECT_EQ(format, GL_RGBA8);
    EXPECT_EQ(level1, 0); // GL_LINEAR wants no mipmaps, so none were made
    glBindTexture(GL_TEXTURE_2D, 0);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
}

TEST_F(TextureGLTest, TargetChecksColourFirstAndOnlyStencilDepthGivesStencil) {
    EXPECT_EQ(thrownMessage([] { Target(nullptr, nullptr); }), "colorBuffer must not be nullptr");
    EXPECT_EQ(thrownMessage([] { Target(makeTexture(4, 4, GL_RGBA), nullptr); }),
              "depthBuffer must not be nullptr");
    EXPECT_EQ(integer(GL_FRAMEBUFFER_BINDING), 0);

    auto color = makeTexture(4, 4, GL_RGBA);
    auto picking = std::make_shared<Target>(color, makeTexture(4, 4, GL_DEPTH_STENCIL));
    EXPECT_EQ(static_cast<GLuint>(integer(GL_FRAMEBUFFER_BINDING)), picking->getFramebuffer());
    GLint stencil = 0;
    glGetFramebufferAttachmentParameteriv(GL_FRAMEBUFFER, GL_STENCIL_ATTACHMENT,
                                          GL_FRAMEBUFFER_ATTACHMENT_STENCIL_SIZE, &stencil);
    EXPECT_EQ(stencil, 8);
    auto plain = std::make_shared<Target>(color, makeTexture(4, 4, GL_DEPTH_COMPONENT));
    glGetFramebufferAttachmentParameteriv(GL_FRAMEBUFFER, GL_STENCIL_ATTACHMENT,
                                          GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE, &stencil);
    EXPECT_EQ(stencil, GL_NONE);

    // A depth texture cannot be a colour attachment: GL rejects it and no frame buffer is left bound.
    EXPECT_EQ(thrownMessage([] {
                  Target(makeTexture(4, 4, GL_DEPTH_COMPONENT), makeTexture(4, 4, GL_DEPTH_COMPONENT));
              }),
              "Frame buffer incomplete.");
    EXPECT_EQ(integer(GL_FRAMEBUFFER_BINDING), 0);

    const GLuint name = plain->getFramebuffer();
    plain.reset();
    EXPECT_EQ(glIsFramebuffer(name), GL_FALSE);
    EXPECT_EQ(color.use_count(), 2); // the colour texture lives on with its other holders
}
