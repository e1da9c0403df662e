#pragma once

#include <string>
#include <vector>

#include "common/Vec3d.h"

namespace VR {

// One measurement of the host: its points in world coordinates (metres), in order, and its identifier.
struct MeasurementData {
    std::vector<Ko_1_1::Vec3d<float>> points;
    std::string uuid;
};

} // namespace VR
