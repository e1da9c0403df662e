#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "common/Vec3d.h"
class Bitmap;

namespace VR {

// One host mesh: triangles (mode 4) or lines (mode 1) in world coordinates, coloured or textured.
struct MeshData {
    struct Color {
        std::uint8_t r;
        std::uint8_t g;
        std::uint8_t b;
    };
    struct TexCoord {
        float u;
        float v;
    };

    std::vector<Ko_1_1::Vec3d<float>> positions;
    std::vector<Ko_1_1::Vec3d<float>> normals;
    std::vector<Color> colors;
    std::vector<TexCoord> texCoords;
    std::vector<std::uint32_t> indices;
    std::shared_ptr<Bitmap> texture;
    std::uint32_t mode = 4;
};

static_assert(sizeof(MeshData::Color) == 3, "mesh colours are 3-byte records");
static_assert(sizeof(MeshData::TexCoord) == 8, "texture coordinates are 8-byte records");

} // namespace VR
