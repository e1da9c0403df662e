#include "vr/objects/AnnotationRenderer.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "engine/Buffer.h"
#include "engine/GL.h"
#include "engine/Geometry.h"
#include "engine/Material.h"
#include "engine/Renderer.h"
#include "engine/Target.h"
#include "engine/Texture.h"
#include "vr/LibrarySettings.h"
#include "vr/SharedMaterials.h"
#include "vr/objects/BlendScope.h"
#include "vr/objects/LabelText.h"

namespace {

using Ko_1_1::Mat4d;
using Ko_1_1::Vec3d;

struct PlateVertex {
    float position[3];
    float texCoord[2];
};

const Vec3d<float> WORLD_UP{0, 0, 1};

} // namespace

AnnotationRenderer::AnnotationRenderer(float lineWidth)
    : textRenderer(VR::LibrarySettings::instance().fontPath()),
      labelBitmap(VR::LibrarySettings::instance().labelWidth(), VR::LibrarySettings::instance().labelHeight(),
                  1, {}),
      lineWidth(lineWidth) {
    const VR::LibrarySettings& settings = VR::LibrarySettings::instance();
    labelTexture = std::make_shared<Brume::Texture>(
        static_cast<int>(settings.labelWidth()), static_cast<int>(settings.labelHeight()), GL_RED, GL_LINEAR,
        GL_LINEAR_MIPMAP_LINEAR, GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE);

    arrowGeometry = std::make_shared<Brume::Geometry>(GL_LINES);
    arrowGeometry->addBuffer(std::make_shared<Brume::Buffer>(
        GL_STATIC_DRAW, 12, std::vector<Brume::Buffer::Attribute>{{"position", GL_FLOAT, 3, 0}}));
    labelGeometry = std::make_shared<Brume::Geometry>(GL_TRIANGLE_STRIP);
    labelGeometry->addBuffer(std::make_shared<Brume::Buffer>(
        GL_STATIC_DRAW, sizeof(PlateVertex),
        std::vector<Brume::Buffer::Attribute>{{"Position", GL_FLOAT, 3, 0},
                                              {"VertexTexCoord", GL_FLOAT, 2, 12}}));

    arrowMaterial = VR::SharedMaterials::get("AnnotationArrow", [] {
        auto made = std::make_shared<Brume::Material>();
        const VR::LibrarySettings& s = VR::LibrarySettings::instance();
        made->loadShaders(s.shaderPath("Identity.vrt"), s.shaderPath("AnnotationArrow.geo"),
                          s.shaderPath("UniformColor.frg"));
        return made;
    });
    labelMaterial = VR::SharedMaterials::get("AnnotationLabel", [] {
        auto made = std::make_shared<Brume::Material>();
        const VR::LibrarySettings& s = VR::LibrarySettings::instance();
        made->loadShaders(s.shaderPath("Texture.vrt"), "", s.shaderPath("TextLabel.frg"));
        return made;
    });
    writeArrow();
}

AnnotationRenderer::~AnnotationRenderer() = default;

void AnnotationRenderer::setAnnotation(const Vec3d<float>& newPosition, const std::string& newText) {
    if (!rasterised || newText != text) {
        text = newText;
        rasterise();
    }
    if (newPosition != position) {
        position = newPosition;
        writeArrow();
    }
}

void AnnotationRenderer::rasterise() {
    unsigned width = 0;
    unsigned height = 0;
    const std::string shown = labelText(text);
    labelBitmap.clear();
    textRenderer.renderText(labelBitmap, shown, MARGIN, MARGIN, PIXEL_SIZE, width, height);
    const unsigned room = labelBitmap.getWidth() - 2 * MARGIN;
    if (width > labelBitmap.getWidth() && width > 2 * MARGIN) {
        // A long text is set smaller so that all of it fits on the plate rather than being cut off.
        const auto smaller =
            static_cast<unsigned>(static_cast<double>(PIXEL_SIZE) * room / (width - 2 * MARGIN));
        labelBitmap.clear();
        textRenderer.renderText(labelBitmap, shown, MARGIN, MARGIN, std::max(8u, smaller), width, height);
    }
    labelTexture->setData(labelBitmap.data(), 4);
    rasterised = true;

    // Text beyond the bitmap was dropped by the rasteriser, so the plate ends where the bitmap does.
    const unsigned shownWidth = std::min(width, labelBitmap.getWidth());
    const unsigned shownHeight = std::min(height, labelBitmap.getHeight());
    halfWidth = 0.5f * METRES_PER_PIXEL * static_cast<float>(shownWidth);
    halfHeight = 0.5f * METRES_PER_PIXEL * static_cast<float>(shownHeight);
    const float u = static_cast<float>(shownWidth) / static_cast<float>(labelBitmap.getWidth());
    const float v = static_cast<float>(shownHeight) / static_cast<float>(labelBitmap.getHeight());
    // The bitmap holds its top row last, so the text's rows are the top v of the texture.
    labelGeometry->getBuffers().front()->setData(
        std::vector<PlateVertex>{{{-halfWidth, -halfHeight, 0}, {0, 1 - v}},
                                 {{halfWidth, -halfHeight, 0}, {u, 1 - v}},
                                 {{-halfWidth, halfHeight, 0}, {0, 1}},
                                 {{halfWidth, halfHeight, 0}, {u, 1}}});
}

void AnnotationRenderer::writeArrow() {
    // From the plate's bottom edge down to the place: the arrowhead ends on the place itself.
    arrowGeometry->getBuffers().front()->setData(
        std::vector<Vec3d<float>>{position + WORLD_UP * LIFT, position});
}

void AnnotationRenderer::updatePlacement(const Mat4d<float>& worldToHead) {
    const Mat4d<float> headToWorld = worldToHead.affineInverse();
    Vec3d<float> right = headToWorld.column(0);
    Vec3d<float> up = headToWorld.column(1);
    right.normalize();
    up.normalize();
    Vec3d<float> back = right.cross(up);
    back.normalize();
    Vec3d<float> centre = position + WORLD_UP * LIFT + up * halfHeight;
    // A plate turned to the viewer cuts into the wall it annotates when seen at an angle, and the wall's
    // points then hide half of the text. Moving it along the line of sight towards the head by its half
    // width keeps it where it appears and in front of the surface.
    Vec3d<float> toHead = headToWorld.translation() - centre;
    const float distance = toHead.length();
    if (distance > 0.0f) {
        centre += toHead * (std::min(halfWidth + 0.05f, 0.5f * distance) / distance);
    }
    labelPlacement = Mat4d<float>({right.x, right.y, right.z, 0, up.x, up.y, up.z, 0, back.x, back.y, back.z,
                                   0, centre.x, centre.y, centre.z, 1});
}

void AnnotationRenderer::draw(Brume::Renderer& renderer, const Mat4d<float>& modelViewProjection,
                              const Mat4d<float>& worldToHead, const Mat4d<float>& headToEye,
                              const Mat4d<float>& projection) {
    const std::shared_ptr<Brume::Target>& target = renderer.getTarget();
    if (!target || !target->getColorBuffer()) {
        return;
    }
    const std::pair<float, float> viewport{static_cast<float>(target->getColorBuffer()->getWidth()),
                                           static_cast<float>(target->getColorBuffer()->getHeight())};
    const float color[4] = {0.1f, 0.3f, 0.7f, 1.0f};

    arrowMaterial->set("worldToHead", worldToHead);
    arrowMaterial->set("headToEye", headToEye);
    arrowMaterial->set("projection", projection);
    arrowMaterial->set("viewport", viewport);
    arrowMaterial->set("arrowLength", 10.0f);
    arrowMaterial->set("arrowWidth", 10.0f);
    arrowMaterial->set("lineWidth", 2 * lineWidth);
    arrowMaterial->set("color", color);
    renderer.draw(arrowMaterial, arrowGeometry, 0, 0);

    labelMaterial->set("modelViewProjectionMatrix", modelViewProjection * labelPlacement);
    labelMaterial->set("tex", labelTexture);
    labelMaterial->set("backgroundOpacity", opacity);
    labelMaterial->set("foregroundColor", color);
    BlendScope blend;
    renderer.draw(labelMaterial, labelGeometry, 0, 0);
}
