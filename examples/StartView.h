#pragma once

#include <cstddef>
#include <string>

#include "common/Vec3d.h"
#include "examples/PointCloud.h"

namespace Demo {

// Where the user stands when a session starts, chosen from the scan's shape so that the first picture shows
// it. The viewer puts the origin of the headset's tracking space, the floor under the user's feet, at
// position(); a standing user's eyes are about EYE_HEIGHT above it and look along world +y. A host can turn
// the user only later, by asking for a glide (a fly-to request), so each choice frames the scan from its -y
// side instead:
//
// - An object (lower than ROOM_MIN_HEIGHT, or narrower than ROOM_MIN_WIDTH: nobody stands inside it) is
//   seen from in front of its -y face, far enough that the larger of its width and height spans
//   OBJECT_ANGLE, never nearer than MIN_VIEW_DISTANCE, with the eyes a little above its middle height; a
//   flat object (a slab, a relief) is looked down on at FLAT_LOOK_DOWN instead of along its edge.
// - A room: on its floor at the free spot nearest its middle, where no point stands between knee and head.
// - Outdoors (wider than OUTDOOR_EXTENT): above open ground at the middle of its south (-y) edge, high enough
//   to overlook it. Outdoor scans are mostly captured from the air, or sampled sparsely far from the scanner:
//   from eye height the near ground is a few coarse points, roofs hang without walls and the first tree
//   hides the rest, while from above the scan looks as it was recorded. Sizes stay true; the user can fly
//   down.
//
// Extents run from the 1st to the 99th percentile of each coordinate, so that stray points (range noise,
// multipath below a floor, a bird) neither sink the floor nor stretch the scan; they are taken from at most
// SAMPLE_LIMIT evenly spread points, so that a large cloud costs a fraction of a second.
//
// A value, computed once from a complete cloud on any thread.
class StartView {
public:
    enum class Kind { Object, Room, Outdoor };

    explicit StartView(const PointCloud& cloud);

    Kind kind() const { return kind_; }
    // World coordinates (z up) of the tracking origin: the floor under the user's feet.
    const Ko_1_1::Vec3d<double>& position() const { return position_; }
    // The class, the extents and where the user stands, as one line of the program's output.
    const std::string& description() const { return description_; }

    static constexpr double EYE_HEIGHT = 1.7;
    static constexpr double OUTDOOR_EXTENT = 40.0;
    static constexpr double ROOM_MIN_HEIGHT = 2.0;
    static constexpr double ROOM_MIN_WIDTH = 1.5;
    // Three fifths of a headset's vertical field of view (100 to 110 degrees): the object fills the view's
    // middle and its surroundings still show.
    static constexpr double OBJECT_ANGLE = 66.0;
    // Nearer than this the eyes strain to focus on what they see.
    static constexpr double MIN_VIEW_DISTANCE = 0.6;
    static constexpr double FLAT_LOOK_DOWN = 25.0;
    // Outdoors the user stands this share of the scan's depth above the ground, which shows its far edge
    // about 15 degrees below the horizon, within the bounds below: higher, the ground loses its detail.
    static constexpr double OVERLOOK_SHARE = 0.25;
    static constexpr double OVERLOOK_MIN = 10.0;
    static constexpr double OVERLOOK_MAX = 50.0;
    static constexpr std::size_t SAMPLE_LIMIT = 250000;

private:
    Kind kind_ = Kind::Room;
    Ko_1_1::Vec3d<double> position_;
    std::string description_;
};

} // namespace Demo
