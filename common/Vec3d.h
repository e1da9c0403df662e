#pragma once

#include <cmath>
#include <type_traits>

namespace Ko_1_1 {

// Three contiguous components, shared with the host across the library boundary; its layout is fixed.
template <typename T> struct Vec3d {
    T x{};
    T y{};
    T z{};

    constexpr Vec3d() = default;
    constexpr Vec3d(T x_, T y_, T z_) : x(x_), y(y_), z(z_) {}

    constexpr Vec3d operator+(const Vec3d& o) const { return {x + o.x, y + o.y, z + o.z}; }
    constexpr Vec3d operator-(const Vec3d& o) const { return {x - o.x, y - o.y, z - o.z}; }
    constexpr Vec3d operator-() const { return {-x, -y, -z}; }
    constexpr Vec3d operator*(T s) const { return {x * s, y * s, z * s}; }
    Vec3d& operator+=(const Vec3d& o) {
        x += o.x;
        y += o.y;
        z += o.z;
        return *this;
    }
    Vec3d& operator-=(const Vec3d& o) {
        x -= o.x;
        y -= o.y;
        z -= o.z;
        return *this;
    }
    Vec3d& operator*=(T s) {
        x *= s;
        y *= s;
        z *= s;
        return *this;
    }
    constexpr bool operator==(const Vec3d& o) const { return x == o.x && y == o.y && z == o.z; }
    constexpr bool operator!=(const Vec3d& o) const { return !(*this == o); }

    constexpr T dot(const Vec3d& o) const { return x * o.x + y * o.y + z * o.z; }
    constexpr Vec3d cross(const Vec3d& o) const {
        return {y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x};
    }
    T length() const { return static_cast<T>(std::sqrt(dot(*this))); }

    // A vector whose squared length rounds to zero at 1e-16 resolution counts as zero: it becomes the
    // x axis and the call reports false, so callers always end up with a usable unit vector.
    bool normalize() {
        static_assert(std::is_floating_point<T>::value, "normalize needs a floating-point vector");
        const T s = x * x + y * y + z * z;
        if (s < static_cast<T>(0.001) && std::llround(static_cast<double>(s) * 1e16) == 0) {
            x = 1;
            y = 0;
            z = 0;
            return false;
        }
        const T inv = static_cast<T>(1) / std::sqrt(s);
        x *= inv;
        y *= inv;
        z *= inv;
        return true;
    }
};

template <typename T> constexpr Vec3d<T> operator*(T s, const Vec3d<T>& v) {
    return v * s;
}

static_assert(sizeof(Vec3d<float>) == 12, "Vec3d<float> is three packed floats");
static_assert(sizeof(Vec3d<double>) == 24, "Vec3d<double> is three packed doubles");
static_assert(std::is_trivially_copyable<Vec3d<float>>::value, "Vec3d is a plain value type");

} // namespace Ko_1_1
