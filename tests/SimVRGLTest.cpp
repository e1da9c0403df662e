#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "tests/support/GLContext.h"
#include "tests/support/SimVRLibrary.h"

using OrvelTest::SimVRLibrary;

namespace {

class SimVRGLTest : public OrvelTest::GLTest {
protected:
    void SetUp() override {
        GLTest::SetUp();
        ASSERT_TRUE(SimVRLibrary::instance().loaded()) << SimVRLibrary::instance().error();
        SIMVR(simvr_reset)();
        SIMVR(simvr_setPaced)(0);
        ASSERT_TRUE(SimVRLibrary::instance().start());
        compositor = SimVRLibrary::instance().compositor;
    }

    void TearDown() override {
        SIMVR(simvr_reset)();
        GLTest::TearDown();
    }

    static GLuint makeTexture(int width, int height, const std::vector<uint8_t>& rgba) {
        GLuint texture = 0;
        glGenTextures(1, &texture);
        glBindTexture(GL_TEXTURE_2D, texture);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
        glBindTexture(GL_TEXTURE_2D, 0);
        return texture;
    }

    static vr::Texture_t record(GLuint texture) {
        return {reinterpret_cast<void*>(static_cast<uintptr_t>(texture)), vr::TextureType_OpenGL,
                vr::ColorSpace_Gamma};
    }

    vr::IVRCompositor* compositor = nullptr;
};

TEST_F(SimVRGLTest, SubmitKeepsTheTexturePixelsAndRestoresGLState) {
    // 3 x 2 pixels, each a distinct colour, so a row or channel mix-up shows.
    std::vector<uint8_t> pixels;
    for (uint8_t i = 0; i < 6; ++i) {
        pixels.insert(pixels.end(), {static_cast<uint8_t>(10 * i), static_cast<uint8_t>(100 + i),
                                     static_cast<uint8_t>(200 - i), static_cast<uint8_t>(255 - i)});
    }
    const GLuint eye = makeTexture(3, 2, pixels);
    const GLuint other = makeTexture(1, 1, {1, 2, 3, 4});

    // State the client has bound must survive the read-back: a texture, a pack buffer and an odd alignment.
    GLuint packBuffer = 0;
    glGenBuffers(1, &packBuffer);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, packBuffer);
    glBufferData(GL_PIXEL_PACK_BUFFER, 64, nullptr, GL_STREAM_READ);
    glBindTexture(GL_TEXTURE_2D, other);
    glPixelStorei(GL_PACK_ALIGNMENT, 8);

    const vr::Texture_t texture = record(eye);
    ASSERT_EQ(compositor->Submit(vr::Eye_Right, &texture, nullptr, vr::Submit_Default),
              vr::VRCompositorError_None);

    GLint bound = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
    EXPECT_EQ(static_cast<GLuint>(bound), other);
    glGetIntegerv(GL_PIXEL_PACK_BUFFER_BINDING, &bound);
    EXPECT_EQ(static_cast<GLuint>(bound), packBuffer);
    GLint alignment = 0;
    glGetIntegerv(GL_PACK_ALIGNMENT, &alignment);
    EXPECT_EQ(alignment, 8);

    EXPECT_EQ(SIMVR(simvr_submitCount)(1), 1u);
    EXPECT_EQ(SIMVR(simvr_submitCount)(0), 0u);
    EXPECT_EQ(SIMVR(simvr_lastSubmittedTexture)(1), eye);
    uint32_t width = 0;
    uint32_t height = 0;
    ASSERT_EQ(SIMVR(simvr_lastSubmittedPicture)(1, &width, &height, nullptr, 0), pixels.size());
    EXPECT_EQ(width, 3u);
    EXPECT_EQ(height, 2u);
    std::vector<uint8_t> picture(pixels.size());
    SIMVR(simvr_lastSubmittedPicture)(1, nullptr, nullptr, picture.data(), picture.size());
    EXPECT_EQ(picture, pixels);
    EXPECT_EQ(SIMVR(simvr_lastSubmittedPicture)(0, &width, &height, nullptr, 0), 0u);

    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    glDeleteBuffers(1, &packBuffer);
    glBindTexture(GL_TEXTURE_2D, 0);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glDeleteTextures(1, &eye);
    glDeleteTextures(1, &other);
}

TEST_F(SimVRGLTest, SubmitRejectsWhatIsNotAnEyeTexture) {
    const GLuint eye = makeTexture(2, 2, std::vector<uint8_t>(16, 7));
    GLuint noStorage = 0;
    glGenTextures(1, &noStorage);
    glBindTexture(GL_TEXTURE_2D, noStorage);
    glBindTexture(GL_TEXTURE_2D, 0);

    const vr::Texture_t good = record(eye);
    const vr::Texture_t notATexture = record(4242);
    const vr::Texture_t empty = record(noStorage);
    vr::Texture_t direct3D = good;
    direct3D.eType = vr::TextureType_DirectX;
    const struct {
        int eye;
        const vr::Texture_t* texture;
        vr::EVRCompositorError error;
    } cases[] = {{2, &good, vr::VRCompositorError_IndexOutOfRange},
                 {0, nullptr, vr::VRCompositorError_InvalidTexture},
                 {0, &notATexture, vr::VRCompositorError_InvalidTexture},
                 {0, &empty, vr::VRCompositorError_InvalidTexture},
                 {0, &direct3D, vr::VRCompositorError_TextureIsOnWrongDevice}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.error);
        EXPECT_EQ(compositor->Submit(static_cast<vr::EVREye>(c.eye), c.texture, nullptr, vr::Submit_Default),
                  c.error);
    }
    EXPECT_EQ(SIMVR(simvr_submitErrorCount)(), 5u);
    EXPECT_EQ(SIMVR(simvr_submitCount)(0), 0u);

    // Without capture the submission is still checked and counted, but no pixels are kept.
    SIMVR(simvr_setSubmitCapture)(0);
    EXPECT_EQ(compositor->Submit(vr::Eye_Left, &good, nullptr, vr::Submit_Default),
              vr::VRCompositorError_None);
    uint32_t width = 0;
    EXPECT_EQ(SIMVR(simvr_lastSubmittedPicture)(0, &width, nullptr, nullptr, 0), 0u);
    EXPECT_EQ(width, 2u);
    EXPECT_EQ(SIMVR(simvr_submitCount)(0), 1u);
    glDeleteTextures(1, &eye);
    glDeleteTextures(1, &noStorage);
}

} // namespace
