#include "examples/VisibilityQuery.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace Demo {
namespace {

using Vec3f = Ko_1_1::Vec3d<float>;
using Vec3 = Ko_1_1::Vec3d<double>;

constexpr std::size_t POINTS_PER_CELL = 2048;
constexpr std::size_t MAX_CELLS = std::size_t(1) << 16;
// A footprint reaches this share of the local spacing to either side of its point, so that neighbouring
// footprints overlap and close the gaps that a scan's irregular sampling leaves.
constexpr float FOOTPRINT = 0.9f;
// Footprints stop growing here (a 33-pixel square): a point so close is better shown large than not at all,
// but a cloud that sparse has no surface worth closing.
constexpr int MAX_REACH = 16;
// Nor does a footprint reach further than this angle (radians) from its point, whatever the query's
// resolution: at the periphery's coarse pixels a few pixels are already a large part of the view.
constexpr float MAX_REACH_ANGLE = 0.03f;
// Sub-cells with fewer points say nothing about a surface's spacing.
constexpr std::uint32_t MIN_RUN = 4;
constexpr float UNKNOWN = -1.0f;

float medianOf(std::vector<float>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

struct Plane {
    Vec3f normal;
    float offset; // inside: normal . p + offset >= 0
};

// False when the box lies entirely on the outer side of the plane.
bool boxTouches(const Plane& plane, const Vec3f& min, const Vec3f& max) {
    const Vec3f far{plane.normal.x >= 0 ? max.x : min.x, plane.normal.y >= 0 ? max.y : min.y,
                    plane.normal.z >= 0 ? max.z : min.z};
    return plane.normal.dot(far) + plane.offset >= 0.0f;
}

std::uint32_t floatBits(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

} // namespace

VisibilityQuery::VisibilityQuery(PointCloud cloud) : cloud_(std::move(cloud)) {
    if (cloud_.size() >= std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("VisibilityQuery: a cloud holds at most 2^32 - 2 points");
    }
    buildGrid();
}

void VisibilityQuery::buildGrid() {
    std::vector<PointCloud::Point>& points = cloud_.points();
    if (points.empty()) {
        return;
    }
    Vec3f lo, hi;
    cloud_.localBounds(lo, hi);
    const double ex = std::max(static_cast<double>(hi.x) - lo.x, 1e-3);
    const double ey = std::max(static_cast<double>(hi.y) - lo.y, 1e-3);
    const double ez = std::max(static_cast<double>(hi.z) - lo.z, 1e-3);
    const double targetCells =
        std::clamp(static_cast<double>(points.size()) / POINTS_PER_CELL, 1.0, static_cast<double>(MAX_CELLS));
    // Cubic cells sized for the target count; flat scans simply get fewer layers.
    double edge = std::cbrt(ex * ey * ez / targetCells);
    int nx, ny, nz;
    for (;;) {
        nx = std::max(1, static_cast<int>(std::ceil(ex / edge)));
        ny = std::max(1, static_cast<int>(std::ceil(ey / edge)));
        nz = std::max(1, static_cast<int>(std::ceil(ez / edge)));
        if (static_cast<double>(nx) * ny * nz <= static_cast<double>(MAX_CELLS)) {
            break;
        }
        edge *= 1.25;
    }
    const std::size_t total = static_cast<std::size_t>(nx) * ny * nz;

    // Points are ordered by cell and, inside a cell, by a 4 x 4 x 4 split of it, so that neighbouring
    // points land close together in memory and in the query's depth image.
    constexpr int SPLIT = 4;
    constexpr std::size_t SUBCELLS = SPLIT * SPLIT * SPLIT;
    std::vector<std::uint32_t> keyOf(points.size());
    std::vector<std::uint32_t> start(total * SUBCELLS + 1, 0);
    const float inv = static_cast<float>(SPLIT / edge);
    for (std::size_t i = 0; i < points.size(); ++i) {
        const PointCloud::Point& p = points[i];
        const int fx = std::min(nx * SPLIT - 1, static_cast<int>((p.x - lo.x) * inv));
        const int fy = std::min(ny * SPLIT - 1, static_cast<int>((p.y - lo.y) * inv));
        const int fz = std::min(nz * SPLIT - 1, static_cast<int>((p.z - lo.z) * inv));
        const std::size_t cell = (static_cast<std::size_t>(fz / SPLIT) * ny + fy / SPLIT) * nx + fx / SPLIT;
        const std::size_t sub =
            (static_cast<std::size_t>(fz % SPLIT) * SPLIT + fy % SPLIT) * SPLIT + fx % SPLIT;
        const std::uint32_t key = static_cast<std::uint32_t>(cell * SUBCELLS + sub);
        keyOf[i] = key;
        ++start[key + 1];
    }
    for (std::size_t k = 0; k < total * SUBCELLS; ++k) {
        start[k + 1] += start[k];
    }
    std::vector<PointCloud::Point> sorted(points.size());
    {
        std::vector<std::uint32_t> next(start.begin(), start.end() - 1);
        for (std::size_t i = 0; i < points.size(); ++i) {
            sorted[next[keyOf[i]]++] = points[i];
        }
    }
    points.swap(sorted);
    sorted = {};
    keyOf = {};

    const float inf = std::numeric_limits<float>::infinity();
    const double subEdge = edge / SPLIT;
    for (std::size_t c = 0; c < total; ++c) {
        const std::uint32_t begin = start[c * SUBCELLS];
        const std::uint32_t end = start[(c + 1) * SUBCELLS];
        if (begin == end) {
            continue;
        }
        // Scans are surfaces: the points of a sub-cell share about one sub-cell face of surface, so their
        // spacing is the root of the area each has. Estimated per sub-cell, a sparse wall in front of a
        // dense object keeps its own spacing.
        const auto firstRun = static_cast<std::uint32_t>(runs_.size());
        for (std::size_t k = c * SUBCELLS; k < (c + 1) * SUBCELLS; ++k) {
            if (start[k + 1] > start[k]) {
                const auto spacing =
                    static_cast<float>(subEdge / std::sqrt(static_cast<double>(start[k + 1] - start[k])));
                runs_.push_back({start[k], start[k + 1], spacing});
            }
        }
        // A sub-cell that holds only a few points is a stray point, a thin part or the edge of a surface,
        // not a sparse surface: its points get the spacing of the cell's surfaces, and no run's spacing
        // goes past twice that, so that nothing turns into a block.
        std::vector<float> inCell;
        for (std::uint32_t r = firstRun; r < runs_.size(); ++r) {
            if (runs_[r].end - runs_[r].begin >= MIN_RUN) {
                inCell.push_back(runs_[r].spacing);
            }
        }
        // A cell without any surface (stray points only) is settled below, from the whole cloud.
        const float cellSpacing = inCell.empty() ? UNKNOWN : medianOf(inCell);
        for (std::uint32_t r = firstRun; r < runs_.size(); ++r) {
            Run& run = runs_[r];
            run.spacing =
                run.end - run.begin < MIN_RUN ? cellSpacing : std::min(run.spacing, 2.0f * cellSpacing);
        }
        Cell cell{{inf, inf, inf}, {-inf, -inf, -inf},
                  begin,           end,
                  firstRun,        static_cast<std::uint32_t>(runs_.size())};
        for (std::uint32_t i = cell.begin; i < cell.end; ++i) {
            const PointCloud::Point& p = points[i];
            cell.min = {std::min(cell.min.x, p.x), std::min(cell.min.y, p.y), std::min(cell.min.z, p.z)};
            cell.max = {std::max(cell.max.x, p.x), std::max(cell.max.y, p.y), std::max(cell.max.z, p.z)};
        }
        cells_.push_back(cell);
    }
    // Nor does any part of the cloud get footprints far beyond its typical spacing: isolated points in a
    // large, mostly empty cell would otherwise carry the whole cell's size.
    std::vector<float> spacings;
    spacings.reserve(runs_.size());
    for (const Run& run : runs_) {
        if (run.spacing != UNKNOWN) {
            spacings.push_back(run.spacing);
        }
    }
    medianSpacing = spacings.empty() ? static_cast<float>(subEdge) : medianOf(spacings);
    for (Run& run : runs_) {
        run.spacing = run.spacing == UNKNOWN ? medianSpacing : std::min(run.spacing, 4.0f * medianSpacing);
    }
}

void VisibilityQuery::query(float horizontalFov, unsigned short width, unsigned short height, float nearZ,
                            float farZ, const Ko_1_1::Vec3d<double>& position,
                            const Ko_1_1::Vec3d<double>& up, const Ko_1_1::Vec3d<double>& back,
                            std::vector<VR::Point3dRGBA>& out) const {
    if (width == 0 || height == 0 || !(horizontalFov > 0.0f) || !(horizontalFov < 3.1f) || !(nearZ > 0.0f) ||
        !(farZ > nearZ) || cells_.empty()) {
        return;
    }
    // An orthonormal camera frame even when the axes given are slightly off.
    Vec3 b = back;
    if (!b.normalize()) {
        return;
    }
    Vec3 u = up - b * b.dot(up);
    if (!u.normalize()) {
        u = std::fabs(b.z) < 0.9 ? Vec3{0, 0, 1} - b * b.z : Vec3{0, 1, 0} - b * b.y;
        u.normalize();
    }
    const Vec3 r = u.cross(b);
    const Vec3 origin = cloud_.origin();
    const Vec3 eye = position - origin;
    const Vec3f R{static_cast<float>(r.x), static_cast<float>(r.y), static_cast<float>(r.z)};
    const Vec3f U{static_cast<float>(u.x), static_cast<float>(u.y), static_cast<float>(u.z)};
    const Vec3f B{static_cast<float>(b.x), static_cast<float>(b.y), static_cast<float>(b.z)};
    const Vec3f C{static_cast<float>(eye.x), static_cast<float>(eye.y), static_cast<float>(eye.z)};

    const double tanH = std::tan(0.5 * horizontalFov);
    const double tanV = tanH * height / width;
    // Frustum planes in the cloud's frame, from camera-frame normals (x - tanH * z >= 0 and so on).
    auto plane = [&](double nx, double ny, double nz, double offset) {
        const Vec3 n = r * nx + u * ny + b * nz;
        return Plane{{static_cast<float>(n.x), static_cast<float>(n.y), static_cast<float>(n.z)},
                     static_cast<float>(offset - n.dot(eye))};
    };
    const Plane planes[6] = {plane(1, 0, -tanH, 0),  plane(-1, 0, -tanH, 0),  plane(0, 1, -tanV, 0),
                             plane(0, -1, -tanV, 0), plane(0, 0, -1, -nearZ), plane(0, 0, 1, farZ)};

    const std::size_t pixels = static_cast<std::size_t>(width) * height;
    thread_local std::vector<std::uint64_t> nearest;
    nearest.assign(pixels, std::numeric_limits<std::uint64_t>::max());

    // Pixels are square: one focal length in pixels for both axes.
    const float focal = static_cast<float>(width / (2.0 * tanH));
    const float halfW = 0.5f * width;
    const float halfH = 0.5f * height;
    const float fw = static_cast<float>(width);
    const float fh = static_cast<float>(height);
    const PointCloud::Point* points = cloud_.points().data();
    const float maxReach = std::clamp(MAX_REACH_ANGLE * focal, 1.0f, static_cast<float>(MAX_REACH));
    const bool useFootprints = footprints.load();

    for (const Cell& cell : cells_) {
        bool visible = true;
        for (const Plane& p : planes) {
            if (!boxTouches(p, cell.min, cell.max)) {
                visible = false;
                break;
            }
        }
        if (!visible) {
            continue;
        }
        for (std::uint32_t r = cell.firstRun; r < cell.endRun; ++r) {
            const Run& run = runs_[r];
            const float footprintScale = useFootprints ? FOOTPRINT * run.spacing : 0.0f;
            for (std::uint32_t i = run.begin; i < run.end; ++i) {
                const float dx = points[i].x - C.x;
                const float dy = points[i].y - C.y;
                const float dz = points[i].z - C.z;
                const float depth = -(dx * B.x + dy * B.y + dz * B.z);
                if (!(depth >= nearZ && depth <= farZ)) {
                    continue;
                }
                const float scale = focal / depth;
                const float px = (dx * R.x + dy * R.y + dz * R.z) * scale + halfW;
                const float py = (dx * U.x + dy * U.y + dz * U.z) * scale + halfH;
                if (!(px >= 0.0f && px < fw && py >= 0.0f && py < fh)) {
                    continue;
                }
                // Positive floats order like their bit patterns, so depth and index make one comparable key;
                // equal depths keep the lower index, which makes the answer deterministic.
                const std::uint64_t key = (static_cast<std::uint64_t>(floatBits(depth)) << 32) | i;
                const int cx = static_cast<int>(px);
                const int cy = static_cast<int>(py);
                // Half the footprint's side in pixels: 0 while the neighbours fall on the point's own pixel.
                // Limited in float first: a point at the near plane can ask for more than an int holds.
                const int reach = static_cast<int>(std::min(maxReach, footprintScale * scale + 0.5f));
                const int x0 = std::max(0, cx - reach);
                const int x1 = std::min(static_cast<int>(width) - 1, cx + reach);
                const int y0 = std::max(0, cy - reach);
                const int y1 = std::min(static_cast<int>(height) - 1, cy + reach);
                // A disc rather than a square: sparse scans seen up close read as round samples, not blocks,
                // and neighbours a spacing apart still overlap (0.9 of it is well beyond half a diagonal,
                // also with a footprint centred on its point's pixel).
                const int radius2 = reach * reach + reach;
                for (int y = y0; y <= y1; ++y) {
                    std::uint64_t* line = nearest.data() + static_cast<std::size_t>(y) * width;
                    const int dy2 = (y - cy) * (y - cy);
                    for (int x = x0; x <= x1; ++x) {
                        if ((x - cx) * (x - cx) + dy2 <= radius2) {
                            line[x] = std::min(line[x], key);
                        }
                    }
                }
            }
        }
    }

    for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
        const std::uint64_t key = nearest[pixel];
        if (key == std::numeric_limits<std::uint64_t>::max()) {
            continue;
        }
        const PointCloud::Point& p = points[static_cast<std::uint32_t>(key)];
        const float dx = p.x - C.x;
        const float dy = p.y - C.y;
        const float dz = p.z - C.z;
        const float x = dx * R.x + dy * R.y + dz * R.z;
        const float y = dx * U.x + dy * U.y + dz * U.z;
        const float z = dx * B.x + dy * B.y + dz * B.z;
        const auto column = static_cast<int>(pixel % width);
        const auto row = static_cast<int>(pixel / width);
        const float scale = focal / -z;
        if (static_cast<int>(x * scale + halfW) == column && static_cast<int>(y * scale + halfH) == row) {
            out.push_back({x, y, z, p.r, p.g, p.b, 255});
        } else {
            // A pixel of the point's footprint: the footprint's depth seen through the pixel's centre.
            out.push_back({(static_cast<float>(column) + 0.5f - halfW) / scale,
                           (static_cast<float>(row) + 0.5f - halfH) / scale, z, p.r, p.g, p.b, 255});
        }
    }
}

Ko_1_1::Vec3d<double> VisibilityQuery::startPosition() const {
    if (cloud_.empty()) {
        return cloud_.origin();
    }
    Vec3 min, max;
    cloud_.worldBounds(min, max);
    // The floor is the height below which only a sliver of the points lies, so that stray points under
    // the floor (multipath, noise) do not sink the user.
    constexpr int BINS = 1024;
    std::vector<std::size_t> histogram(BINS, 0);
    const double lo = min.z - cloud_.origin().z;
    const double range = std::max(max.z - min.z, 1e-6);
    for (const PointCloud::Point& p : cloud_.points()) {
        const int bin = std::clamp(static_cast<int>((p.z - lo) / range * BINS), 0, BINS - 1);
        ++histogram[bin];
    }
    const std::size_t limit = cloud_.size() / 100;
    std::size_t below = 0;
    int bin = 0;
    while (bin < BINS - 1 && below + histogram[bin] <= limit) {
        below += histogram[bin];
        ++bin;
    }
    const double floor = min.z + range * bin / BINS;
    const double cx = 0.5 * (min.x + max.x);
    const double cy = 0.5 * (min.y + max.y);
    const double extent = std::max(max.x - min.x, max.y - min.y);
    if (extent <= ROOM_EXTENT) {
        return {cx, cy, floor};
    }
    // Outside a large scan, a little in front of its southern edge, where the whole of it lies ahead.
    return {cx, min.y - 0.05 * (max.y - min.y), floor};
}

} // namespace Demo
