#include "vr/objects/LineRenderer.h"

#include <algorithm>
#include <utility>

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

// Arrow heads at a segment's first point (bit 0) and second point (bit 1), as the line program reads them.
constexpr int ARROW_AT_FIRST = 1;
constexpr int ARROW_AT_SECOND = 2;

std::shared_ptr<Brume::Material> sharedProgram(const char* name, const char* geometryFile,
                                               const char* fragmentFile) {
    return VR::SharedMaterials::get(name, [geometryFile, fragmentFile] {
        const VR::LibrarySettings& settings = VR::LibrarySettings::instance();
        auto material = std::make_shared<Brume::Material>();
        material->loadShaders(settings.shaderPath("Identity.vrt"), settings.shaderPath(geometryFile),
                              settings.shaderPath(fragmentFile));
        return material;
    });
}

std::pair<float, float> viewportOf(const Brume::Renderer& renderer) {
    if (const std::shared_ptr<Brume::Target>& target = renderer.getTarget()) {
        const std::shared_ptr<Brume::Texture>& color = target->getColorBuffer();
        return {static_cast<float>(color->getWidth()), static_cast<float>(color->getHeight())};
    }
    // The default frame buffer has no texture to ask; the viewport is what the caller draws into.
    GLint viewport[4] = {0, 0, 1, 1};
    glGetIntegerv(GL_VIEWPORT, viewport);
    return {static_cast<float>(viewport[2]), static_cast<float>(viewport[3])};
}

void setMatrices(Brume::Material& material, const Ko_1_1::Mat4d<float>& worldToHead,
                 const Ko_1_1::Mat4d<float>& headToEye, const Ko_1_1::Mat4d<float>& projection) {
    material.set("worldToHead", worldToHead);
    material.set("headToEye", headToEye);
    material.set("projection", projection);
}

std::shared_ptr<Brume::Texture> makeLabelTexture(unsigned width, unsigned height) {
    // Mipmapped: the label is usually drawn far smaller than its bitmap, and plain linear sampling would
    // drop strokes of the glyphs.
    return std::make_shared<Brume::Texture>(static_cast<int>(width), static_cast<int>(height), GL_RED,
                                            GL_LINEAR, GL_LINEAR_MIPMAP_LINEAR, GL_CLAMP_TO_EDGE,
                                            GL_CLAMP_TO_EDGE);
}

} // namespace

LineRenderer::LineRenderer(float lineWidth)
    : lineWidth(lineWidth), width(lineWidth), textRenderer(VR::LibrarySettings::instance().fontPath()),
      textBitmap(VR::LibrarySettings::instance().labelWidth(), VR::LibrarySettings::instance().labelHeight(),
                 1, {}) {
    buffer =
        std::make_shared<Brume::Buffer>(GL_STATIC_DRAW, sizeof(Ko_1_1::Vec3d<float>),
                                        std::vector<Brume::Buffer::Attribute>{{"position", GL_FLOAT, 3, 0}});
    geometry = std::make_shared<Brume::Geometry>(GL_LINES);
    geometry->addBuffer(buffer);
    lineMaterial = sharedProgram("LineRenderer.line", "Line.geo", "UniformColor.frg");
    labelMaterial = sharedProgram("LineRenderer.label", "MeasureText.geo", "TextLabel.frg");
    labelTexture = makeLabelTexture(textBitmap.getWidth(), textBitmap.getHeight());
}

LineRenderer::~LineRenderer() = default;

float LineRenderer::rasterise(TextRenderer& text, Bitmap& bitmap, const std::string& content) {
    const unsigned h = bitmap.getHeight();
    const auto margin = static_cast<unsigned>(0.15f * static_cast<float>(h));
    const auto pixelSize = static_cast<unsigned>(0.6f * static_cast<float>(h));
    unsigned usedWidth = 0;
    unsigned usedHeight = 0;
    bitmap.clear();
    text.renderText(bitmap, labelText(content), margin, margin, pixelSize, usedWidth, usedHeight);
    if (bitmap.getWidth() == 0) {
        return 0.0f;
    }
    return std::min(1.0f, static_cast<float>(usedWidth) / static_cast<float>(bitmap.getWidth()));
}

void LineRenderer::setLine(const Ko_1_1::Vec3d<float>& from, const Ko_1_1::Vec3d<float>& to,
                           const std::string& text) {
    setVertices({from, to}, text);
}

void LineRenderer::setPolyline(const std::vector<Ko_1_1::Vec3d<float>>& points, const std::string& text) {
    std::vector<Ko_1_1::Vec3d<float>> ends;
    for (std::size_t i = 1; i < points.size(); ++i) {
        ends.push_back(points[i - 1]);
        ends.push_back(points[i]);
    }
    setVertices(std::move(ends), text);
}

void LineRenderer::setVertices(std::vector<Ko_1_1::Vec3d<float>> segmentEnds, const std::string& text) {
    // The measurement in progress is set every frame; most frames change neither points nor text.
    if (segmentEnds != vertices) {
        vertices = std::move(segmentEnds);
        buffer->setData(vertices);
    }
    if (shownText == text) {
        return;
    }
    labelProportion = text.empty() ? 0.0f : rasterise(textRenderer, textBitmap, text);
    labelTexture->setData(textBitmap.data(), 4);
    shownText = text;
}

void LineRenderer::setLabel(std::shared_ptr<Bitmap> bitmap, float widthProportion) {
    shownText.reset();
    if (!bitmap || bitmap->getNumberOfComponents() != 1) {
        labelProportion = 0.0f;
        return;
    }
    if (static_cast<unsigned>(labelTexture->getWidth()) != bitmap->getWidth() ||
        static_cast<unsigned>(labelTexture->getHeight()) != bitmap->getHeight()) {
        labelTexture = makeLabelTexture(bitmap->getWidth(), bitmap->getHeight());
    }
    labelTexture->setData(bitmap->data(), 4);
    labelProportion = std::clamp(widthProportion, 0.0f, 1.0f);
}

void LineRenderer::draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& worldToHead,
                        const Ko_1_1::Mat4d<float>& headToEye, const Ko_1_1::Mat4d<float>& projection,
                        bool finished, bool normalPass) {
    const std::size_t segments = getSegmentCount();
    if (segments == 0) {
        return;
    }
    const float rgba[4] = {color[0], color[1], color[2], color[3]};

    setMatrices(*lineMaterial, worldToHead, headToEye, projection);
    lineMaterial->set("viewport", viewportOf(renderer));
    lineMaterial->set("lineWidth", normalPass ? lineWidth : width);
    lineMaterial->set("color", rgba);
    lineMaterial->set("arrowLength", ARROW_LENGTH_FACTOR * lineWidth);
    lineMaterial->set("arrowWidth", ARROW_WIDTH_FACTOR * lineWidth);
    if (!finished) {
        drawSegments(renderer, 0, segments, 0);
    } else if (segments == 1) {
        drawSegments(renderer, 0, 1, ARROW_AT_FIRST | ARROW_AT_SECOND);
    } else {
        // A polyline's heads mark where it starts and ends, not every corner.
        drawSegments(renderer, 0, 1, ARROW_AT_FIRST);
        if (segments > 2) {
            drawSegments(renderer, 1, segments - 2, 0);
        }
        drawSegments(renderer, segments - 1, 1, ARROW_AT_SECOND);
    }

    if (labelProportion <= 0.0f || !(normalPass || display)) {
        return;
    }
    const float bitmapAspect = static_cast<float>(labelTexture->getWidth()) /
                               static_cast<float>(std::max(1, labelTexture->getHeight()));
    setMatrices(*labelMaterial, worldToHead, headToEye, projection);
    labelMaterial->set("width", LABEL_HEIGHT * bitmapAspect);
    labelMaterial->set("height", LABEL_HEIGHT);
    labelMaterial->set("texWidthProportion", labelProportion);
    labelMaterial->set("backgroundOpacity", opacity);
    labelMaterial->set("foregroundColor", rgba);
    labelMaterial->set("tex", labelTexture);
    BlendScope blending;
    renderer.draw(labelMaterial, geometry, static_cast<std::int64_t>(2 * (segments - 1)), 2);
}

void LineRenderer::drawSegments(Brume::Renderer& renderer, std::size_t first, std::size_t count,
                                int arrowHeads) {
    lineMaterial->set("showArrowHeads", arrowHeads);
    renderer.draw(lineMaterial, geometry, static_cast<std::int64_t>(2 * first),
                  static_cast<std::int64_t>(2 * count));
}
