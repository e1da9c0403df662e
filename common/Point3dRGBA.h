#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace VR {

// A point as the host's point query returns it, in the query camera's frame (the camera looks down -z).
struct Point3dRGBA {
    float x;
    float y;
    float z;
    std::uint8_t r;
    std::uint8_t g;
    std::uint8_t b;
    std::uint8_t a; // read by nobody
};

static_assert(sizeof(Point3dRGBA) == 16, "Point3dRGBA is 16 bytes without gaps");
static_assert(offsetof(Point3dRGBA, r) == 12 && offsetof(Point3dRGBA, a) == 15, "colour follows position");
static_assert(std::is_trivially_copyable<Point3dRGBA>::value, "Point3dRGBA is a plain record");

} // namespace VR
