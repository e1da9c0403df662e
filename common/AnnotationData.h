#pragma once

#include <string>

#include "common/Vec3d.h"

namespace VR {

// One annotation of the host: a UTF-8 text pinned to a world position.
struct AnnotationData {
    Ko_1_1::Vec3d<double> position;
    std::string text;
    std::string uuid;
};

} // namespace VR
