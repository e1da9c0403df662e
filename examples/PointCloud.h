#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/Vec3d.h"

namespace Demo {

// A coloured point cloud in memory, as the demo host keeps it for answering the viewer's point queries.
//
// Scans come in world coordinates that can be large (survey coordinates around 600,000 are common), where a
// float keeps only centimetres. Positions are therefore stored as floats relative to a double-precision
// origin, which is kept at the cloud's centre: a float then resolves better than 0.1 mm across 1 km.
// World position = origin + local position.
//
// Owned by whoever loaded it (usually moved into a VisibilityQuery); not thread-safe for writing, any number
// of threads may read it once it is complete.
class PointCloud {
public:
    struct Point {
        float x;
        float y;
        float z;
        std::uint8_t r;
        std::uint8_t g;
        std::uint8_t b;
        std::uint8_t flags; // unused filler keeping the record at 16 bytes
    };

    PointCloud() = default;

    // Sets the origin before any point was added; later world points are stored relative to it.
    explicit PointCloud(const Ko_1_1::Vec3d<double>& origin);

    void reserve(std::size_t count) { points_.reserve(count); }

    // Adds a point given in world coordinates. The first point fixes the origin when none was set; call
    // recentre() once all points are in so that the origin ends up at the centre.
    void addWorld(double x, double y, double z, std::uint8_t r, std::uint8_t g, std::uint8_t b);
    // Points addWorld left out because a coordinate was not a finite number of sensible size.
    std::size_t unplaceable() const { return unplaceable_; }

    // Adds a point given relative to the origin.
    void addLocal(float x, float y, float z, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
        points_.push_back({x, y, z, r, g, b, 0});
    }

    // Moves the origin to the centre of the points' bounding box (rounded to whole units so that the shift
    // is exact for typical scan coordinates) and shifts the stored positions to match.
    void recentre();

    // Gives every point a colour ramp by height, for scans without colour.
    void colourByHeight();

    // Turns a scan recorded with y up into this cloud's z-up world: (x, y, z) becomes (x, -z, y), which keeps
    // the axes right-handed. Exact: only signs and places change, the origin included.
    void turnYUpToZUp();

    const Ko_1_1::Vec3d<double>& origin() const { return origin_; }
    const std::vector<Point>& points() const { return points_; }
    std::vector<Point>& points() { return points_; }
    std::size_t size() const { return points_.size(); }
    bool empty() const { return points_.empty(); }

    // Bounding box of the stored points, relative to the origin; both zero for an empty cloud.
    void localBounds(Ko_1_1::Vec3d<float>& min, Ko_1_1::Vec3d<float>& max) const;
    // Bounding box in world coordinates.
    void worldBounds(Ko_1_1::Vec3d<double>& min, Ko_1_1::Vec3d<double>& max) const;

private:
    Ko_1_1::Vec3d<double> origin_;
    bool originSet_ = false;
    std::size_t unplaceable_ = 0;
    std::vector<Point> points_;
};

static_assert(sizeof(PointCloud::Point) == 16, "cloud points are 16-byte records");

} // namespace Demo
