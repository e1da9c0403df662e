#include "vr/objects/LabelRenderer.h"

#include <utility>
#include <vector>

#include "engine/Buffer.h"
#include "engine/GL.h"
#include "engine/Geometry.h"
#include "engine/Material.h"
#include "engine/Renderer.h"
#include "engine/Texture.h"
#include "vr/LibrarySettings.h"
#include "vr/SharedMaterials.h"
#include "vr/objects/BlendScope.h"
#include "vr/objects/LabelText.h"

namespace {

struct PlateVertex {
    float position[3];
    float texCoord[2];
};
static_assert(sizeof(PlateVertex) == 20, "the plate's layout has a stride of 20 bytes");

constexpr unsigned MARGIN = 20;
constexpr unsigned PIXEL_SIZE = 75;
constexpr float HALF_HEIGHT = 0.05f;

} // namespace

LabelRenderer::LabelRenderer()
    : textRenderer(VR::LibrarySettings::instance().fontPath()),
      bitmap(VR::LibrarySettings::instance().labelWidth(), VR::LibrarySettings::instance().labelHeight(), 1,
             {}) {
    const VR::LibrarySettings& settings = VR::LibrarySettings::instance();
    texture = std::make_shared<Brume::Texture>(static_cast<int>(settings.labelWidth()),
                                               static_cast<int>(settings.labelHeight()), GL_RED, GL_LINEAR,
                                               GL_LINEAR_MIPMAP_LINEAR, GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);
    material = VR::SharedMaterials::get("Label", [] {
        auto made = std::make_shared<Brume::Material>();
        const VR::LibrarySettings& s = VR::LibrarySettings::instance();
        made->loadShaders(s.shaderPath("Texture.vrt"), "", s.shaderPath("TextLabel.frg"));
        return made;
    });
    geometry = std::make_shared<Brume::Geometry>(GL_TRIANGLE_STRIP);
    geometry->addBuffer(std::make_shared<Brume::Buffer>(
        GL_STATIC_DRAW, sizeof(PlateVertex),
        std::vector<Brume::Buffer::Attribute>{{"Position", GL_FLOAT, 3, 0},
                                              {"VertexTexCoord", GL_FLOAT, 2, 12}}));
}

LabelRenderer::~LabelRenderer() = default;

LabelRenderer::LabelRenderer(const LabelRenderer& other)
    : texture(other.texture), material(other.material), geometry(other.geometry),
      textRenderer(VR::LibrarySettings::instance().fontPath()), bitmap(other.bitmap),
      textWidth(other.textWidth), textHeight(other.textHeight), backgroundOpacity(other.backgroundOpacity),
      visible(other.visible) {}

LabelRenderer::LabelRenderer(LabelRenderer&& other) noexcept = default;

LabelRenderer& LabelRenderer::operator=(const LabelRenderer& other) {
    if (this != &other) {
        texture = other.texture;
        material = other.material;
        geometry = other.geometry;
        bitmap = other.bitmap;
        textWidth = other.textWidth;
        textHeight = other.textHeight;
        backgroundOpacity = other.backgroundOpacity;
        visible = other.visible;
    }
    return *this;
}

LabelRenderer& LabelRenderer::operator=(LabelRenderer&& other) noexcept = default;

void LabelRenderer::setText(std::string text) {
    bitmap.clear();
    textRenderer.renderText(bitmap, labelText(text), MARGIN, MARGIN, PIXEL_SIZE, textWidth, textHeight);
    texture->setData(bitmap.data(), 4);
}

void LabelRenderer::setVisible(bool value) {
    visible = value;
}

void LabelRenderer::setBackgroundOpacity(float opacity) {
    backgroundOpacity = opacity;
}

void LabelRenderer::draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& modelViewProjection) {
    if (!visible || textHeight == 0) {
        return;
    }
    const VR::LibrarySettings& settings = VR::LibrarySettings::instance();
    const float w = static_cast<float>(textWidth);
    const float h = static_cast<float>(textHeight);
    const float a = w / h * HALF_HEIGHT;
    const float u = w / static_cast<float>(settings.labelWidth());
    const float v = h / static_cast<float>(settings.labelHeight());
    // The bitmap holds its top row last, so the text's rows are the top v of the texture.
    const std::vector<PlateVertex> plate{{{-a, -HALF_HEIGHT, 0}, {0, 1 - v}},
                                         {{a, -HALF_HEIGHT, 0}, {u, 1 - v}},
                                         {{-a, HALF_HEIGHT, 0}, {0, 1}},
                                         {{a, HALF_HEIGHT, 0}, {u, 1}}};
    geometry->getBuffers().front()->setData(plate);

    const float foreground[4] = {0.1f, 0.3f, 0.7f, 1.0f};
    material->set("modelViewProjectionMatrix", modelViewProjection);
    material->set("tex", texture);
    material->set("backgroundOpacity", backgroundOpacity);
    material->set("foregroundColor", foreground);
    BlendScope blend;
    renderer.draw(material, geometry, 0, 0);
}
