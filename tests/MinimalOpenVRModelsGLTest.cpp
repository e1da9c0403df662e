#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "engine/Geometry.h"
#include "engine/Texture.h"
#include "tests/support/GLContext.h"
#include "tests/support/SimVRFixture.h"
#include "vr/SharedMaterials.h"

namespace {

using MinimalOpenVRGLTest = OrvelTest::SimVRFixture<OrvelTest::GLTest>;

// One test for all model loading: the controller program is made once per process, in the context of the
// first model, and the fixture makes a new context for every test.
TEST_F(MinimalOpenVRGLTest, RenderModelsAreLoadedOnceAndCachedByName) {
    simvr_setRenderModelLoadingPolls(5);
    MinimalOpenVR openVR;
    ASSERT_EQ(start(openVR), VR::VRGlobals::NoError);
    log.clear();

    EXPECT_EQ(openVR.getControllerModel(true), nullptr) << "no hand assigned yet";
    EXPECT_EQ(simvr_renderModelLoadCount(), 0u);

    openVR.updateControllerRole(1);
    openVR.updateControllerRole(2);
    VR::VrModelRenderer* left = openVR.getControllerModel(true);
    ASSERT_NE(left, nullptr);
    EXPECT_EQ(left->getName(), "simvr_controller_body");
    ASSERT_NE(left->getGeometry()->getIndices(), nullptr);
    EXPECT_GT(left->getGeometry()->getIndices()->count, 0u);
    EXPECT_GT(left->getTexture()->getWidth(), 0);

    // Both controllers show the same body model: one object, loaded once, its OpenVR records freed.
    EXPECT_EQ(openVR.getControllerModel(false), left);
    EXPECT_EQ(openVR.getControllerModel(true), left);
    EXPECT_EQ(openVR.loadRenderModel("simvr_controller_body"), left);
    EXPECT_EQ(simvr_renderModelLoadCount(), 1u);
    EXPECT_EQ(simvr_textureLoadCount(), 1u);
    EXPECT_EQ(simvr_renderModelFreeCount(), 1u);
    EXPECT_EQ(simvr_textureFreeCount(), 1u);
    EXPECT_TRUE(log.lines().empty());

    // A texture that fails to load: no model, the loaded model freed, one line naming both.
    simvr_setTextureLoadFails(1);
    EXPECT_EQ(openVR.loadRenderModel("simvr_hmd"), nullptr);
    EXPECT_EQ(simvr_renderModelLoadCount(), 2u);
    EXPECT_EQ(simvr_renderModelFreeCount(), 2u);
    EXPECT_EQ(simvr_textureFreeCount(), 1u);
    auto failures = log.startingWith(L"Unable to load render model simvr_hmd ");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].back(), L'\n');

    // A failure is remembered for the session: asking again neither loads nor logs.
    simvr_setTextureLoadFails(0);
    EXPECT_EQ(openVR.loadRenderModel("simvr_hmd"), nullptr);
    EXPECT_EQ(openVR.loadRenderModel("no_such_model"), nullptr);
    EXPECT_EQ(openVR.loadRenderModel("no_such_model"), nullptr);
    EXPECT_EQ(simvr_renderModelLoadCount(), 2u);
    EXPECT_EQ(log.startingWith(L"Unable to load render model simvr_hmd ").size(), 1u);
    EXPECT_EQ(log.startingWith(L"Unable to load render model no_such_model ").size(), 1u);

    // Shutting the session down releases the models with the context still current; a new one loads anew.
    openVR.shutdown();
    ASSERT_EQ(start(openVR), VR::VRGlobals::NoError);
    ASSERT_NE(openVR.loadRenderModel("simvr_hmd"), nullptr);
    EXPECT_EQ(simvr_renderModelLoadCount(), 3u);
    openVR.shutdown();
    VR::SharedMaterials::releaseAll();
}

TEST_F(MinimalOpenVRGLTest, SubmitHandsTheGLTextureToTheCompositor) {
    MinimalOpenVR openVR;
    ASSERT_EQ(start(openVR), VR::VRGlobals::NoError);
    auto eye = std::make_shared<Brume::Texture>(4, 4, GL_RGBA, GL_NEAREST, GL_NEAREST, GL_CLAMP_TO_EDGE,
                                                GL_CLAMP_TO_EDGE);
    std::vector<std::uint8_t> pixels(4 * 4 * 4, 0);
    for (std::size_t i = 0; i < pixels.size(); i += 4) {
        pixels[i] = 255;
        pixels[i + 1] = 128;
        pixels[i + 3] = 255;
    }
    eye->setData(pixels.data(), 4);

    openVR.submit(vr::Eye_Right, eye->getId());
    EXPECT_EQ(simvr_submitCount(1), 1u);
    EXPECT_EQ(simvr_submitCount(0), 0u);
    EXPECT_EQ(simvr_submitErrorCount(), 0u);
    EXPECT_EQ(simvr_lastSubmittedTexture(1), eye->getId());
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<std::uint8_t> picture(4 * 4 * 4);
    ASSERT_EQ(simvr_lastSubmittedPicture(1, &width, &height, picture.data(), picture.size()), picture.size());
    EXPECT_EQ(width, 4u);
    EXPECT_EQ(picture, pixels);
}

} // namespace
