#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "common/Mat4d.h"
#include "common/Vec3d.h"
#include "platform/Export.h"
#include "platform/Platform.h"

namespace Brume {
class Buffer;
class Geometry;
class Material;
class Renderer;
} // namespace Brume

namespace VR {

// The right controller's laser line, drawn every frame, and while a teleport is aimed an animated line with
// a translucent landing pad lying on the floor (the world is z-up) at the target. Input code only sets the
// line's ends, its state and the pad's position; the frame loop draws it once per eye.
//
// Owned by the VR renderer. Render thread only, with the VR run's GL context current from construction to
// destruction; the two programs are shared by every teleport renderer of the run.
class ORVEL_VR_EXPORT TeleportRenderer {
public:
    // Nanoseconds of a monotonic clock; only where it stands within the animation period matters.
    using Clock = std::function<std::int64_t()>;

    // One sweep of the dashes along the animated line.
    static constexpr int ANIMATION_PERIOD_MS = 2000;
    // The pad: a disc on the floor, thick enough that its far faces show through its near ones.
    static constexpr float PAD_RADIUS = 0.25f;
    static constexpr float PAD_HEIGHT = 0.02f;
    static constexpr int PAD_SEGMENTS = 48;

    // sizeFactor scales the line's width and point size with the eye target's resolution. Loads the shared
    // programs on first use; throws Brume::Exception for a missing or broken shader.
    explicit TeleportRenderer(float sizeFactor, Clock clock = Platform::monotonicNanoseconds);
    ~TeleportRenderer();
    TeleportRenderer(const TeleportRenderer&) = delete;
    TeleportRenderer& operator=(const TeleportRenderer&) = delete;

    void setLine(const Ko_1_1::Vec3d<float>& start, const Ko_1_1::Vec3d<float>& end) {
        lineStart = start;
        lineEnd = end;
    }
    void setPadPosition(const Ko_1_1::Vec3d<float>& position) { padPosition = position; }
    // 1 when the line ends on something the ray hit, 0 for a free ray; it only changes the line's grey.
    void setLineHitsTarget(int hits) { lineHitsTarget = hits; }
    int getLineHitsTarget() const { return lineHitsTarget; }
    const Ko_1_1::Vec3d<float>& getLineStart() const { return lineStart; }
    const Ko_1_1::Vec3d<float>& getLineEnd() const { return lineEnd; }
    const Ko_1_1::Vec3d<float>& getPadPosition() const { return padPosition; }
    float getSizeFactor() const { return sizeFactor; }

    // Draws into the renderer's target under the caller's depth and stencil state. Without teleportActive
    // only the plain line is drawn. With it the line is animated and the pad drawn, both blended with
    // premultiplied alpha and the pad with back-face culling; blending and culling are put back as they
    // were and the front face is left counter-clockwise. The line width is left as set here, and the
    // program and vertex array as the last draw bound them.
    void draw(Brume::Renderer& renderer, const Ko_1_1::Mat4d<float>& viewProjection, bool teleportActive);

private:
    float sizeFactor;
    Clock clock;
    Ko_1_1::Vec3d<float> lineStart;
    Ko_1_1::Vec3d<float> lineEnd;
    Ko_1_1::Vec3d<float> padPosition;
    int lineHitsTarget = 0;

    std::shared_ptr<Brume::Material> lineMaterial;
    std::shared_ptr<Brume::Buffer> lineBuffer;
    std::shared_ptr<Brume::Geometry> lineGeometry;
    std::shared_ptr<Brume::Material> padMaterial;
    std::shared_ptr<Brume::Geometry> padGeometry;
};

} // namespace VR
