#include "examples/PointCloud.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Demo {

PointCloud::PointCloud(const Ko_1_1::Vec3d<double>& origin) : origin_(origin), originSet_(true) {}

void PointCloud::addWorld(double x, double y, double z, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    // A coordinate that is not a number, or too far out for the cloud's float storage, cannot be placed;
    // the point is left out rather than poisoning the bounds and the query's grid.
    constexpr double LIMIT = 1e30;
    if (!(std::fabs(x) < LIMIT && std::fabs(y) < LIMIT && std::fabs(z) < LIMIT)) {
        ++unplaceable_;
        return;
    }
    if (!originSet_) {
        origin_ = {std::floor(x), std::floor(y), std::floor(z)};
        originSet_ = true;
    }
    const double lx = x - origin_.x;
    const double ly = y - origin_.y;
    const double lz = z - origin_.z;
    if (!(std::fabs(lx) < LIMIT && std::fabs(ly) < LIMIT && std::fabs(lz) < LIMIT)) {
        ++unplaceable_;
        return;
    }
    points_.push_back({static_cast<float>(lx), static_cast<float>(ly), static_cast<float>(lz), r, g, b, 0});
}

void PointCloud::recentre() {
    if (points_.empty()) {
        return;
    }
    Ko_1_1::Vec3d<float> lo, hi;
    localBounds(lo, hi);
    // Whole-unit shifts keep the change exact for local values below 2^23 units.
    const Ko_1_1::Vec3d<double> shift{std::floor((static_cast<double>(lo.x) + hi.x) * 0.5),
                                      std::floor((static_cast<double>(lo.y) + hi.y) * 0.5),
                                      std::floor((static_cast<double>(lo.z) + hi.z) * 0.5)};
    if (shift == Ko_1_1::Vec3d<double>{}) {
        return;
    }
    for (Point& p : points_) {
        p.x = static_cast<float>(p.x - shift.x);
        p.y = static_cast<float>(p.y - shift.y);
        p.z = static_cast<float>(p.z - shift.z);
    }
    origin_ += shift;
}

void PointCloud::turnYUpToZUp() {
    origin_ = {origin_.x, -origin_.z, origin_.y};
    for (Point& p : points_) {
        const float y = p.y;
        p.y = -p.z;
        p.z = y;
    }
}

void PointCloud::colourByHeight() {
    if (points_.empty()) {
        return;
    }
    Ko_1_1::Vec3d<float> lo, hi;
    localBounds(lo, hi);
    const float range = std::max(hi.z - lo.z, 1e-6f);
    for (Point& p : points_) {
        // Blue low, through green, to red high: heights read at a glance in the headset.
        const float t = (p.z - lo.z) / range;
        const float r = std::clamp(2.0f * t - 0.5f, 0.0f, 1.0f);
        const float g = 1.0f - std::fabs(2.0f * t - 1.0f);
        const float b = std::clamp(1.5f - 2.0f * t, 0.0f, 1.0f);
        p.r = static_cast<std::uint8_t>(40.0f + 215.0f * r);
        p.g = static_cast<std::uint8_t>(40.0f + 215.0f * g);
        p.b = static_cast<std::uint8_t>(40.0f + 215.0f * b);
    }
}

void PointCloud::localBounds(Ko_1_1::Vec3d<float>& min, Ko_1_1::Vec3d<float>& max) const {
    if (points_.empty()) {
        min = max = {};
        return;
    }
    const float inf = std::numeric_limits<float>::infinity();
    min = {inf, inf, inf};
    max = {-inf, -inf, -inf};
    for (const Point& p : points_) {
        min.x = std::min(min.x, p.x);
        min.y = std::min(min.y, p.y);
        min.z = std::min(min.z, p.z);
        max.x = std::max(max.x, p.x);
        max.y = std::max(max.y, p.y);
        max.z = std::max(max.z, p.z);
    }
}

void PointCloud::worldBounds(Ko_1_1::Vec3d<double>& min, Ko_1_1::Vec3d<double>& max) const {
    Ko_1_1::Vec3d<float> lo, hi;
    localBounds(lo, hi);
    min = origin_ + Ko_1_1::Vec3d<double>{lo.x, lo.y, lo.z};
    max = origin_ + Ko_1_1::Vec3d<double>{hi.x, hi.y, hi.z};
}

} // namespace Demo
