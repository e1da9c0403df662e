#include "examples/SceneGenerator.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace Demo {
namespace {

using Vec3 = Ko_1_1::Vec3d<double>;

// SplitMix64: tiny, fast and the same everywhere, unlike the standard library's distributions.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next() {
        std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    double uniform() { return static_cast<double>(next() >> 11) * (1.0 / 9007199254740992.0); }
    // Sum of four uniforms: close enough to a normal distribution for scanner noise, and cheap.
    double gaussian() { return (uniform() + uniform() + uniform() + uniform() - 2.0) * 1.7320508; }

private:
    std::uint64_t state_;
};

enum class Pattern { Plain, FloorTiles, Wall, Wood, Rug };

struct Surface {
    enum class Kind { Quad, CylinderSide, Disc } kind;
    Vec3 origin; // quad corner, or cylinder/disc centre at its base
    Vec3 edgeU;  // quad edges
    Vec3 edgeV;
    Vec3 normal; // quad and disc normal
    double radius = 0.0;
    double height = 0.0;
    double r, g, b;
    Pattern pattern = Pattern::Plain;
    double area = 0.0;
};

class Room {
public:
    std::vector<Surface> surfaces;

    void quad(const Vec3& origin, const Vec3& u, const Vec3& v, double r, double g, double b,
              Pattern pattern = Pattern::Plain) {
        Vec3 n = u.cross(v);
        const double area = n.length();
        n.normalize();
        surfaces.push_back({Surface::Kind::Quad, origin, u, v, n, 0.0, 0.0, r, g, b, pattern, area});
    }

    // A box standing on z = base: four sides and a top (the bottom is never seen).
    void box(double x0, double y0, double x1, double y1, double base, double top, double r, double g,
             double b, Pattern pattern = Pattern::Plain) {
        const double h = top - base;
        quad({x0, y0, top}, {x1 - x0, 0, 0}, {0, y1 - y0, 0}, r, g, b, pattern);
        quad({x0, y0, base}, {x1 - x0, 0, 0}, {0, 0, h}, r, g, b, pattern);
        quad({x1, y1, base}, {x0 - x1, 0, 0}, {0, 0, h}, r, g, b, pattern);
        quad({x1, y0, base}, {0, y1 - y0, 0}, {0, 0, h}, r, g, b, pattern);
        quad({x0, y1, base}, {0, y0 - y1, 0}, {0, 0, h}, r, g, b, pattern);
    }

    void cylinder(double x, double y, double base, double radius, double height, double r, double g, double b,
                  bool lid) {
        const double pi = 3.14159265358979323846;
        surfaces.push_back({Surface::Kind::CylinderSide,
                            {x, y, base},
                            {},
                            {},
                            {0, 0, 1},
                            radius,
                            height,
                            r,
                            g,
                            b,
                            Pattern::Plain,
                            2.0 * pi * radius * height});
        if (lid) {
            surfaces.push_back({Surface::Kind::Disc,
                                {x, y, base + height},
                                {},
                                {},
                                {0, 0, 1},
                                radius,
                                0.0,
                                r,
                                g,
                                b,
                                Pattern::Plain,
                                pi * radius * radius});
        }
    }

    void table(double cx, double cy, double lengthX, double lengthY) {
        const double x0 = cx - lengthX / 2, x1 = cx + lengthX / 2, y0 = cy - lengthY / 2,
                     y1 = cy + lengthY / 2;
        box(x0, y0, x1, y1, 0.71, 0.75, 0.55, 0.36, 0.2, Pattern::Wood);
        for (const double lx : {x0 + 0.06, x1 - 0.06}) {
            for (const double ly : {y0 + 0.06, y1 - 0.06}) {
                cylinder(lx, ly, 0.0, 0.03, 0.71, 0.25, 0.25, 0.27, false);
            }
        }
    }
};

Room buildRoom() {
    constexpr double HX = 6.0, HY = 4.0, H = 2.8;
    Room room;
    room.quad({-HX, -HY, 0}, {2 * HX, 0, 0}, {0, 2 * HY, 0}, 0.62, 0.6, 0.56, Pattern::FloorTiles);
    room.quad({-HX, -HY, H}, {0, 2 * HY, 0}, {2 * HX, 0, 0}, 0.93, 0.93, 0.9);
    room.quad({-HX, -HY, 0}, {0, 0, H}, {2 * HX, 0, 0}, 0.86, 0.82, 0.72, Pattern::Wall);
    room.quad({HX, HY, 0}, {0, 0, H}, {-2 * HX, 0, 0}, 0.86, 0.82, 0.72, Pattern::Wall);
    room.quad({-HX, HY, 0}, {0, 0, H}, {0, -2 * HY, 0}, 0.75, 0.82, 0.86, Pattern::Wall);
    room.quad({HX, -HY, 0}, {0, 0, H}, {0, 2 * HY, 0}, 0.75, 0.82, 0.86, Pattern::Wall);
    // A rug a hair above the floor, a door and a whiteboard a hair in front of their walls.
    room.quad({-1.5, 0.8, 0.004}, {3.0, 0, 0}, {0, 2.0, 0}, 0.6, 0.15, 0.12, Pattern::Rug);
    room.quad({HX - 0.004, -1.0, 0}, {0, 0, 2.05}, {0, 1.0, 0}, 0.45, 0.3, 0.18, Pattern::Wood);
    room.quad({-2.0, HY - 0.004, 1.0}, {0, 0, 1.1}, {-2.4, 0, 0}, 0.97, 0.97, 0.97);

    room.table(-3.2, -2.0, 1.8, 0.9);
    room.table(2.8, 1.8, 1.6, 0.8);
    room.box(-5.9, 1.5, -5.3, 3.9, 0.0, 2.0, 0.3, 0.42, 0.6);  // cabinet row along the west wall
    room.box(4.6, -3.9, 5.9, -3.2, 0.0, 1.0, 0.7, 0.7, 0.68);  // low sideboard
    room.box(0.8, -3.0, 1.4, -2.4, 0.0, 0.6, 0.85, 0.55, 0.2); // crates
    room.box(1.5, -3.1, 2.0, -2.6, 0.0, 0.45, 0.8, 0.5, 0.18);
    room.box(0.9, -2.95, 1.35, -2.5, 0.6, 1.0, 0.9, 0.62, 0.25);
    room.cylinder(-0.5, -0.8, 0.0, 0.25, 2.8, 0.8, 0.8, 0.78, false); // pillar
    room.cylinder(4.8, 2.8, 0.0, 0.3, 0.9, 0.15, 0.45, 0.25, true);   // barrels
    room.cylinder(5.3, 3.3, 0.0, 0.3, 0.9, 0.2, 0.5, 0.3, true);
    room.cylinder(-2.0, 2.6, 0.0, 0.2, 0.45, 0.75, 0.2, 0.2, true); // stool
    return room;
}

double patternShade(const Surface& s, const Vec3& p) {
    switch (s.pattern) {
    case Pattern::FloorTiles: {
        const long tx = static_cast<long>(std::floor(p.x / 0.6));
        const long ty = static_cast<long>(std::floor(p.y / 0.6));
        const double fx = p.x / 0.6 - std::floor(p.x / 0.6);
        const double fy = p.y / 0.6 - std::floor(p.y / 0.6);
        if (fx < 0.015 || fy < 0.015) {
            return 0.55; // grout
        }
        return ((tx + ty) & 1) ? 0.85 : 1.0;
    }
    case Pattern::Wall:
        return p.z < 0.9 ? 0.75 : 1.0;
    case Pattern::Wood:
        return 0.85 + 0.15 * std::sin((p.x + p.y) * 37.0 + std::sin(p.x * 5.0) * 3.0);
    case Pattern::Rug: {
        const double border = std::min({p.x + 1.5, 1.5 - p.x, p.y - 0.8, 2.8 - p.y});
        return border < 0.15 ? 1.4 : 1.0;
    }
    case Pattern::Plain:
        break;
    }
    return 1.0;
}

std::uint8_t channel(double v) {
    return static_cast<std::uint8_t>(std::clamp(v * 255.0, 0.0, 255.0));
}

} // namespace

PointCloud SceneGenerator::generateRoom(std::size_t pointCount, std::uint64_t seed,
                                        const std::function<void(double fraction)>& progress) {
    const Room room = buildRoom();
    std::vector<double> cumulative;
    double total = 0.0;
    for (const Surface& s : room.surfaces) {
        total += s.area;
        cumulative.push_back(total);
    }

    const Vec3 scanner{0.7, -0.4, 1.5};
    Vec3 light{0.3, -0.5, 0.8};
    light.normalize();
    // Density as seen by a scanner: the closest 2.5 m keep everything, beyond it falls with the square of
    // the distance and with the cosine of the incidence angle (kept above 0.25 so that grazing surfaces do
    // not vanish entirely).
    constexpr double FULL_DENSITY_RANGE = 2.5;

    Random random(seed);
    PointCloud cloud(Vec3{0.0, 0.0, 0.0});
    cloud.reserve(pointCount);
    const std::size_t step = std::max<std::size_t>(pointCount / 100, 1);
    std::size_t nextReport = step;
    while (cloud.size() < pointCount) {
        if (progress && cloud.size() >= nextReport) {
            progress(static_cast<double>(cloud.size()) / static_cast<double>(pointCount));
            nextReport += step;
        }
        const double pick = random.uniform() * total;
        const std::size_t index = static_cast<std::size_t>(
            std::upper_bound(cumulative.begin(), cumulative.end(), pick) - cumulative.begin());
        const Surface& s = room.surfaces[std::min(index, room.surfaces.size() - 1)];
        Vec3 p, n;
        const double a = random.uniform();
        const double c = random.uniform();
        switch (s.kind) {
        case Surface::Kind::Quad:
            p = s.origin + s.edgeU * a + s.edgeV * c;
            n = s.normal;
            break;
        case Surface::Kind::CylinderSide: {
            const double angle = a * 2.0 * 3.14159265358979323846;
            n = {std::cos(angle), std::sin(angle), 0.0};
            p = s.origin + n * s.radius + Vec3{0, 0, c * s.height};
            break;
        }
        case Surface::Kind::Disc: {
            const double angle = a * 2.0 * 3.14159265358979323846;
            const double radius = s.radius * std::sqrt(c);
            p = s.origin + Vec3{std::cos(angle) * radius, std::sin(angle) * radius, 0.0};
            n = s.normal;
            break;
        }
        }
        Vec3 ray = p - scanner;
        const double distance = ray.length();
        ray.normalize();
        const double incidence = std::max(std::fabs(ray.dot(n)), 0.25);
        const double keep =
            std::min(1.0, incidence * (FULL_DENSITY_RANGE * FULL_DENSITY_RANGE) / (distance * distance));
        if (random.uniform() >= keep) {
            continue;
        }
        // Range noise along the ray, growing slowly with distance.
        p += ray * (random.gaussian() * (0.002 + 0.0005 * distance));
        const double shade = (0.55 + 0.45 * std::max(0.0, n.dot(light))) * patternShade(s, p) *
                             (1.0 + 0.04 * random.gaussian());
        cloud.addWorld(p.x, p.y, p.z, channel(s.r * shade), channel(s.g * shade), channel(s.b * shade));
    }
    if (progress) {
        progress(1.0);
    }
    return cloud;
}

} // namespace Demo
