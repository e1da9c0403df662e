#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/Mat4d.h"
#include "common/Vec3d.h"
#include "text/Bitmap.h"
#include "text/TextRenderer.h"

namespace Brume {
class Buffer;
class Geometry;
class Material;
class Renderer;
class Texture;
} // namespace Brume

// One measured line (or polyline) with its label: drawn as a band of constant pixel width, arrow heads at
// its ends once the measurement is finished, and a flat label at the middle of its last segment that faces
// the user in both eyes. The widening, the heads and the label are built by the geometry stages, so the
// vertex buffer holds only the measured points.
//
// Owned (shared) by the measurement controller. Render thread only, with the VR run's GL context current
// from construction to destruction; the two programs are shared by every line of the run.
class LineRenderer {
public:
    static constexpr std::array<float, 4> DEFAULT_COLOR{0.7f, 0.3f, 0.1f, 1.0f};
    static constexpr float DEFAULT_OPACITY = 0.3f;
    // Arrow heads scale with the line they end, in pixels.
    static constexpr float ARROW_LENGTH_FACTOR = 6.0f;
    static constexpr float ARROW_WIDTH_FACTOR = 4.0f;
    // The label's height as the tangent of the angle it covers (about 4.6 degrees), the same at any
    // distance.
    static constexpr float LABEL_HEIGHT = 0.08f;

    // Loads the shared programs on first use (throws Brume::Exception for a broken shader) and opens the
    // font (throws std::runtime_error when it is missing).
    explicit LineRenderer(float lineWidth);
    ~LineRenderer();
    LineRenderer(const LineRenderer&) = delete;
    LineRenderer& operator=(const LineRenderer&) = delete;

    // A single segment. The text is rasterised only when it differs from what the label shows.
    void setLine(const Ko_1_1::Vec3d<float>& from, const Ko_1_1::Vec3d<float>& to, const std::string& text);
    // Consecutive points joined by segments; the label sits on the last one. Fewer than two points draw
    // nothing.
    void setPolyline(const std::vector<Ko_1_1::Vec3d<float>>& points, const std::string& text);
    // Shows a label rasterised elsewhere (one component); widthProportion is the share of its width the
    // text fills. A later setLine rasterises its text again, whatever it is.
    void setLabel(std::shared_ptr<Bitmap> bitmap, float widthProportion);

    // The line's colour, also the label's text colour.
    void setColor(const std::array<float, 4>& rgba) { color = rgba; }
    const std::array<float, 4>& getColor() const { return color; }
    // The opacity of the label's plate.
    void setOpacity(float value) { opacity = value; }
    float getOpacity() const { return opacity; }
    // Whether a draw outside the normal pass shows the label.
    void setDisplay(bool show) { display = show; }
    bool getDisplay() const { return display; }
    // The pixel width a draw outside the normal pass uses (picking draws a broad band).
    void setWidth(float pixels) { width = pixels; }
    float getWidth() const { return width; }
    float getLineWidth() const { return lineWidth; }

    std::size_t getSegmentCount() const { return vertices.size() / 2; }
    float getLabelWidthProportion() const { return labelProportion; }

    // Clears the bitmap and writes `text` with the layout every measurement label uses (margins of 0.15 and
    // glyphs of 0.6 of the bitmap's height); returns the share of the bitmap's width the text fills.
    static float rasterise(TextRenderer& text, Bitmap& bitmap, const std::string& content);

    // Draws into the renderer's target with the depth and stencil state the caller set. finished adds the
    // arrow heads. normalPass draws the line's own look (its construction width and its label) whatever a
    // picking pass set; otherwise the width and display flag apply. Blending is enabled for the label and
    // restored afterwards; the program, vertex array and texture unit 0 binding are left as the draw set
    // them.
    void draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& worldToHead,
              const Ko_1_1::Mat4d<float>& headToEye, const Ko_1_1::Mat4d<float>& projection, bool finished,
              bool normalPass);

private:
    void setVertices(std::vector<Ko_1_1::Vec3d<float>> segmentEnds, const std::string& text);
    void drawSegments(Brume::Renderer& renderer, std::size_t first, std::size_t count, int arrowHeads);

    float lineWidth;
    float width;
    bool display = true;
    float opacity = DEFAULT_OPACITY;
    std::array<float, 4> color = DEFAULT_COLOR;

    // Segment end points, two per segment, as the buffer holds them.
    std::vector<Ko_1_1::Vec3d<float>> vertices;
    std::shared_ptr<Brume::Buffer> buffer;
    std::shared_ptr<Brume::Geometry> geometry;
    std::shared_ptr<Brume::Material> lineMaterial;
    std::shared_ptr<Brume::Material> labelMaterial;

    TextRenderer textRenderer;
    Bitmap textBitmap;
    // The text the label texture shows; empty after setLabel, so that the next text is drawn again.
    std::optional<std::string> shownText = std::string();
    float labelProportion = 0.0f;
    std::shared_ptr<Brume::Texture> labelTexture;
};
