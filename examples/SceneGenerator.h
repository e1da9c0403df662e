#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "examples/PointCloud.h"

namespace Demo {

// Makes a sample scan for running the demo without a file: a furnished room (12 m x 8 m, 2.8 m high; floor,
// walls, ceiling, tables, cabinets, a pillar and barrels) sampled the way a terrestrial scanner standing in
// the room would see it: point density falling with distance and grazing angle, a few millimetres of range
// noise, colours shaded by a fixed light. World coordinates in metres, z up, the floor at z = 0 and the room
// centred on x = y = 0.
//
// The result depends only on the arguments, on every platform (own random generator). Stateless; call from
// any thread.
class SceneGenerator {
public:
    static constexpr std::size_t DEFAULT_POINT_COUNT = 3000000;

    // progress (may be empty) hears the fraction made, a hundred times at most.
    static PointCloud generateRoom(std::size_t pointCount = DEFAULT_POINT_COUNT, std::uint64_t seed = 1,
                                   const std::function<void(double fraction)>& progress = {});
};

} // namespace Demo
