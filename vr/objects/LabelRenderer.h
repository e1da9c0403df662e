#pragma once

#include <memory>
#include <string>

#include "common/Mat4d.h"
#include "platform/Export.h"
#include "text/Bitmap.h"
#include "text/TextRenderer.h"

namespace Brume {
class Geometry;
class Material;
class Renderer;
class Texture;
} // namespace Brume

// A short message to the user ("Measuring") on a plate 0.1 high whose width follows the text. The text is
// rasterised once per setText; drawing only places the plate with the matrix the caller passes. Owned by the
// VR renderer; render thread only, with the run's GL context current.
class ORVEL_VR_EXPORT LabelRenderer {
public:
    LabelRenderer();
    ~LabelRenderer();
    // A copy shares the GPU objects and gets a rasteriser of its own (FreeType handles cannot be shared).
    LabelRenderer(const LabelRenderer& other);
    LabelRenderer(LabelRenderer&& other) noexcept;
    LabelRenderer& operator=(const LabelRenderer& other);
    LabelRenderer& operator=(LabelRenderer&& other) noexcept;

    void setText(std::string text);
    void setVisible(bool visible);
    void setBackgroundOpacity(float opacity);
    // Blends the plate over what is drawn; restores the blend state it found.
    void draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& modelViewProjection);

    bool isVisible() const { return visible; }
    float getBackgroundOpacity() const { return backgroundOpacity; }
    // The size in bitmap pixels that the last setText reported, margins included; 0 before the first.
    unsigned getTextWidth() const { return textWidth; }
    unsigned getTextHeight() const { return textHeight; }

private:
    std::shared_ptr<Brume::Texture> texture;
    std::shared_ptr<Brume::Material> material;
    std::shared_ptr<Brume::Geometry> geometry;
    TextRenderer textRenderer;
    Bitmap bitmap;
    unsigned textWidth = 0;
    unsigned textHeight = 0;
    float backgroundOpacity = 0.3f;
    bool visible = true;
};
