#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/Point3dRGBA.h"
#include "common/Vec3d.h"
#include "examples/PointCloud.h"

namespace Demo {

// Answers the viewer's point query for one cloud: which points a pinhole camera would see in an image of the
// requested size, keeping the nearest point per pixel, in the camera's own frame (x right, y up, looking
// down -z). At most width x height points come back.
//
// The cloud is sorted into a uniform grid once at construction; a query skips every cell whose bounding
// box lies outside the camera's frustum, so its cost follows the visible points rather than the whole
// cloud. Owns its cloud. query() is const and keeps its scratch memory per thread, so several threads may
// query at once; construction and destruction must not overlap a query.
class VisibilityQuery {
public:
    explicit VisibilityQuery(PointCloud cloud);

    // Arguments as the viewer's point query passes them: horizontal field of view (radians; the vertical
    // one follows from the image's aspect), image size in pixels, near and far distances, the camera's
    // position, up axis and back axis in world coordinates (it looks along -back). Appends to points.
    void query(float horizontalFov, unsigned short width, unsigned short height, float nearZ, float farZ,
               const Ko_1_1::Vec3d<double>& position, const Ko_1_1::Vec3d<double>& up,
               const Ko_1_1::Vec3d<double>& back, std::vector<VR::Point3dRGBA>& points) const;

    // Where the user's tracking origin should stand at the start, in world coordinates (z up): on the floor
    // in the middle of a room-sized scan, or on the ground beside the bounding box of a larger one.
    Ko_1_1::Vec3d<double> startPosition() const;

    // Above this horizontal extent (world units) a scan counts as outdoor for startPosition().
    static constexpr double ROOM_EXTENT = 40.0;

    const PointCloud& cloud() const { return cloud_; }
    std::size_t cellCount() const { return cells_.size(); }

private:
    struct Cell {
        Ko_1_1::Vec3d<float> min;
        Ko_1_1::Vec3d<float> max;
        std::uint32_t begin;
        std::uint32_t end;
    };

    void buildGrid();

    PointCloud cloud_;
    std::vector<Cell> cells_;
};

} // namespace Demo
