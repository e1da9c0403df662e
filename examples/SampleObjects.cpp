#include "examples/SampleObjects.h"

#include <cmath>
#include <cstdint>
#include <memory>

#include "text/Bitmap.h"

namespace Demo {
namespace {

using Vec3 = Ko_1_1::Vec3d<float>;

struct Rgb {
    double r, g, b;
};

VR::MeshData::Color toColor(const Rgb& c) {
    return {static_cast<std::uint8_t>(c.r * 255.0), static_cast<std::uint8_t>(c.g * 255.0),
            static_cast<std::uint8_t>(c.b * 255.0)};
}

// Flat quad a, b, c, d counter-clockwise seen from the outside.
void quad(VR::MeshData& mesh, const Vec3& a, const Vec3& b, const Vec3& c, const Vec3& d, const Rgb& colour) {
    Vec3 normal = (b - a).cross(d - a);
    normal.normalize();
    const auto base = static_cast<std::uint32_t>(mesh.positions.size());
    for (const Vec3& p : {a, b, c, d}) {
        mesh.positions.push_back(p);
        mesh.normals.push_back(normal);
        mesh.colors.push_back(toColor(colour));
    }
    mesh.indices.insert(mesh.indices.end(), {base, base + 1, base + 2, base, base + 2, base + 3});
}

// The same boxes the scan was sampled from: top and four sides, no bottom.
void box(VR::MeshData& mesh, float x0, float y0, float x1, float y1, float z0, float z1, const Rgb& colour) {
    quad(mesh, {x0, y0, z1}, {x1, y0, z1}, {x1, y1, z1}, {x0, y1, z1}, colour);
    quad(mesh, {x0, y0, z0}, {x1, y0, z0}, {x1, y0, z1}, {x0, y0, z1}, colour);
    quad(mesh, {x1, y0, z0}, {x1, y1, z0}, {x1, y1, z1}, {x1, y0, z1}, colour);
    quad(mesh, {x1, y1, z0}, {x0, y1, z0}, {x0, y1, z1}, {x1, y1, z1}, colour);
    quad(mesh, {x0, y1, z0}, {x0, y0, z0}, {x0, y0, z1}, {x0, y1, z1}, colour);
}

void table(VR::MeshData& mesh, float cx, float cy, float lengthX, float lengthY) {
    const Rgb wood{0.55, 0.36, 0.2};
    const Rgb steel{0.25, 0.25, 0.27};
    const float x0 = cx - lengthX / 2, x1 = cx + lengthX / 2, y0 = cy - lengthY / 2, y1 = cy + lengthY / 2;
    box(mesh, x0, y0, x1, y1, 0.71f, 0.75f, wood);
    for (const float lx : {x0 + 0.06f, x1 - 0.06f}) {
        for (const float ly : {y0 + 0.06f, y1 - 0.06f}) {
            box(mesh, lx - 0.025f, ly - 0.025f, lx + 0.025f, ly + 0.025f, 0.0f, 0.71f, steel);
        }
    }
}

// A barrel as a 24-sided prism with a lid; side normals point outwards from the axis so it shades round.
void barrel(VR::MeshData& mesh, float x, float y, float radius, float height, const Rgb& colour) {
    constexpr int SIDES = 24;
    const float step = 6.2831853f / SIDES;
    const auto centre = static_cast<std::uint32_t>(mesh.positions.size());
    mesh.positions.push_back({x, y, height});
    mesh.normals.push_back({0, 0, 1});
    mesh.colors.push_back(toColor(colour));
    for (int i = 0; i < SIDES; ++i) {
        const float a0 = i * step, a1 = (i + 1) * step;
        const Vec3 n0{std::cos(a0), std::sin(a0), 0}, n1{std::cos(a1), std::sin(a1), 0};
        const auto base = static_cast<std::uint32_t>(mesh.positions.size());
        for (const auto& [n, z] :
             {std::pair<Vec3, float>{n0, 0.0f}, {n1, 0.0f}, {n1, height}, {n0, height}}) {
            mesh.positions.push_back({x + radius * n.x, y + radius * n.y, z});
            mesh.normals.push_back(n);
            mesh.colors.push_back(toColor(colour));
        }
        mesh.indices.insert(mesh.indices.end(), {base, base + 1, base + 2, base, base + 2, base + 3});
        // The lid shares the rim positions but needs upward normals, hence its own two vertices.
        const auto rim = static_cast<std::uint32_t>(mesh.positions.size());
        for (const Vec3& n : {n0, n1}) {
            mesh.positions.push_back({x + radius * n.x, y + radius * n.y, height});
            mesh.normals.push_back({0, 0, 1});
            mesh.colors.push_back(toColor(colour));
        }
        mesh.indices.insert(mesh.indices.end(), {centre, rim, rim + 1});
    }
}

VR::MeshData furniture() {
    VR::MeshData mesh;
    mesh.mode = 4;
    table(mesh, -3.2f, -2.0f, 1.8f, 0.9f);
    table(mesh, 2.8f, 1.8f, 1.6f, 0.8f);
    box(mesh, -5.9f, 1.5f, -5.3f, 3.9f, 0.0f, 2.0f, {0.3, 0.42, 0.6});  // cabinet row
    box(mesh, 4.6f, -3.9f, 5.9f, -3.2f, 0.0f, 1.0f, {0.7, 0.7, 0.68});  // sideboard
    box(mesh, 0.8f, -3.0f, 1.4f, -2.4f, 0.0f, 0.6f, {0.85, 0.55, 0.2}); // crates
    box(mesh, 1.5f, -3.1f, 2.0f, -2.6f, 0.0f, 0.45f, {0.8, 0.5, 0.18});
    box(mesh, 0.9f, -2.95f, 1.35f, -2.5f, 0.6f, 1.0f, {0.9, 0.62, 0.25});
    barrel(mesh, 4.8f, 2.8f, 0.3f, 0.9f, {0.15, 0.45, 0.25});
    barrel(mesh, 5.3f, 3.3f, 0.3f, 0.9f, {0.2, 0.5, 0.3});
    return mesh;
}

// A small landscape: sky, sun, two hills and a dark frame. Rows bottom first, as the viewer uploads them.
std::shared_ptr<Bitmap> pictureTexture(unsigned width, unsigned height) {
    std::vector<unsigned char> rgba(width * height * 4);
    for (unsigned row = 0; row < height; ++row) {
        const float v = (row + 0.5f) / height; // 0 at the bottom
        for (unsigned column = 0; column < width; ++column) {
            const float u = (column + 0.5f) / width;
            float r = 0.45f + 0.35f * v, g = 0.65f + 0.25f * v, b = 0.95f;
            const float sunX = u - 0.72f, sunY = (v - 0.72f) * height / width;
            if (sunX * sunX + sunY * sunY < 0.012f) {
                r = 1.0f, g = 0.85f, b = 0.3f;
            }
            if (v < 0.35f + 0.12f * std::sin(u * 5.0f)) {
                r = 0.25f, g = 0.55f, b = 0.2f;
            } else if (v < 0.25f + 0.2f * std::sin(u * 3.0f + 2.0f)) {
                r = 0.35f, g = 0.62f, b = 0.25f;
            }
            if (u < 0.05f || u > 0.95f || v < 0.06f || v > 0.94f) {
                r = 0.22f, g = 0.14f, b = 0.08f;
            }
            unsigned char* pixel = &rgba[(row * width + column) * 4];
            pixel[0] = static_cast<unsigned char>(r * 255.0f);
            pixel[1] = static_cast<unsigned char>(g * 255.0f);
            pixel[2] = static_cast<unsigned char>(b * 255.0f);
            pixel[3] = 255;
        }
    }
    return std::make_shared<Bitmap>(width, height, 4, std::move(rgba));
}

VR::MeshData picture() {
    // On the south wall (y = -4), a centimetre in front of it, facing into the room.
    constexpr float WALL = -3.99f, X0 = 2.0f, X1 = 3.2f, Z0 = 1.2f, Z1 = 2.0f;
    VR::MeshData mesh;
    mesh.mode = 4;
    mesh.positions = {{X0, WALL, Z0}, {X1, WALL, Z0}, {X1, WALL, Z1}, {X0, WALL, Z1}};
    mesh.normals.assign(4, {0.0f, 1.0f, 0.0f});
    mesh.texCoords = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    mesh.indices = {0, 1, 2, 0, 2, 3};
    mesh.texture = pictureTexture(96, 64);
    return mesh;
}

VR::MeshData floorGrid() {
    constexpr float HX = 6.0f, HY = 4.0f, Z = 0.01f;
    const VR::MeshData::Color colour{70, 190, 235};
    VR::MeshData mesh;
    mesh.mode = 1;
    auto line = [&mesh, &colour](const Vec3& a, const Vec3& b) {
        const auto base = static_cast<std::uint32_t>(mesh.positions.size());
        mesh.positions.insert(mesh.positions.end(), {a, b});
        mesh.normals.insert(mesh.normals.end(), 2, {0.0f, 0.0f, 1.0f});
        mesh.colors.insert(mesh.colors.end(), 2, colour);
        mesh.indices.insert(mesh.indices.end(), {base, base + 1});
    };
    for (float x = -HX; x <= HX + 0.001f; x += 1.0f) {
        line({x, -HY, Z}, {x, HY, Z});
    }
    for (float y = -HY; y <= HY + 0.001f; y += 1.0f) {
        line({-HX, y, Z}, {HX, y, Z});
    }
    return mesh;
}

} // namespace

std::vector<VR::AnnotationData> SampleObjects::roomAnnotations() {
    return {
        {{5.98, 2.2, 1.5}, "配电箱 Distribution box", "room-annotation-distribution-box"},
        {{-1.0, -3.98, 1.7}, "Fenster / window", "room-annotation-window"},
        {{-3.2, 3.98, 2.15}, "Whiteboard", "room-annotation-whiteboard"},
        {{-3.2, -2.0, 0.76}, "会议桌 Meeting table", "room-annotation-table"},
        {{5.05, 3.05, 0.92}, "Barrels: check the seals", "room-annotation-barrels"},
    };
}

std::vector<VR::MeshData> SampleObjects::roomMeshes() {
    std::vector<VR::MeshData> meshes;
    meshes.push_back(furniture());
    meshes.push_back(picture());
    meshes.push_back(floorGrid());
    return meshes;
}

} // namespace Demo
