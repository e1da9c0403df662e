#include "examples/StartView.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <vector>

namespace Demo {

namespace {

constexpr double PI = 3.14159265358979323846;
constexpr double LOW = 0.01;
constexpr double HIGH = 0.99;
// A room's floor is found in cells this wide; a standing user needs about that much.
constexpr double ROOM_CELL = 0.5;
// Floor points lie within FLOOR_BAND of the floor; a standing user needs nothing from KNEE to HEAD above it.
constexpr double FLOOR_BAND = 0.1;
constexpr double KNEE = 0.3;
constexpr double HEAD = 2.0;
// Outdoors a cell holds about this many sampled points, and open ground spreads less than OPEN_GROUND from
// its lowest points to most of the rest (no tree, wall or car on it).
constexpr std::size_t POINTS_PER_OUTDOOR_CELL = 16;
constexpr double OPEN_GROUND = 1.0;

double radians(double degrees) {
    return degrees * PI / 180.0;
}

// The q-quantile of values, which it reorders; values must not be empty.
double quantile(std::vector<float>& values, double q) {
    const auto k = static_cast<std::size_t>(q * static_cast<double>(values.size() - 1) + 0.5);
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(k), values.end());
    return values[k];
}

struct Extent {
    double lo = 0.0;
    double hi = 0.0;
    double size() const { return hi - lo; }
    double middle() const { return 0.5 * (lo + hi); }
};

// Square cells over the scan's horizontal extent, each with the heights of the sampled points above it. One
// cell is centred on the middle, so that a scan whose middle suits is entered exactly there.
class Columns {
public:
    Columns(const std::vector<PointCloud::Point>& sample, const Extent& x, const Extent& y, double size)
        : middleX(x.middle()), middleY(y.middle()), size(size), reachX(reach(x, size)),
          reachY(reach(y, size)), across(2 * reachX + 1),
          heights(static_cast<std::size_t>(across) * static_cast<std::size_t>(2 * reachY + 1)) {
        for (const PointCloud::Point& p : sample) {
            const long column = std::lround((p.x - middleX) / size) + reachX;
            const long row = std::lround((p.y - middleY) / size) + reachY;
            if (column >= 0 && column < across && row >= 0 && row <= 2 * reachY) {
                heights[static_cast<std::size_t>(row * across + column)].push_back(p.z);
            }
        }
    }

    // The centre of the cell nearest (x, y) whose heights suit; false when none does.
    template <typename Suits> bool nearest(double x, double y, Suits suits, double& cx, double& cy) {
        double best = -1.0;
        for (std::size_t i = 0; i < heights.size(); ++i) {
            const double px = middleX + static_cast<double>(static_cast<long>(i) % across - reachX) * size;
            const double py = middleY + static_cast<double>(static_cast<long>(i) / across - reachY) * size;
            const double d = (px - x) * (px - x) + (py - y) * (py - y);
            if ((best < 0.0 || d < best) && suits(heights[i])) {
                best = d;
                cx = px;
                cy = py;
            }
        }
        return best >= 0.0;
    }

private:
    static long reach(const Extent& e, double size) {
        return std::max(0L, std::lround(std::ceil(0.5 * e.size() / size - 0.5)));
    }

    double middleX;
    double middleY;
    double size;
    long reachX;
    long reachY;
    long across;
    std::vector<std::vector<float>> heights;
};

std::string format(const char* pattern, double a, double b, double c, double d) {
    char line[256];
    std::snprintf(line, sizeof(line), pattern, a, b, c, d);
    return line;
}

} // namespace

StartView::StartView(const PointCloud& cloud) : position_(cloud.origin()) {
    if (cloud.empty()) {
        description_ = "empty scan: standing at its origin";
        return;
    }
    const std::size_t stride = (cloud.size() + SAMPLE_LIMIT - 1) / SAMPLE_LIMIT;
    std::vector<PointCloud::Point> sample;
    sample.reserve(cloud.size() / stride + 1);
    for (std::size_t i = 0; i < cloud.size(); i += stride) {
        sample.push_back(cloud.points()[i]);
    }
    std::vector<float> values(sample.size());
    auto extentOf = [&sample, &values](float PointCloud::Point::*axis) {
        for (std::size_t i = 0; i < sample.size(); ++i) {
            values[i] = sample[i].*axis;
        }
        Extent e;
        e.lo = quantile(values, LOW);
        e.hi = quantile(values, HIGH);
        return e;
    };
    const Extent x = extentOf(&PointCloud::Point::x);
    const Extent y = extentOf(&PointCloud::Point::y);
    const Extent z = extentOf(&PointCloud::Point::z);
    const double wide = std::max(x.size(), y.size());
    const double narrow = std::min(x.size(), y.size());

    Ko_1_1::Vec3d<double> local;
    if (wide > OUTDOOR_EXTENT) {
        kind_ = Kind::Outdoor;
        // Bounded below by a thousandth of the width too, so that a long thin strip makes no million cells.
        const double cell = std::max({1.0, wide / 1000.0,
                                      std::sqrt(x.size() * y.size() /
                                                static_cast<double>(std::max<std::size_t>(
                                                    1, sample.size() / POINTS_PER_OUTDOOR_CELL)))});
        Columns columns(sample, x, y, cell);
        double ground = z.lo;
        auto open = [&ground](std::vector<float>& heights) {
            if (heights.size() < POINTS_PER_OUTDOOR_CELL / 2) {
                return false;
            }
            const double lowest = quantile(heights, 0.05);
            if (quantile(heights, 0.9) - lowest > OPEN_GROUND) {
                return false;
            }
            ground = lowest;
            return true;
        };
        // Suits is only asked about cells nearer than the best so far, so the ground kept is the chosen
        // cell's.
        double gx = x.middle();
        double gy = y.lo + 0.5 * cell;
        const bool found = columns.nearest(x.middle(), y.lo + 0.5 * cell, open, gx, gy);
        const double above = std::clamp(OVERLOOK_SHARE * y.size(), OVERLOOK_MIN, OVERLOOK_MAX);
        local = {gx, gy, ground + above};
        description_ =
            format(found ? "outdoor scan (%.0f x %.0f m, %.0f m high): overlooking it from %.0f m above "
                           "open ground at its south (-y) edge"
                         : "outdoor scan (%.0f x %.0f m, %.0f m high): overlooking it from %.0f m above "
                           "its lowest ground at its south (-y) edge (no open ground found)",
                   x.size(), y.size(), z.size(), above);
    } else if (z.size() < ROOM_MIN_HEIGHT || narrow < ROOM_MIN_WIDTH) {
        kind_ = Kind::Object;
        const double distance = std::max(MIN_VIEW_DISTANCE, 0.5 * std::max(x.size(), z.size()) /
                                                                std::tan(radians(0.5 * OBJECT_ANGLE)));
        const bool flat = z.size() < 0.5 * wide;
        const double eyes = flat
                                ? z.middle() + std::tan(radians(FLAT_LOOK_DOWN)) * (distance + 0.5 * y.size())
                                : z.middle() + 0.1 * z.size();
        local = {x.middle(), y.lo - distance, eyes - EYE_HEIGHT};
        description_ =
            format(flat ? "object (%.2f x %.2f m, %.2f m high): standing %.2f m in front of its -y side, "
                          "looking down on it"
                        : "object (%.2f x %.2f m, %.2f m high): standing %.2f m in front of its -y side, "
                          "eyes a little above its middle height",
                   x.size(), y.size(), z.size(), distance);
    } else {
        kind_ = Kind::Room;
        const double floor = z.lo;
        Columns columns(sample, x, y, ROOM_CELL);
        auto free = [floor](const std::vector<float>& heights) {
            std::size_t onFloor = 0;
            std::size_t blocking = 0;
            for (const float h : heights) {
                onFloor += std::fabs(h - floor) <= FLOOR_BAND ? 1 : 0;
                blocking += h - floor >= KNEE && h - floor <= HEAD ? 1 : 0;
            }
            // A stray point or two (noise, a passer-by) leaves a spot free.
            return onFloor > 0 && blocking * 50 <= onFloor;
        };
        double fx = x.middle();
        double fy = y.middle();
        const bool found = columns.nearest(x.middle(), y.middle(), free, fx, fy);
        local = {fx, fy, floor};
        description_ =
            format(found ? "room (%.2f x %.2f m, %.2f m high): on its floor (z = %.2f) at the free spot "
                           "nearest its middle"
                         : "room (%.2f x %.2f m, %.2f m high): on its floor (z = %.2f) in its middle "
                           "(no free floor found)",
                   x.size(), y.size(), z.size(), floor + cloud.origin().z);
    }
    position_ = cloud.origin() + local;
}

} // namespace Demo
