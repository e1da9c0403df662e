#pragma once

#include <memory>
#include <string>

#include "common/Mat4d.h"
#include "common/Vec3d.h"
#include "text/Bitmap.h"
#include "text/TextRenderer.h"

namespace Brume {
class Geometry;
class Material;
class Renderer;
class Texture;
} // namespace Brume

// One annotation in the scene: its text on a plate that floats above the annotated place and faces the
// viewer, and an arrow from the plate down to the place. The host's world is z-up: the plate's bottom edge
// sits LIFT metres straight above the place, the plate turns with the head about that edge's centre, so the
// arrow never changes while the user looks around. Owned by AnnotationController; render thread only.
class AnnotationRenderer {
public:
    // The gap between the place and the plate, in metres.
    static constexpr float LIFT = 0.25f;
    // World size of one label bitmap pixel: a line of text is 0.15 m high, which a headset shows at about
    // 30 pixels from three metres away, enough for CJK glyphs.
    static constexpr float METRES_PER_PIXEL = 0.15f / 128.0f;
    static constexpr unsigned PIXEL_SIZE = 96;
    static constexpr unsigned MARGIN = 16;

    explicit AnnotationRenderer(float lineWidth);
    ~AnnotationRenderer();
    AnnotationRenderer(const AnnotationRenderer&) = delete;
    AnnotationRenderer& operator=(const AnnotationRenderer&) = delete;

    // Rasterises the text only when it differs from the one shown: a host that resends the same
    // annotation every second costs nothing.
    void setAnnotation(const Ko_1_1::Vec3d<float>& position, const std::string& text);
    // Turns the plate towards the head described by worldToHead.
    void updatePlacement(const Ko_1_1::Mat4d<float>& worldToHead);
    // Draws nothing without a target (the arrow's pixel width needs its size). Blends the plate over what
    // is drawn and restores the blend state it found.
    void draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& modelViewProjection,
              const Ko_1_1::Mat4d<float>& worldToHead, const Ko_1_1::Mat4d<float>& headToEye,
              const Ko_1_1::Mat4d<float>& projection);

    void setOpacity(float value) { opacity = value; }
    float getOpacity() const { return opacity; }
    const Ko_1_1::Vec3d<float>& getPosition() const { return position; }
    const std::string& getText() const { return text; }
    // The plate's frame: x to the viewer's right, y up the plate, origin at the plate's centre; metres.
    const Ko_1_1::Mat4d<float>& getLabelPlacement() const { return labelPlacement; }
    float getLabelHalfWidth() const { return halfWidth; }
    float getLabelHalfHeight() const { return halfHeight; }

private:
    void rasterise();
    void writeArrow();

    TextRenderer textRenderer;
    Bitmap labelBitmap;
    std::shared_ptr<Brume::Texture> labelTexture;
    float opacity = 0.3f;
    float lineWidth;
    std::shared_ptr<Brume::Geometry> arrowGeometry;
    std::shared_ptr<Brume::Geometry> labelGeometry;
    std::shared_ptr<Brume::Material> arrowMaterial;
    std::shared_ptr<Brume::Material> labelMaterial;

    Ko_1_1::Vec3d<float> position;
    std::string text;
    bool rasterised = false;
    float halfWidth = 0;
    float halfHeight = 0;
    Ko_1_1::Mat4d<float> labelPlacement;
};
