#include "examples/PointIndex.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>

#include "examples/Parallel.h"

namespace Demo {
namespace {

using Vec3f = Ko_1_1::Vec3d<float>;
using Point = PointCloud::Point;
using Clock = std::chrono::steady_clock;

// Grid cells are sized for this many points on average, up to a count that keeps the grid's tables small and
// its cell numbers within 16 bits.
constexpr std::size_t POINTS_PER_GRID_CELL = 2048;
constexpr std::size_t MAX_GRID_CELLS = std::size_t(1) << 16;
// The spacing is estimated per part of a grid cell, 4 x 4 x 4 of them: a sparse wall in front of a dense
// object keeps its own spacing.
constexpr int SPLIT = 4;
constexpr int PARTS = SPLIT * SPLIT * SPLIT;
// Positions inside a grid cell are resolved to 1/1024 of its edge: ten octree levels below it.
constexpr int LEVELS = 10;
constexpr int FINE = 1 << LEVELS;
constexpr int PART_SHIFT = LEVELS - 2;
// Parts with fewer points say nothing about a surface's spacing.
constexpr std::uint32_t MIN_RUN = 4;
constexpr float UNKNOWN = -1.0f;
constexpr float EMPTY = 0.0f;
// A level's points stand this far apart on screen, in pixels: their footprints, reaching 0.9 of it, still
// cover three by three pixels and close the surface, and a pixel costs less than one point.
constexpr float LEVEL_SPACING = 1.15f;
constexpr auto REPORT_INTERVAL = std::chrono::milliseconds(250);
// Shares of the build's time, for the progress fractions.
constexpr double SORTED = 0.5;

float medianOf(std::vector<float>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Ten bits spread to every third bit, for Morton codes.
std::uint32_t spread(std::uint32_t v) {
    v &= 0x3ff;
    v = (v | (v << 16)) & 0x030000ffu;
    v = (v | (v << 8)) & 0x0300f00fu;
    v = (v | (v << 4)) & 0x030c30c3u;
    v = (v | (v << 2)) & 0x09249249u;
    return v;
}

std::uint32_t reverseBits(std::uint32_t v, int bits) {
    v = ((v >> 1) & 0x55555555u) | ((v & 0x55555555u) << 1);
    v = ((v >> 2) & 0x33333333u) | ((v & 0x33333333u) << 2);
    v = ((v >> 4) & 0x0f0f0f0fu) | ((v & 0x0f0f0f0fu) << 4);
    v = ((v >> 8) & 0x00ff00ffu) | ((v & 0x00ff00ffu) << 8);
    v = (v >> 16) | (v << 16);
    return bits == 0 ? 0 : v >> (32 - bits);
}

// Points at most this thick, as a share of their width (in variance), lie on a plane.
constexpr double FLAT = 0.2;

// The plane the points lie on, from their covariance (sums relative to a point of theirs): its normal and
// how far they stray from it; nothing where they do not lie on one.
void fitPlane(double n, const double sum[3], const double products[6], Vec3f& normal, float& thickness) {
    normal = {};
    thickness = 0.0f;
    double a[3][3];
    const int pair[3][3] = {{0, 1, 2}, {1, 3, 4}, {2, 4, 5}};
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            a[i][j] = products[pair[i][j]] / n - sum[i] * sum[j] / (n * n);
        }
    }
    // Eigenvalues of a symmetric 3 x 3 matrix in closed form.
    const double offDiagonal = a[0][1] * a[0][1] + a[0][2] * a[0][2] + a[1][2] * a[1][2];
    const double q = (a[0][0] + a[1][1] + a[2][2]) / 3.0;
    const double spread = (a[0][0] - q) * (a[0][0] - q) + (a[1][1] - q) * (a[1][1] - q) +
                          (a[2][2] - q) * (a[2][2] - q) + 2.0 * offDiagonal;
    if (!(spread > 0.0)) {
        return;
    }
    const double p = std::sqrt(spread / 6.0);
    double b[3][3];
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            b[i][j] = (a[i][j] - (i == j ? q : 0.0)) / p;
        }
    }
    const double det = b[0][0] * (b[1][1] * b[2][2] - b[1][2] * b[2][1]) -
                       b[0][1] * (b[1][0] * b[2][2] - b[1][2] * b[2][0]) +
                       b[0][2] * (b[1][0] * b[2][1] - b[1][1] * b[2][0]);
    const double phi = std::acos(std::clamp(det / 2.0, -1.0, 1.0)) / 3.0;
    const double largest = q + 2.0 * p * std::cos(phi);
    const double smallest = q + 2.0 * p * std::cos(phi + 2.0943951023931957);
    const double middle = 3.0 * q - largest - smallest;
    if (!(smallest <= FLAT * middle)) {
        return;
    }
    // The normal is orthogonal to every row of a - smallest: the longest cross product of two of them (in
    // units of the largest spread, whatever the cloud's units).
    const Ko_1_1::Vec3d<double> rows[3] = {
        Ko_1_1::Vec3d<double>{a[0][0] - smallest, a[0][1], a[0][2]} * (1.0 / largest),
        Ko_1_1::Vec3d<double>{a[1][0], a[1][1] - smallest, a[1][2]} * (1.0 / largest),
        Ko_1_1::Vec3d<double>{a[2][0], a[2][1], a[2][2] - smallest} * (1.0 / largest)};
    Ko_1_1::Vec3d<double> best;
    for (int i = 0; i < 3; ++i) {
        const Ko_1_1::Vec3d<double> c = rows[i].cross(rows[(i + 1) % 3]);
        if (c.dot(c) > best.dot(best)) {
            best = c;
        }
    }
    if (!best.normalize()) {
        return;
    }
    normal = {static_cast<float>(best.x), static_cast<float>(best.y), static_cast<float>(best.z)};
    thickness = static_cast<float>(std::sqrt(std::max(smallest, 0.0)));
}

// Sorts points [begin, end) by one byte of their cell numbers, moving the numbers along. In place, one cycle
// at a time: the cloud is most of the memory, and a sorted copy would double it.
void permuteByByte(Point* points, std::uint16_t* cells, std::size_t begin, std::size_t end, int shift) {
    std::uint32_t next[256];
    std::uint32_t limit[256];
    std::uint32_t counts[256] = {};
    for (std::size_t i = begin; i < end; ++i) {
        ++counts[(cells[i] >> shift) & 0xff];
    }
    std::uint32_t at = static_cast<std::uint32_t>(begin);
    for (int value = 0; value < 256; ++value) {
        next[value] = at;
        at += counts[value];
        limit[value] = at;
    }
    for (int value = 0; value < 256; ++value) {
        for (; next[value] < limit[value]; ++next[value]) {
            Point held = points[next[value]];
            std::uint16_t heldCell = cells[next[value]];
            int heldValue = (heldCell >> shift) & 0xff;
            while (heldValue != value) {
                const std::uint32_t j = next[heldValue]++;
                std::swap(held, points[j]);
                std::swap(heldCell, cells[j]);
                heldValue = (heldCell >> shift) & 0xff;
            }
            points[next[value]] = held;
            cells[next[value]] = heldCell;
        }
    }
}

// Passes fractions on to the caller's callback no more often than a few times a second.
class Reporter {
public:
    explicit Reporter(const std::function<void(double)>& callback)
        : callback_(callback), last_(Clock::now()) {}
    void operator()(double fraction) {
        if (callback_ && Clock::now() - last_ >= REPORT_INTERVAL) {
            last_ = Clock::now();
            callback_(std::clamp(fraction, 0.0, 1.0));
        }
    }

private:
    const std::function<void(double)>& callback_;
    Clock::time_point last_;
};

} // namespace

// Cubic cells over the cloud's bounding box, each resolved FINE times finer along every axis.
struct PointIndex::Grid {
    double lo[3];
    double edge;
    double inverse; // fine steps per unit
    int cells[3];

    explicit Grid(const std::vector<Point>& points) {
        const float inf = std::numeric_limits<float>::infinity();
        Vec3f min{inf, inf, inf}, max{-inf, -inf, -inf};
        for (const Point& p : points) {
            min = {std::min(min.x, p.x), std::min(min.y, p.y), std::min(min.z, p.z)};
            max = {std::max(max.x, p.x), std::max(max.y, p.y), std::max(max.z, p.z)};
        }
        lo[0] = min.x;
        lo[1] = min.y;
        lo[2] = min.z;
        const double extent[3] = {std::max(static_cast<double>(max.x) - min.x, 1e-3),
                                  std::max(static_cast<double>(max.y) - min.y, 1e-3),
                                  std::max(static_cast<double>(max.z) - min.z, 1e-3)};
        const double target = std::clamp(static_cast<double>(points.size()) / POINTS_PER_GRID_CELL, 1.0,
                                         static_cast<double>(MAX_GRID_CELLS));
        // Cubic cells sized for the target count; flat scans simply get fewer layers.
        edge = std::cbrt(extent[0] * extent[1] * extent[2] / target);
        for (;;) {
            for (int axis = 0; axis < 3; ++axis) {
                cells[axis] = std::max(1, static_cast<int>(std::ceil(extent[axis] / edge)));
            }
            if (static_cast<double>(cells[0]) * cells[1] * cells[2] <= static_cast<double>(MAX_GRID_CELLS)) {
                break;
            }
            edge *= 1.25;
        }
        inverse = FINE / edge;
    }

    std::size_t count() const { return static_cast<std::size_t>(cells[0]) * cells[1] * cells[2]; }

    void fine(const Point& p, int f[3]) const {
        const float v[3] = {p.x, p.y, p.z};
        for (int axis = 0; axis < 3; ++axis) {
            const double steps = (static_cast<double>(v[axis]) - lo[axis]) * inverse;
            f[axis] = std::clamp(static_cast<int>(steps), 0, cells[axis] * FINE - 1);
        }
    }

    std::uint16_t cellOf(const Point& p) const {
        int f[3];
        fine(p, f);
        return static_cast<std::uint16_t>(
            (static_cast<std::size_t>(f[2] >> LEVELS) * cells[1] + (f[1] >> LEVELS)) * cells[0] +
            (f[0] >> LEVELS));
    }
};

// Orders one grid cell: its points by Morton code, split into octants until each holds few enough, each of
// those in bit-reversed order of its Morton run. Consecutive points of a Morton run lie close together, so
// the points at every (n/k)th place of it, which a prefix of k bit-reversed places picks, cover the whole
// cell evenly at every scale.
class PointIndex::CellBuilder {
public:
    CellBuilder(std::vector<Point>& points, std::uint8_t* parts, const Grid& grid)
        : points_(points), parts_(parts), grid_(grid) {}

    void build(std::uint32_t begin, std::uint32_t end, float* spacings, std::uint32_t spacingBase,
               std::vector<Cell>& cells) {
        const std::uint32_t n = end - begin;
        std::array<std::uint32_t, PARTS> counts{};
        keys_.resize(n);
        for (std::uint32_t i = begin; i < end; ++i) {
            int f[3];
            grid_.fine(points_[i], f);
            const int x = f[0] & (FINE - 1), y = f[1] & (FINE - 1), z = f[2] & (FINE - 1);
            const int part = ((z >> PART_SHIFT) * SPLIT + (y >> PART_SHIFT)) * SPLIT + (x >> PART_SHIFT);
            parts_[i] = static_cast<std::uint8_t>(part);
            ++counts[part];
            const std::uint32_t code = spread(x) | spread(y) << 1 | spread(z) << 2;
            keys_[i - begin] = static_cast<std::uint64_t>(code) << 32 | (i - begin);
        }
        sortKeys();
        estimateSpacings(counts, spacings);

        ordered_.resize(n);
        orderedParts_.resize(n);
        split(0, n, 0, begin, spacingBase, cells);
        std::copy(ordered_.begin(), ordered_.end(), points_.begin() + begin);
        std::copy(orderedParts_.begin(), orderedParts_.end(), parts_ + begin);
    }

private:
    // By Morton code, ties in the points' order: ten bits at a time from the lowest for all but small cells.
    void sortKeys() {
        constexpr int DIGIT = 10;
        if (keys_.size() < (std::size_t(1) << DIGIT)) {
            std::sort(keys_.begin(), keys_.end());
            return;
        }
        sorted_.resize(keys_.size());
        for (int shift = 32; shift < 32 + 3 * LEVELS; shift += DIGIT) {
            std::array<std::uint32_t, (1 << DIGIT) + 1> starts{};
            for (const std::uint64_t key : keys_) {
                ++starts[((key >> shift) & ((1 << DIGIT) - 1)) + 1];
            }
            for (std::size_t d = 1; d < starts.size(); ++d) {
                starts[d] += starts[d - 1];
            }
            for (const std::uint64_t key : keys_) {
                sorted_[starts[(key >> shift) & ((1 << DIGIT) - 1)]++] = key;
            }
            keys_.swap(sorted_);
        }
    }

    // Scans are surfaces: the points of a part share about one part face of surface, so their spacing is the
    // root of the area each has.
    void estimateSpacings(const std::array<std::uint32_t, PARTS>& counts, float* spacings) const {
        const double partEdge = grid_.edge / SPLIT;
        std::vector<float> surfaces;
        for (int part = 0; part < PARTS; ++part) {
            spacings[part] =
                counts[part] == 0 ? EMPTY : static_cast<float>(partEdge / std::sqrt(double(counts[part])));
            if (counts[part] >= MIN_RUN) {
                surfaces.push_back(spacings[part]);
            }
        }
        // A part that holds only a few points is a stray point, a thin part or the edge of a surface, not a
        // sparse surface: its points get the spacing of the cell's surfaces, and no part's spacing goes past
        // twice that, so that nothing turns into a block. A cell without any surface is settled later, from
        // the whole cloud.
        const float cellSpacing = surfaces.empty() ? UNKNOWN : medianOf(surfaces);
        for (int part = 0; part < PARTS; ++part) {
            if (counts[part] > 0) {
                spacings[part] =
                    counts[part] < MIN_RUN ? cellSpacing : std::min(spacings[part], 2.0f * cellSpacing);
            }
        }
    }

    void split(std::uint32_t from, std::uint32_t to, int level, std::uint32_t begin,
               std::uint32_t spacingBase, std::vector<Cell>& cells) {
        if (to - from <= MAX_CELL_POINTS || level == LEVELS) {
            addCell(from, to, begin, spacingBase, cells);
            return;
        }
        const int shift = 32 + 3 * (LEVELS - 1 - level);
        std::uint32_t child = from;
        while (child < to) {
            const std::uint64_t octant = keys_[child] >> shift;
            std::uint32_t next = child + 1;
            while (next < to && keys_[next] >> shift == octant) {
                ++next;
            }
            split(child, next, level + 1, begin, spacingBase, cells);
            child = next;
        }
    }

    void addCell(std::uint32_t from, std::uint32_t to, std::uint32_t begin, std::uint32_t spacingBase,
                 std::vector<Cell>& cells) {
        const std::uint32_t n = to - from;
        int bits = 0;
        while ((std::uint64_t(1) << bits) < n) {
            ++bits;
        }
        const float inf = std::numeric_limits<float>::infinity();
        Cell cell{
            {inf, inf, inf}, {-inf, -inf, -inf}, begin + from, begin + to, spacingBase, 0.0f, 0.0f, {}, 0.0f};
        const Point& first = points_[begin + static_cast<std::uint32_t>(keys_[from])];
        double sum[3] = {}, products[6] = {};
        std::uint32_t place = from;
        for (std::uint32_t t = 0; t < (std::uint32_t(1) << bits); ++t) {
            const std::uint32_t j = reverseBits(t, bits);
            if (j >= n) {
                continue;
            }
            const std::uint32_t source = begin + static_cast<std::uint32_t>(keys_[from + j]);
            const Point& p = points_[source];
            ordered_[place] = p;
            orderedParts_[place] = parts_[source];
            ++place;
            cell.min = {std::min(cell.min.x, p.x), std::min(cell.min.y, p.y), std::min(cell.min.z, p.z)};
            cell.max = {std::max(cell.max.x, p.x), std::max(cell.max.y, p.y), std::max(cell.max.z, p.z)};
            const double d[3] = {static_cast<double>(p.x) - first.x, static_cast<double>(p.y) - first.y,
                                 static_cast<double>(p.z) - first.z};
            sum[0] += d[0];
            sum[1] += d[1];
            sum[2] += d[2];
            products[0] += d[0] * d[0];
            products[1] += d[0] * d[1];
            products[2] += d[0] * d[2];
            products[3] += d[1] * d[1];
            products[4] += d[1] * d[2];
            products[5] += d[2] * d[2];
        }
        fitPlane(n, sum, products, cell.normal, cell.thickness);
        cells.push_back(cell);
    }

    std::vector<Point>& points_;
    std::uint8_t* parts_;
    const Grid& grid_;
    std::vector<std::uint64_t> keys_;
    std::vector<std::uint64_t> sorted_;
    std::vector<Point> ordered_;
    std::vector<std::uint8_t> orderedParts_;
};

PointIndex::PointIndex(std::vector<Point>& points, const std::function<void(double)>& progress) {
    Reporter reporter(progress);
    const std::function<void(double)> report = [&reporter](double fraction) { reporter(fraction); };
    if (!points.empty()) {
        const Grid grid(points);
        const std::vector<std::uint32_t> start = sortIntoGrid(points, grid, report);
        buildCells(points, grid, start, report);
    }
    if (progress) {
        progress(1.0);
    }
}

std::vector<std::uint32_t> PointIndex::sortIntoGrid(std::vector<Point>& points, const Grid& grid,
                                                    const std::function<void(double)>& report) {
    const std::size_t total = grid.count();
    const double n = static_cast<double>(points.size());
    std::vector<std::uint16_t> cellOf(points.size());
    std::vector<std::uint32_t> start(total + 1, 0);
    for (std::size_t i = 0; i < points.size(); ++i) {
        cellOf[i] = grid.cellOf(points[i]);
        ++start[cellOf[i] + 1];
        if ((i & 0xffff) == 0) {
            report(0.3 * SORTED * static_cast<double>(i) / n);
        }
    }
    for (std::size_t c = 0; c < total; ++c) {
        start[c + 1] += start[c];
    }
    // High byte of the cell number first, then the low byte within each of those runs: 256 places being
    // filled at a time stay in the cache, where 65536 would not.
    permuteByByte(points.data(), cellOf.data(), 0, points.size(), 8);
    report(0.6 * SORTED);
    auto runStart = [&](std::size_t high) { return start[std::min(high << 8, total)]; };
    std::atomic<std::size_t> nextRun{0};
    std::atomic<std::size_t> done{0};
    runParallel(coreCount(), [&](unsigned worker) {
        for (std::size_t h = nextRun++; h < 256; h = nextRun++) {
            permuteByByte(points.data(), cellOf.data(), runStart(h), runStart(h + 1), 0);
            done += runStart(h + 1) - runStart(h);
            // Only the constructing thread talks to the caller.
            if (worker == 0) {
                report(SORTED * (0.6 + 0.4 * static_cast<double>(done.load()) / n));
            }
        }
    });
    return start;
}

void PointIndex::buildCells(std::vector<Point>& points, const Grid& grid,
                            const std::vector<std::uint32_t>& start,
                            const std::function<void(double)>& report) {
    std::vector<std::uint32_t> occupied;
    for (std::size_t c = 0; c + 1 < start.size(); ++c) {
        if (start[c + 1] > start[c]) {
            occupied.push_back(static_cast<std::uint32_t>(c));
        }
    }
    spacings_.assign(occupied.size() * PARTS, EMPTY);
    parts_.resize(points.size());

    const unsigned workers = coreCount();
    std::vector<std::vector<Cell>> found(workers);
    std::atomic<std::size_t> nextCell{0};
    std::atomic<std::size_t> done{0};
    const double n = static_cast<double>(points.size());
    runParallel(workers, [&](unsigned worker) {
        CellBuilder builder(points, parts_.data(), grid);
        for (std::size_t k = nextCell++; k < occupied.size(); k = nextCell++) {
            const std::uint32_t c = occupied[k];
            const auto base = static_cast<std::uint32_t>(k * PARTS);
            builder.build(start[c], start[c + 1], spacings_.data() + base, base, found[worker]);
            done += start[c + 1] - start[c];
            // Only the constructing thread talks to the caller.
            if (worker == 0) {
                report(SORTED + (1.0 - SORTED) * static_cast<double>(done.load()) / n);
            }
        }
    });
    for (std::vector<Cell>& cells : found) {
        cells_.insert(cells_.end(), cells.begin(), cells.end());
    }
    std::sort(cells_.begin(), cells_.end(), [](const Cell& a, const Cell& b) { return a.begin < b.begin; });

    // Nor does any part of the cloud get footprints far beyond its typical spacing: isolated points in a
    // large, mostly empty cell would otherwise carry the whole cell's size.
    std::vector<float> known;
    for (const float spacing : spacings_) {
        if (spacing != EMPTY && spacing != UNKNOWN) {
            known.push_back(spacing);
        }
    }
    typicalSpacing_ = known.empty() ? static_cast<float>(grid.edge / SPLIT) : medianOf(known);
    for (float& spacing : spacings_) {
        if (spacing != EMPTY) {
            spacing = spacing == UNKNOWN ? typicalSpacing_ : std::min(spacing, 4.0f * typicalSpacing_);
        }
    }

    // A cell's spacing is its median point's.
    for (Cell& cell : cells_) {
        std::array<std::uint32_t, PARTS> counts{};
        for (std::uint32_t i = cell.begin; i < cell.end; ++i) {
            ++counts[parts_[i]];
        }
        std::array<std::pair<float, std::uint32_t>, PARTS> bySpacing;
        for (int part = 0; part < PARTS; ++part) {
            bySpacing[part] = {spacings_[cell.spacingBase + part], counts[part]};
        }
        std::sort(bySpacing.begin(), bySpacing.end());
        std::uint32_t below = 0;
        for (const auto& [spacing, count] : bySpacing) {
            if (count > 0) {
                below += count;
                if (cell.spacing == 0.0f && 2 * below >= cell.end - cell.begin) {
                    cell.spacing = spacing;
                }
                cell.maxSpacing = spacing;
            }
        }
    }
}

std::uint32_t PointIndex::pointsFor(const Cell& cell, float pixelSize, const Vec3f& direction,
                                    const Vec3f& forward) {
    const std::uint32_t n = cell.end - cell.begin;
    // A pinhole's pixels shrink towards the edges of a wide view: a surface facing the eye there covers
    // 1 / cos of the angle off the axis times the pixels it would in the middle, one seen at a slant that
    // much times the cosine of its slant. Anything that is not one plane counts as facing the eye.
    const float offAxis = std::max(direction.dot(forward), MIN_FACING);
    const float facing =
        cell.normal == Vec3f{} ? 1.0f : std::max(std::fabs(cell.normal.dot(direction)), MIN_FACING);
    const double target = static_cast<double>(LEVEL_SPACING) * pixelSize * std::sqrt(offAxis / facing);
    if (!(cell.spacing < target)) {
        return n;
    }
    // Thinned k/n-fold, points stand sqrt(n/k) times as far apart.
    const double share = static_cast<double>(cell.spacing) / target;
    const double wanted = std::ceil(static_cast<double>(n) * share * share);
    return static_cast<std::uint32_t>(std::clamp(wanted, 1.0, static_cast<double>(n)));
}

} // namespace Demo
