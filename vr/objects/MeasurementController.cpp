#include "vr/objects/MeasurementController.h"

#include "common/IVRView.h"
#include "engine/GL.h"
#include "text/Bitmap.h"
#include "text/TextRenderer.h"
#include "vr/LibrarySettings.h"
#include "vr/objects/LineRenderer.h"

namespace {

// The trigger counts as pressed only at full travel, and as released only well below it, so a finger
// resting near the end never places a point twice.
constexpr float PRESS_VALUE = 1.0f;
constexpr float RELEASE_BELOW = 0.9f;

const char* const REFINING_LABEL = "refining...";
const char* const REFINING_INFO = "Refining measurement\n          Please wait";

} // namespace

MeasurementController::MeasurementController(float lineWidth, VR::IVRView* view)
    : lineWidth(lineWidth), currentLine(std::make_shared<LineRenderer>(lineWidth)), view(view) {}

MeasurementController::~MeasurementController() = default;
MeasurementController::MeasurementController(const MeasurementController&) = default;
MeasurementController::MeasurementController(MeasurementController&&) noexcept = default;
MeasurementController& MeasurementController::operator=(const MeasurementController&) = default;
MeasurementController& MeasurementController::operator=(MeasurementController&&) noexcept = default;

std::string MeasurementController::lengthText(float length) const {
    return view->formatLength(length) + " " + view->getLengthUnitText();
}

bool MeasurementController::handleInput(float trigger, bool hit, const Ko_1_1::Vec3d<float>& rayOrigin,
                                        Ko_1_1::Vec3d<float>& target) {
    bool pressed = false;
    if (!triggerLatch) {
        if (trigger == PRESS_VALUE) {
            triggerLatch = true;
            pressed = true;
        }
    } else if (trigger < RELEASE_BELOW) {
        triggerLatch = false;
    }

    bool placed = false;
    if (pressed && hit) {
        if (state == IDLE) {
            firstPoint = target;
            rayDistance = (target - rayOrigin).length();
            state = FIRST_POINT_PLACED;
            placed = true;
        } else if (state == FIRST_POINT_PLACED) {
            secondPoint = target;
            state = BOTH_POINTS_PLACED;
            if (!labelBitmap) {
                const VR::LibrarySettings& settings = VR::LibrarySettings::instance();
                labelBitmap = std::make_shared<Bitmap>(settings.labelWidth(), settings.labelHeight(), 1,
                                                       std::vector<unsigned char>());
                TextRenderer text(settings.fontPath());
                labelWidthProportion = LineRenderer::rasterise(text, *labelBitmap, REFINING_LABEL);
            }
            // The host refines the measurement now; the line says so until the host's result replaces it.
            currentLine->setLabel(labelBitmap, labelWidthProportion);
            placed = true;
        } else {
            infoText = REFINING_INFO;
        }
    }

    if (state == FIRST_POINT_PLACED) {
        if (hit) {
            secondPoint = target;
        } else {
            Ko_1_1::Vec3d<float> direction = target - rayOrigin;
            direction.normalize();
            secondPoint = rayOrigin + direction * rayDistance;
            target = secondPoint;
        }
        rayDistance = (target - rayOrigin).length();
        currentLine->setLine(firstPoint, secondPoint, lengthText((secondPoint - firstPoint).length()));
    }
    return placed;
}

bool MeasurementController::getMeasurement(std::vector<Ko_1_1::Vec3d<float>>& out) const {
    if (state != BOTH_POINTS_PLACED) {
        return false;
    }
    out.clear();
    out.push_back(firstPoint);
    out.push_back(secondPoint);
    return true;
}

void MeasurementController::endMeasurement() {
    currentLine = std::make_shared<LineRenderer>(lineWidth);
    state = IDLE;
    infoText.clear();
}

void MeasurementController::placeLine(LineRenderer& line, const VR::MeasurementData& measurement) const {
    const std::vector<Ko_1_1::Vec3d<float>>& points = measurement.points;
    if (points.size() < 2) {
        line.setPolyline({}, "");
        return;
    }
    float total = 0.0f;
    for (std::size_t i = 1; i < points.size(); ++i) {
        total += (points[i] - points[i - 1]).length();
    }
    line.setPolyline(points, lengthText(total));
}

void MeasurementController::addMeasurement(const VR::MeasurementData& measurement) {
    auto line = std::make_shared<LineRenderer>(lineWidth);
    placeLine(*line, measurement);
    measurements.emplace_back(measurement.uuid, std::move(line));
}

void MeasurementController::setMeasurements(const std::vector<VR::MeasurementData>& list) {
    measurements.clear();
    for (const VR::MeasurementData& measurement : list) {
        addMeasurement(measurement);
    }
}

void MeasurementController::updateMeasurements(const std::vector<VR::MeasurementData>& list) {
    std::vector<Entry> previous;
    previous.swap(measurements);
    for (const VR::MeasurementData& measurement : list) {
        auto kept = previous.end();
        for (auto it = previous.begin(); it != previous.end(); ++it) {
            if (it->second && it->first == measurement.uuid) {
                kept = it;
                break;
            }
        }
        if (kept == previous.end()) {
            addMeasurement(measurement);
            continue;
        }
        // A line keeps its texture and only rasterises its label again when the length text changed.
        placeLine(*kept->second, measurement);
        measurements.emplace_back(measurement.uuid, std::move(kept->second));
    }
}

MeasurementController::Entry* MeasurementController::entryAt(unsigned stencilValue) {
    // Values below the start wrap around to huge indices and fall out of range with the rest.
    const unsigned index = stencilValue - STENCIL_START_INDEX;
    return index < measurements.size() ? &measurements[index] : nullptr;
}

std::shared_ptr<LineRenderer> MeasurementController::getLine(unsigned stencilValue) const {
    const unsigned index = stencilValue - STENCIL_START_INDEX;
    return index < measurements.size() ? measurements[index].second : nullptr;
}

std::string MeasurementController::getUuidAtStencilIndex(unsigned stencilValue) const {
    const unsigned index = stencilValue - STENCIL_START_INDEX;
    return index < measurements.size() ? measurements[index].first : std::string();
}

void MeasurementController::highlight(unsigned stencilValue) {
    if (Entry* entry = entryAt(stencilValue)) {
        entry->second->setColor(HIGHLIGHT_COLOR);
        entry->second->setOpacity(HIGHLIGHT_OPACITY);
    }
}

void MeasurementController::resetHighlight() {
    for (Entry& entry : measurements) {
        entry.second->setColor(LineRenderer::DEFAULT_COLOR);
        entry.second->setOpacity(LineRenderer::DEFAULT_OPACITY);
    }
}

void MeasurementController::draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& worldToHead,
                                 const Ko_1_1::Mat4d<float>& headToEye,
                                 const Ko_1_1::Mat4d<float>& projection, bool stencilPass) {
    // The eye picture's stencil names what is where as well as the picking target's does; the measurement
    // in progress belongs to nothing the host knows.
    if (!stencilPass) {
        glStencilFunc(GL_ALWAYS, 0, 0xFF);
        glStencilMask(0xFF);
        currentLine->setDisplay(true);
        currentLine->draw(renderer, worldToHead, headToEye, projection, state == BOTH_POINTS_PLACED, false);
    }
    for (std::size_t i = 0; i < measurements.size(); ++i) {
        // Values from 128 on name annotations: measurements beyond the range are drawn but not pickable.
        const GLint value = i < STENCIL_COUNT ? static_cast<GLint>(STENCIL_START_INDEX + i) : 0;
        glStencilFunc(GL_ALWAYS, value, 0xFF);
        glStencilMask(0xFF);
        LineRenderer& line = *measurements[i].second;
        if (stencilPass) {
            line.setWidth(PICKING_WIDTH);
            line.setDisplay(false);
        }
        line.draw(renderer, worldToHead, headToEye, projection, true, !stencilPass);
    }
}
