#include "examples/VisibilityQuery.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "examples/Parallel.h"

namespace Demo {
namespace {

using Vec3f = Ko_1_1::Vec3d<float>;
using Vec3 = Ko_1_1::Vec3d<double>;
using Cell = PointIndex::Cell;

// A footprint reaches this share of the local spacing to either side of its point, so that neighbouring
// footprints overlap and close the gaps that a scan's irregular sampling leaves.
constexpr float FOOTPRINT = 0.9f;
// Footprints stop growing here (a 33-pixel square): a point so close is better shown large than not at all,
// but a cloud that sparse has no surface worth closing.
constexpr int MAX_REACH = 16;
// Nor does a footprint reach further than this angle (radians) from its point, whatever the query's
// resolution: at the periphery's coarse pixels a few pixels are already a large part of the view.
constexpr float MAX_REACH_ANGLE = 0.03f;
// Bands of image rows per thread.
constexpr unsigned BANDS_PER_THREAD = 3;
// Pixels ahead whose winning point is fetched early.
constexpr int PREFETCH = 8;
constexpr float MIN_FACING = PointIndex::MIN_FACING;
// A footprint lies behind its surface by this many standard deviations of the scanner's noise; by this share
// of its radius besides the fall of the surface where the noise is not known.
constexpr float NOISE_DEVIATIONS = 1.5f;
constexpr float UNKNOWN_NOISE = 0.5f;
constexpr std::uint64_t NOTHING = std::numeric_limits<std::uint64_t>::max();

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

// A pixel's claim: positive floats order like their bit patterns, so depth and point make one comparable
// key, the nearest winning; equal depths keep the lower index, which makes the answer deterministic. The
// depth's last bit tells a point on its own pixel (0) from its footprint around it (1): the former wins a
// tie, and the answer knows which it gives without projecting again.
constexpr std::uint64_t FOOTPRINT_BIT = std::uint64_t(1) << 32;

std::uint64_t ownKey(float depth, std::uint32_t point) {
    return ((static_cast<std::uint64_t>(floatBits(depth)) << 32) & ~FOOTPRINT_BIT) | point;
}

std::uint64_t footprintKey(float depth, std::uint32_t point) {
    return (static_cast<std::uint64_t>(floatBits(depth)) << 32) | FOOTPRINT_BIT | point;
}

bool isOwn(std::uint64_t key) {
    return (key & FOOTPRINT_BIT) == 0;
}

// The camera in the cloud's frame: position, right, up and back axes, and the pinhole's pixels.
struct Camera {
    Vec3f eye, right, up, back;
    float focal; // pixels per unit at unit depth, on both axes: pixels are square
    float halfW, halfH;
    int width, height;
    float nearZ, farZ;

    float depthOf(const Vec3f& p) const { return -(p - eye).dot(back); }
};

// A visible cell and how much of it a query reads: its first `count` points, standing `levelScale` times
// their own spacing apart, which may touch image rows [top, bottom] and columns [left, right].
struct Visible {
    const Cell* cell;
    std::uint32_t count;
    float levelScale;
    // Where the cell's points lie on one plane their footprints follow it, its depth changing across them:
    // the plane's normal, and its components along the camera's right and up axes.
    bool tilted;
    Vec3f normal;
    float normalRight;
    float normalUp;
    // How far behind the surface a footprint lies: a distance, and a share of its radius.
    float behind;
    float behindPerRadius;
    int top;
    int bottom;
    int left;
    int right;
    // Nothing the cell's points claim has a smaller key: where every pixel it may touch holds a smaller
    // one already, the cell is hidden.
    std::uint64_t claimsFrom;
    float nearest; // depth of its nearest corner
    double work;
};

struct Scratch {
    std::vector<std::uint64_t> nearest;
    std::vector<Visible> visible;
    std::vector<double> rowWork;
    std::vector<int> bandStart;
    // Where each band's answers start in the result, and the end.
    std::vector<std::size_t> claimed;
};

// The rows and columns a box's points can reach with footprints up to `reach` pixels; all of the image where
// part of the box lies behind the near plane, whose projection has no bound.
void extentOf(const Camera& camera, const Cell& cell, int reach, Visible& v) {
    v.top = 0;
    v.bottom = camera.height - 1;
    v.left = 0;
    v.right = camera.width - 1;
    float low = std::numeric_limits<float>::infinity(), high = -low;
    float leftmost = low, rightmost = high;
    for (int corner = 0; corner < 8; ++corner) {
        const Vec3f p{corner & 1 ? cell.max.x : cell.min.x, corner & 2 ? cell.max.y : cell.min.y,
                      corner & 4 ? cell.max.z : cell.min.z};
        const float depth = camera.depthOf(p);
        if (!(depth >= camera.nearZ)) {
            return;
        }
        const float perUnit = camera.focal / depth;
        const float x = (p - camera.eye).dot(camera.right) * perUnit + camera.halfW;
        const float y = (p - camera.eye).dot(camera.up) * perUnit + camera.halfH;
        low = std::min(low, y);
        high = std::max(high, y);
        leftmost = std::min(leftmost, x);
        rightmost = std::max(rightmost, x);
    }
    // Limited in float first: a corner just beyond the near plane projects far outside any int. One pixel
    // more either side for rounding.
    auto pixel = [](float at, int size) {
        return static_cast<int>(std::clamp(std::floor(at), -1.0f, static_cast<float>(size)));
    };
    v.top = std::max(v.top, pixel(low, camera.height) - reach - 1);
    v.bottom = std::min(v.bottom, pixel(high, camera.height) + reach + 1);
    v.left = std::max(v.left, pixel(leftmost, camera.width) - reach - 1);
    v.right = std::min(v.right, pixel(rightmost, camera.width) + reach + 1);
}

// Splits rows [0, height) into `count` bands of about equal work; band b is [start[b], start[b + 1]).
void splitRows(const std::vector<Visible>& visible, int height, unsigned count, Scratch& scratch) {
    std::vector<double>& rows = scratch.rowWork;
    rows.assign(static_cast<std::size_t>(height) + 1, 0.0);
    double total = 0.0;
    for (const Visible& v : visible) {
        if (v.top <= v.bottom) {
            const double share = v.work / (v.bottom - v.top + 1);
            rows[v.top] += share;
            rows[v.bottom + 1] -= share;
            total += v.work;
        }
    }
    std::vector<int>& start = scratch.bandStart;
    start.assign(count + 1, height);
    start[0] = 0;
    double running = 0.0, perRow = 0.0;
    unsigned band = 1;
    for (int row = 0; row < height && band < count; ++row) {
        perRow += rows[row];
        running += perRow;
        // A band ends after this row once it has its share, or where the bands left need the rows left.
        const bool hasShare = running >= total * band / count;
        const bool rowsRunOut = height - (row + 1) <= static_cast<int>(count - band);
        if (hasShare || rowsRunOut) {
            start[band] = row + 1;
            ++band;
        }
    }
}

// Half the width of each row of a footprint disc of each reach: the pixels whose squared distance from the
// centre is at most reach * (reach + 1).
struct Discs {
    std::uint8_t halfWidths[MAX_REACH + 1][MAX_REACH + 1];

    Discs() {
        for (int reach = 0; reach <= MAX_REACH; ++reach) {
            for (int dy = 0; dy <= MAX_REACH; ++dy) {
                int half = -1;
                while (half < reach && (half + 1) * (half + 1) + dy * dy <= reach * reach + reach) {
                    ++half;
                }
                halfWidths[reach][dy] = static_cast<std::uint8_t>(std::max(half, 0));
            }
        }
    }
};

class BandRenderer {
public:
    BandRenderer(const Camera& camera, const PointCloud::Point* points, const PointIndex& index,
                 std::uint64_t* nearest, float footprint, float maxReach)
        : camera_(camera), points_(points), index_(index), nearest_(nearest), footprint_(footprint),
          maxReach_(maxReach) {}

    // Lets the visible cells' points, nearest first, claim the pixels of rows [top, bottom); returns how many
    // were claimed. Now and then it notes the farthest claim in each square of pixels, and passes over the
    // cells that lie wholly behind what their squares show already.
    std::size_t claim(const std::vector<Visible>& visible, int top, int bottom) {
        const std::size_t width = static_cast<std::size_t>(camera_.width);
        std::fill(nearest_ + top * width, nearest_ + bottom * width, NOTHING);
        double total = 0.0;
        for (const Visible& v : visible) {
            total += v.top < bottom && v.bottom >= top ? v.work : 0.0;
        }
        top_ = top;
        bottom_ = bottom;
        columns_ = (camera_.width + SQUARE - 1) / SQUARE;
        farthest_.assign(static_cast<std::size_t>(columns_) * ((bottom - top + SQUARE - 1) / SQUARE),
                         NOTHING);
        double done = 0.0;
        int notes = 0;
        for (const Visible& v : visible) {
            if (v.top >= bottom || v.bottom < top) {
                continue;
            }
            if (notes > 0 && hidden(v)) {
                continue;
            }
            splat(v, top, bottom);
            done += v.work;
            if (notes < NOTES && done >= total * (notes + 1) / (NOTES + 1)) {
                noteFarthest();
                ++notes;
            }
        }
        return static_cast<std::size_t>(
            width * (bottom - top) - std::count(nearest_ + top * width, nearest_ + bottom * width, NOTHING));
    }

    // Answers the claimed pixels of rows [top, bottom) in order.
    void answer(int top, int bottom, VR::Point3dRGBA* out) const {
        for (int row = top; row < bottom; ++row) {
            out = answerRow(row, out);
        }
    }

private:
    bool hidden(const Visible& v) const {
        const int firstRow = (std::max(v.top, top_) - top_) / SQUARE;
        const int lastRow = (std::min(v.bottom, bottom_ - 1) - top_) / SQUARE;
        for (int row = firstRow; row <= lastRow; ++row) {
            const std::uint64_t* squares = farthest_.data() + static_cast<std::size_t>(row) * columns_;
            for (int column = v.left / SQUARE; column <= v.right / SQUARE; ++column) {
                if (squares[column] >= v.claimsFrom) {
                    return false;
                }
            }
        }
        return true;
    }

    void noteFarthest() {
        const std::size_t width = static_cast<std::size_t>(camera_.width);
        std::fill(farthest_.begin(), farthest_.end(), 0);
        for (int y = top_; y < bottom_; ++y) {
            const std::uint64_t* line = nearest_ + static_cast<std::size_t>(y) * width;
            std::uint64_t* squares =
                farthest_.data() + static_cast<std::size_t>((y - top_) / SQUARE) * columns_;
            for (int x = 0; x < camera_.width; ++x) {
                squares[x / SQUARE] = std::max(squares[x / SQUARE], line[x]);
            }
        }
    }

    void splat(const Visible& v, int top, int bottom) {
        const Camera& c = camera_;
        const float* spacings = index_.spacings().data() + v.cell->spacingBase;
        const std::uint8_t* parts = index_.parts();
        const float scale = footprint_ * v.levelScale;
        const float fw = static_cast<float>(c.width), fh = static_cast<float>(c.height);
        const std::size_t width = static_cast<std::size_t>(c.width);
        const std::uint32_t end = v.cell->begin + v.count;
        for (std::uint32_t i = v.cell->begin; i < end; ++i) {
            const PointCloud::Point& p = points_[i];
            const float dx = p.x - c.eye.x;
            const float dy = p.y - c.eye.y;
            const float dz = p.z - c.eye.z;
            const float depth = -(dx * c.back.x + dy * c.back.y + dz * c.back.z);
            if (!(depth >= c.nearZ && depth <= c.farZ)) {
                continue;
            }
            const float perUnit = c.focal / depth;
            const float px = (dx * c.right.x + dy * c.right.y + dz * c.right.z) * perUnit + c.halfW;
            const float py = (dx * c.up.x + dy * c.up.y + dz * c.up.z) * perUnit + c.halfH;
            if (!(px >= 0.0f && px < fw && py >= 0.0f && py < fh)) {
                continue;
            }
            const int cx = static_cast<int>(px);
            const int cy = static_cast<int>(py);
            const std::uint64_t key = ownKey(depth, i);
            // Half the footprint's side in pixels: 0 while the neighbours fall on the point's own pixel.
            // Limited in float first: a point at the near plane can ask for more than an int holds.
            const int reach =
                static_cast<int>(std::min(maxReach_, scale * spacings[parts[i]] * perUnit + 0.5f));
            std::uint64_t* const centre = nearest_ + static_cast<std::size_t>(cy) * width + cx;
            const bool centreInBand = cy >= top && cy < bottom;
            if (reach == 0) {
                if (centreInBand) {
                    *centre = std::min(*centre, key);
                }
                continue;
            }
            // Around its own pixel a point stands back: where neighbours on one surface meet, each pixel
            // shows the point that fell in it, and footprints fill only what none did. A footprint still
            // hides whatever lies further behind.
            const float radius = scale * spacings[parts[i]];
            float alongX = 0.0f, alongY = 0.0f; // depth change per pixel
            if (v.tilted) {
                // The plane through the point meets pixel (u, v)'s ray at depth s / (n . ray(u, v)); its
                // change per pixel at the point is -depth^2 n / (focal s).
                const float toPlane = dx * v.normal.x + dy * v.normal.y + dz * v.normal.z;
                const float s = std::copysign(std::max(std::fabs(toPlane), MIN_FACING * depth), toPlane);
                const float change = -depth * depth / (c.focal * s);
                alongX = change * v.normalRight;
                alongY = change * v.normalUp;
            }
            const float first = depth + v.behind + radius * v.behindPerRadius +
                                alongX * (static_cast<float>(cx) + 0.5f - px) +
                                alongY * (static_cast<float>(cy) + 0.5f - py);
            // Most points, those of every level that fills its pixels, cover three by three pixels.
            if (reach == 1 && cx > 0 && cx + 1 < c.width && cy > top && cy + 1 < bottom) {
                std::uint64_t* line = centre - width - 1;
                for (int row = -1; row <= 1; ++row, line += width) {
                    const float rowDepth = first + alongY * static_cast<float>(row);
                    line[0] = std::min(line[0], footprintKey(rowDepth - alongX, i));
                    line[1] = std::min(line[1], footprintKey(rowDepth, i));
                    line[2] = std::min(line[2], footprintKey(rowDepth + alongX, i));
                }
                *centre = std::min(*centre, key);
                continue;
            }
            const int y0 = std::max(top, cy - reach);
            const int y1 = std::min(bottom - 1, cy + reach);
            const int x0 = std::max(0, cx - reach);
            const int x1 = std::min(c.width - 1, cx + reach);
            // A disc rather than a square: sparse scans seen up close read as round samples, not blocks,
            // and neighbours a spacing apart still overlap (0.9 of it is well beyond half a diagonal,
            // also with a footprint centred on its point's pixel).
            const std::uint8_t* halfWidths = DISCS.halfWidths[reach];
            for (int y = y0; y <= y1; ++y) {
                std::uint64_t* line = nearest_ + static_cast<std::size_t>(y) * width;
                const int half = halfWidths[y > cy ? y - cy : cy - y];
                const int xEnd = std::min(x1, cx + half);
                const int xBegin = std::max(x0, cx - half);
                // Computed alike for every band, so that where bands meet they agree to the last bit.
                const float rowDepth = first + alongY * static_cast<float>(y - cy);
                for (int x = xBegin; x <= xEnd; ++x) {
                    line[x] =
                        std::min(line[x], footprintKey(rowDepth + alongX * static_cast<float>(x - cx), i));
                }
            }
            if (centreInBand) {
                *centre = std::min(*centre, key);
            }
        }
    }

    VR::Point3dRGBA* answerRow(int row, VR::Point3dRGBA* out) const {
        const Camera& c = camera_;
        const std::uint64_t* line = nearest_ + static_cast<std::size_t>(row) * c.width;
        for (int column = 0; column < c.width; ++column) {
#if defined(__GNUC__)
            // The winners lie all over the cloud: fetching a few ahead overlaps their cache misses.
            if (column + PREFETCH < c.width && line[column + PREFETCH] != NOTHING) {
                __builtin_prefetch(points_ + static_cast<std::uint32_t>(line[column + PREFETCH]));
            }
#endif
            const std::uint64_t key = line[column];
            if (key == NOTHING) {
                continue;
            }
            const PointCloud::Point& p = points_[static_cast<std::uint32_t>(key)];
            const float dx = p.x - c.eye.x;
            const float dy = p.y - c.eye.y;
            const float dz = p.z - c.eye.z;
            const float z = dx * c.back.x + dy * c.back.y + dz * c.back.z;
            if (isOwn(key)) {
                *out++ = {dx * c.right.x + dy * c.right.y + dz * c.right.z,
                          dx * c.up.x + dy * c.up.y + dz * c.up.z,
                          z,
                          p.r,
                          p.g,
                          p.b,
                          255};
            } else {
                // A pixel of the point's footprint: the footprint's depth seen through the pixel's centre.
                const float perPixel = -z / c.focal;
                *out++ = {(static_cast<float>(column) + 0.5f - c.halfW) * perPixel,
                          (static_cast<float>(row) + 0.5f - c.halfH) * perPixel,
                          z,
                          p.r,
                          p.g,
                          p.b,
                          255};
            }
        }
        return out;
    }

    static const Discs DISCS;
    // Squares of pixels (this many a side) whose farthest claim is noted, and how often a band notes them.
    static constexpr int SQUARE = 16;
    static constexpr int NOTES = 2;
    const Camera& camera_;
    const PointCloud::Point* points_;
    const PointIndex& index_;
    std::uint64_t* nearest_;
    float footprint_;
    float maxReach_;
    int top_ = 0;
    int bottom_ = 0;
    int columns_ = 0;
    std::vector<std::uint64_t> farthest_;
};

const Discs BandRenderer::DISCS;

} // namespace

VisibilityQuery::VisibilityQuery(PointCloud cloud, std::function<void(double fraction)> progress)
    : cloud_(std::move(cloud)) {
    if (cloud_.size() >= std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("VisibilityQuery: a cloud holds at most 2^32 - 2 points");
    }
    index_ = PointIndex(cloud_.points(), progress);
}

void VisibilityQuery::query(float horizontalFov, unsigned short width, unsigned short height, float nearZ,
                            float farZ, const Ko_1_1::Vec3d<double>& position,
                            const Ko_1_1::Vec3d<double>& up, const Ko_1_1::Vec3d<double>& back,
                            std::vector<VR::Point3dRGBA>& out) const {
    if (width == 0 || height == 0 || !(horizontalFov > 0.0f) || !(horizontalFov < 3.1f) || !(nearZ > 0.0f) ||
        !(farZ > nearZ) || index_.cells().empty()) {
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
    const Vec3 eye = position - cloud_.origin();
    auto toFloat = [](const Vec3& v) {
        return Vec3f{static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
    };
    const double tanH = std::tan(0.5 * horizontalFov);
    const double tanV = tanH * height / width;
    const Camera camera{
        toFloat(eye), toFloat(r),    toFloat(u), toFloat(b), static_cast<float>(width / (2.0 * tanH)),
        0.5f * width, 0.5f * height, width,      height,     nearZ,
        farZ};
    // Frustum planes in the cloud's frame, from camera-frame normals (x - tanH * z >= 0 and so on).
    auto plane = [&](double nx, double ny, double nz, double offset) {
        const Vec3 n = r * nx + u * ny + b * nz;
        return Plane{toFloat(n), static_cast<float>(offset - n.dot(eye))};
    };
    const Plane planes[6] = {plane(1, 0, -tanH, 0),  plane(-1, 0, -tanH, 0),  plane(0, 1, -tanV, 0),
                             plane(0, -1, -tanV, 0), plane(0, 0, -1, -nearZ), plane(0, 0, 1, farZ)};

    const Mode mode = mode_.load();
    const float footprint = mode == Mode::Points ? 0.0f : FOOTPRINT;
    const float maxReach = std::clamp(MAX_REACH_ANGLE * camera.focal, 1.0f, static_cast<float>(MAX_REACH));

    // Named through a reference: inside the bands' threads the variable's name means their own copy.
    thread_local Scratch callerScratch;
    Scratch& scratch = callerScratch;
    std::vector<Visible>& visible = scratch.visible;
    visible.clear();
    for (const Cell& cell : index_.cells()) {
        bool inside = true;
        for (const Plane& p : planes) {
            if (!boxTouches(p, cell.min, cell.max)) {
                inside = false;
                break;
            }
        }
        if (!inside) {
            continue;
        }
        // The cell's points are read for its nearest corner, where they are seen largest.
        const Vec3f middle = (cell.min + cell.max) * 0.5f;
        const Vec3f half = (cell.max - cell.min) * 0.5f;
        const float reachOut = std::fabs(half.x * camera.back.x) + std::fabs(half.y * camera.back.y) +
                               std::fabs(half.z * camera.back.z);
        const float centreDepth = camera.depthOf(middle);
        const float nearest = std::max(centreDepth - reachOut, nearZ);
        const std::uint32_t all = cell.end - cell.begin;
        Vec3f direction = middle - camera.eye;
        direction.normalize();
        const std::uint32_t count = mode == Mode::Levels ? PointIndex::pointsFor(cell, nearest / camera.focal,
                                                                                 direction, -camera.back)
                                                         : all;
        // A plane's noise along its normal shows as more depth the more it slants; footprints of anything
        // else lie behind by as much as a 45 degree slope falls across them.
        const bool flat = cell.normal != Vec3f{};
        const float facing = std::max(std::fabs(cell.normal.dot(direction)), MIN_FACING);
        Visible v{&cell,
                  count,
                  std::sqrt(static_cast<float>(all) / static_cast<float>(count)),
                  flat,
                  cell.normal,
                  cell.normal.dot(camera.right),
                  cell.normal.dot(camera.up),
                  flat ? NOISE_DEVIATIONS * cell.thickness / facing : 0.0f,
                  flat ? 0.0f : 1.0f + UNKNOWN_NOISE,
                  0,
                  0,
                  0,
                  0,
                  0,
                  nearest,
                  0.0};
        // No point of the cell reaches further than this many pixels from its own.
        const int widest = static_cast<int>(
            std::min(maxReach, footprint * v.levelScale * cell.maxSpacing * camera.focal / nearest + 0.5f));
        extentOf(camera, cell, widest, v);
        // Rows are balanced by points read and pixels they cover.
        const float reach = std::min(maxReach, footprint * v.levelScale * cell.spacing * camera.focal /
                                                   std::max(centreDepth, nearZ));
        v.work = count * (1.0 + (2.0 * reach + 1.0) * (2.0 * reach + 1.0));
        // Its points lie no nearer than its nearest corner; footprints that follow a plane may reach nearer,
        // by at most their reach (and a pixel) times the most the plane's depth changes per pixel.
        if (centreDepth - reachOut > nearZ) {
            float nearestClaim = nearest;
            if (flat) {
                nearestClaim -= 1.5f * static_cast<float>(widest + 1) * (centreDepth + reachOut) /
                                (camera.focal * MIN_FACING);
            }
            // Less a little for the rounding of each point's own depth.
            nearestClaim *= 0.9999f;
            v.claimsFrom = nearestClaim > 0.0f ? ownKey(nearestClaim, 0) : 0;
        }
        visible.push_back(v);
    }
    // Nearest first, so that what they hide can be passed over.
    std::sort(visible.begin(), visible.end(), [](const Visible& a, const Visible& b) {
        return a.nearest < b.nearest || (a.nearest == b.nearest && a.cell < b.cell);
    });

    // A few bands a thread, taken in turn, so that a thread the system sets aside for a moment holds up
    // only the band it has.
    const unsigned threads = std::min<unsigned>(threads_.load() > 0 ? threads_.load() : coreCount(), height);
    const unsigned bands = std::min<unsigned>(threads * BANDS_PER_THREAD, height);
    splitRows(visible, height, bands, scratch);
    scratch.nearest.resize(static_cast<std::size_t>(width) * height);
    scratch.claimed.assign(bands + 1, 0);
    const PointCloud::Point* points = cloud_.points().data();
    auto rendererFor = [&]() {
        return BandRenderer(camera, points, index_, scratch.nearest.data(), footprint, maxReach);
    };
    const std::size_t before = out.size();
    std::atomic<unsigned> nextBand{0};
    runParallel(threads, [&](unsigned thread) {
        // Room for an answer in every pixel, made while the other threads claim.
        if (thread == 0) {
            out.resize(before + static_cast<std::size_t>(width) * height);
        }
        for (unsigned band = nextBand++; band < bands; band = nextBand++) {
            scratch.claimed[band + 1] =
                rendererFor().claim(visible, scratch.bandStart[band], scratch.bandStart[band + 1]);
        }
    });
    // Each band answers straight into its own stretch of the result.
    scratch.claimed[0] = before;
    for (unsigned band = 0; band < bands; ++band) {
        scratch.claimed[band + 1] += scratch.claimed[band];
    }
    nextBand = 0;
    runParallel(threads, [&](unsigned) {
        for (unsigned band = nextBand++; band < bands; band = nextBand++) {
            rendererFor().answer(scratch.bandStart[band], scratch.bandStart[band + 1],
                                 out.data() + scratch.claimed[band]);
        }
    });
    out.resize(scratch.claimed[bands]);
}

} // namespace Demo
