#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/Point3dRGBA.h"
#include "common/Vec3d.h"
#include "examples/PointCloud.h"

namespace Demo {

// Answers the viewer's point query for one cloud: which points a pinhole camera would see in an image of the
// requested size, in the camera's own frame (x right, y up, looking down -z). At most width x height points
// come back.
//
// A scan is sparser than the query's pixels up close, and the viewer draws one small point per answer:
// answered point by point, a wall a few metres away would be a dotted grey through which what lies behind
// it shows. So each point covers a footprint as wide as the cloud's spacing around it seen from the camera
// (the spacing is estimated per grid cell at construction), the nearest footprint wins each pixel, and every
// covered pixel is answered: by the point itself on its own pixel, by the footprint's depth at the pixel's
// centre elsewhere. Where the cloud is denser than the pixels a footprint is one pixel and the answer is
// the plain nearest point per pixel.
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

    // Footprints on (the default) or off: off, every point covers its own pixel only.
    void setFootprints(bool on) { footprints.store(on); }
    // The typical distance between neighbouring points of the cloud (the median over its cells).
    float typicalSpacing() const { return medianSpacing; }

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
        // Its points in runs of like spacing: [firstRun, endRun) of runs_.
        std::uint32_t firstRun;
        std::uint32_t endRun;
    };
    // Points [begin, end) of one sub-cell and the distance between neighbouring points there.
    struct Run {
        std::uint32_t begin;
        std::uint32_t end;
        float spacing;
    };

    void buildGrid();

    PointCloud cloud_;
    std::vector<Cell> cells_;
    std::vector<Run> runs_;
    float medianSpacing = 0.0f;
    // A switch for comparisons, safe to flip while another thread queries.
    std::atomic<bool> footprints{true};
};

} // namespace Demo
