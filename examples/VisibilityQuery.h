#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "common/Point3dRGBA.h"
#include "common/Vec3d.h"
#include "examples/PointCloud.h"
#include "examples/PointIndex.h"

namespace Demo {

// Answers the viewer's point query for one cloud: which points a pinhole camera would see in an image of the
// requested size, in the camera's own frame (x right, y up, looking down -z). At most width x height points
// come back.
//
// A scan is sparser than the query's pixels up close, and the viewer draws one small point per answer:
// answered point by point, a wall a few metres away would be a dotted grey through which what lies behind
// it shows. So each point covers a footprint as wide as the cloud's spacing around it seen from the camera,
// the nearest footprint wins each pixel, and every covered pixel is answered: by the point itself on its own
// pixel, by the footprint's depth at the pixel's centre elsewhere. Where a surface is one plane its
// footprints follow it, and they lie a little behind it (beyond the scanner's noise): each pixel then shows
// the point that fell in it, footprints fill only the gaps, and still hide whatever lies behind the surface.
//
// Far away a scan is denser than the pixels, and a huge one would cost its whole size per query. The cloud
// is therefore ordered into level-of-detail cells once, at construction (PointIndex): a query skips every
// cell outside the camera's frustum and reads each visible one only as far as its points still fill pixels
// (about one a pixel, thinned evenly over the cell), with footprints as wide as the spacing of the points
// read. Cells are read nearest first, and one wholly behind what is already there is passed over. So a
// query's cost follows the pixels it answers rather than the cloud. The image is split into bands of rows,
// one per core.
//
// Owns its cloud and reorders it. query() is const and keeps its scratch memory per calling thread, so
// several threads may query at once; construction and destruction must not overlap a query.
class VisibilityQuery {
public:
    // Levels: footprints over each cell's level of detail (the default). Footprints: every point with its
    // footprint, the full-detail answer the levels stand in for. Points: every point on its own pixel only,
    // the plain nearest point per pixel.
    enum class Mode { Levels, Footprints, Points };

    // progress (may be empty) hears fractions from 0 to 1 while the index is built, on the constructing
    // thread, a few times a second at most and 1 at the end.
    explicit VisibilityQuery(PointCloud cloud, std::function<void(double fraction)> progress = {});

    // Arguments as the viewer's point query passes them: horizontal field of view (radians; the vertical
    // one follows from the image's aspect), image size in pixels, near and far distances, the camera's
    // position, up axis and back axis in world coordinates (it looks along -back). Appends to points.
    void query(float horizontalFov, unsigned short width, unsigned short height, float nearZ, float farZ,
               const Ko_1_1::Vec3d<double>& position, const Ko_1_1::Vec3d<double>& up,
               const Ko_1_1::Vec3d<double>& back, std::vector<VR::Point3dRGBA>& points) const;

    // Safe to change while another thread queries; a query already running keeps what it started with.
    void setMode(Mode mode) { mode_.store(mode); }
    // Threads one query uses: 0 (the default) for one per core. A host whose renderer needs a core can
    // leave it one.
    void setThreads(unsigned threads) { threads_.store(threads); }
    // The typical distance between neighbouring points of the cloud (the median over its cells' parts).
    float typicalSpacing() const { return index_.typicalSpacing(); }

    const PointCloud& cloud() const { return cloud_; }
    const PointIndex& index() const { return index_; }

private:
    PointCloud cloud_;
    PointIndex index_;
    std::atomic<Mode> mode_{Mode::Levels};
    std::atomic<unsigned> threads_{0};
};

} // namespace Demo
