#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace VR {

// A point as the library stores it and uploads it unchanged: the vertex format of the point buffers.
// The filler byte keeps the stride at 16; the GPU reads four colour bytes and ignores the fourth.
struct Point3dRGB {
    float x;
    float y;
    float z;
    std::uint8_t r;
    std::uint8_t g;
    std::uint8_t b;
    std::uint8_t filler;
};

static_assert(sizeof(Point3dRGB) == 16, "Point3dRGB is the 16-byte vertex of the point buffers");
static_assert(offsetof(Point3dRGB, r) == 12, "VertexColor is read at byte 12");
static_assert(std::is_trivially_copyable<Point3dRGB>::value, "Point3dRGB is a plain record");

} // namespace VR
