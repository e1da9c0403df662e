#pragma once

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/Mat4d.h"
#include "common/MeasurementData.h"
#include "common/Vec3d.h"
#include "platform/Export.h"

class Bitmap;
class LineRenderer;

namespace Brume {
class Renderer;
}

namespace VR {
class IVRView;
}

// The measuring tool and the host's stored measurements. The pointing code feeds it the trigger and the
// picked point every frame; two presses on a hit place the two points of a distance, whose line follows the
// ray until the second point is placed. Stored measurements are drawn as labelled lines and take the
// stencil values STENCIL_START_INDEX + i, in the order they were added, so a picked stencil value names
// one of them.
//
// Owned by the VR renderer; render thread only, with the VR run's GL context current from construction to
// destruction. The view is the host's, not owned, and must outlive the controller. Copies share the lines.
class ORVEL_VR_EXPORT MeasurementController {
public:
    static constexpr unsigned STENCIL_START_INDEX = 3;
    // Stored measurements that get a stencil value of their own; the rest are not pickable.
    static constexpr unsigned STENCIL_COUNT = 125;
    static constexpr std::array<float, 4> HIGHLIGHT_COLOR{1.0f, 0.6f, 0.4f, 1.0f};
    static constexpr float HIGHLIGHT_OPACITY = 1.0f;
    // The pixel width of a stored line in the picking pass: a broad band is easier to point at.
    static constexpr float PICKING_WIDTH = 100.0f;

    // Measuring states.
    static constexpr int IDLE = 0;
    static constexpr int FIRST_POINT_PLACED = 1;
    static constexpr int BOTH_POINTS_PLACED = 2;

    MeasurementController(float lineWidth, VR::IVRView* view);
    ~MeasurementController();
    MeasurementController(const MeasurementController&);
    MeasurementController(MeasurementController&&) noexcept;
    MeasurementController& operator=(const MeasurementController&);
    MeasurementController& operator=(MeasurementController&&) noexcept;

    // A press is the trigger reaching exactly 1.0 after it was released (below 0.9). Returns true when this
    // call placed a point. Without a hit while the first point is placed, target is moved onto the ray at
    // the first point's distance, where the line's free end is drawn.
    bool handleInput(float trigger, bool hit, const Ko_1_1::Vec3d<float>& rayOrigin,
                     Ko_1_1::Vec3d<float>& target);
    bool isMeasurementInProgress() const { return state == FIRST_POINT_PLACED; }
    // The two points of a finished measurement; false, with out untouched, while there is none.
    bool getMeasurement(std::vector<Ko_1_1::Vec3d<float>>& out) const;
    // Drops the measurement in progress or finished; the tool is idle again.
    void endMeasurement();
    std::string getInfoText() const { return infoText; }

    // Measurements of two points are labelled with their length, longer ones with the total length on their
    // last segment; with fewer than two points an entry is kept (its stencil value stays taken) but nothing
    // is drawn.
    void addMeasurement(const VR::MeasurementData& measurement);
    void setMeasurements(const std::vector<VR::MeasurementData>& measurements);
    // Makes the stored set the given list, in its order; lines of uuids already stored are kept and moved to
    // their new points.
    void updateMeasurements(const std::vector<VR::MeasurementData>& measurements);

    void highlight(unsigned stencilValue);
    void resetHighlight();
    // The uuid of the stored measurement with this stencil value; empty for any other value.
    std::string getUuidAtStencilIndex(unsigned stencilValue) const;

    // The normal pass draws the measurement in progress (stencil reference 0) and every stored line with
    // its own stencil value; the picking pass draws only the stored lines, as broad bands without labels.
    // Both leave the stencil function at GL_ALWAYS with the last reference drawn and the write mask at
    // 0xFF; enabling the stencil test and its operations is the caller's part.
    void draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& worldToHead,
              const Ko_1_1::Mat4d<float>& headToEye, const Ko_1_1::Mat4d<float>& projection,
              bool stencilPass);

    int getMeasuringState() const { return state; }
    const Ko_1_1::Vec3d<float>& getFirstPoint() const { return firstPoint; }
    const Ko_1_1::Vec3d<float>& getSecondPoint() const { return secondPoint; }
    const std::shared_ptr<LineRenderer>& getCurrentLine() const { return currentLine; }
    std::size_t getMeasurementCount() const { return measurements.size(); }
    // The stored line with this stencil value; null for any other value.
    std::shared_ptr<LineRenderer> getLine(unsigned stencilValue) const;

private:
    using Entry = std::pair<std::string, std::shared_ptr<LineRenderer>>;

    std::string lengthText(float length) const;
    void placeLine(LineRenderer& line, const VR::MeasurementData& measurement) const;
    Entry* entryAt(unsigned stencilValue);

    Ko_1_1::Vec3d<float> firstPoint;
    Ko_1_1::Vec3d<float> secondPoint;
    bool triggerLatch = false;
    float lineWidth;
    int state = IDLE;
    float rayDistance = 0.0f;
    std::shared_ptr<Bitmap> labelBitmap;
    float labelWidthProportion = 0.0f;
    std::shared_ptr<LineRenderer> currentLine;
    std::vector<Entry> measurements;
    std::string infoText;
    VR::IVRView* view;
};
