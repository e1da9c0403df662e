#pragma once

#include <cmath>
#include <cstddef>
#include <initializer_list>
#include <limits>
#include <type_traits>

#include "common/Vec3d.h"

namespace Ko_1_1 {

// 4x4 matrix stored column by column: element (row r, column c) lives at index 4c + r, which is the order
// glUniformMatrix4fv takes untransposed. Points are column vectors, so (A * B) applies B first.
template <typename T> struct Mat4d {
    T m[16];

    // The identity; every use in the viewer either starts from it or fills all sixteen elements.
    constexpr Mat4d() : m{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1} {}

    // Takes at most sixteen values in storage order; elements not given are zero.
    Mat4d(std::initializer_list<T> values) : m{} {
        std::size_t i = 0;
        for (T v : values) {
            if (i == 16) {
                break;
            }
            m[i++] = v;
        }
    }

    static Mat4d identity() { return Mat4d(); }
    static Mat4d zero() { return Mat4d({}); }

    T& operator[](std::size_t i) { return m[i]; }
    const T& operator[](std::size_t i) const { return m[i]; }
    T& at(int row, int column) { return m[4 * column + row]; }
    const T& at(int row, int column) const { return m[4 * column + row]; }
    T* data() { return m; }
    const T* data() const { return m; }

    bool operator==(const Mat4d& o) const {
        for (int i = 0; i < 16; ++i) {
            if (m[i] != o.m[i]) {
                return false;
            }
        }
        return true;
    }
    bool operator!=(const Mat4d& o) const { return !(*this == o); }

    Mat4d operator*(const Mat4d& b) const {
        Mat4d r = zero();
        for (int c = 0; c < 4; ++c) {
            for (int row = 0; row < 4; ++row) {
                T sum = 0;
                for (int k = 0; k < 4; ++k) {
                    sum += at(row, k) * b.at(k, c);
                }
                r.at(row, c) = sum;
            }
        }
        return r;
    }

    // The point p with w = 1; the result is divided by w when w is neither 0 nor 1 (projections).
    Vec3d<T> operator*(const Vec3d<T>& p) const {
        const T x = m[0] * p.x + m[4] * p.y + m[8] * p.z + m[12];
        const T y = m[1] * p.x + m[5] * p.y + m[9] * p.z + m[13];
        const T z = m[2] * p.x + m[6] * p.y + m[10] * p.z + m[14];
        const T w = m[3] * p.x + m[7] * p.y + m[11] * p.z + m[15];
        if (w != 0 && w != 1) {
            return {x / w, y / w, z / w};
        }
        return {x, y, z};
    }

    // The direction d (w = 0): rotation and scale only.
    Vec3d<T> transformDirection(const Vec3d<T>& d) const {
        return {m[0] * d.x + m[4] * d.y + m[8] * d.z, m[1] * d.x + m[5] * d.y + m[9] * d.z,
                m[2] * d.x + m[6] * d.y + m[10] * d.z};
    }

    Vec3d<T> column(int c) const { return {m[4 * c], m[4 * c + 1], m[4 * c + 2]}; }
    Vec3d<T> translation() const { return column(3); }

    void setIdentityRotation() {
        m[0] = 1;
        m[1] = 0;
        m[2] = 0;
        m[4] = 0;
        m[5] = 1;
        m[6] = 0;
        m[8] = 0;
        m[9] = 0;
        m[10] = 1;
    }

    // Counter-clockwise by +angle seen from the axis tip; the translation column is left alone.
    void setRotation(Vec3d<T> axis, T angle) {
        if (!axis.normalize()) {
            setIdentityRotation();
            return;
        }
        const T x = axis.x;
        const T y = axis.y;
        const T z = axis.z;
        const T s = std::sin(-angle);
        const T c = std::cos(-angle);
        const T t = 1 - c;
        m[0] = x * x * t + c;
        m[1] = x * y * t - z * s;
        m[2] = x * z * t + y * s;
        m[3] = 0;
        m[4] = x * y * t + z * s;
        m[5] = y * y * t + c;
        m[6] = y * z * t - x * s;
        m[7] = 0;
        m[8] = x * z * t - y * s;
        m[9] = y * z * t + x * s;
        m[10] = z * z * t + c;
        m[11] = 0;
    }

    void setTranslation(const Vec3d<T>& t) {
        m[12] = t.x;
        m[13] = t.y;
        m[14] = t.z;
        m[15] = 1;
    }

    static Mat4d rotation(const Vec3d<T>& axis, T angle) {
        Mat4d r;
        r.setRotation(axis, angle);
        return r;
    }

    static Mat4d translationMatrix(const Vec3d<T>& t) {
        Mat4d r;
        r.setTranslation(t);
        return r;
    }

    // nearZ and farZ are signed view-space depths (negative: the camera looks down -z); farZ may be -inf.
    static Mat4d perspective(T width, T height, T nearZ, T farZ, T fovY, T shiftX, T shiftY) {
        const T f = static_cast<T>(1) / std::tan(fovY * static_cast<T>(0.5));
        T a;
        T b;
        if (farZ == -std::numeric_limits<T>::infinity()) {
            a = -1;
            b = -2 * nearZ;
        } else {
            a = (nearZ + farZ) / (nearZ - farZ);
            b = -2 * nearZ * farZ / (nearZ - farZ);
        }
        return Mat4d({f * height / width, 0, 0, 0, 0, f, 0, 0, f * shiftX / (width * nearZ),
                      f * shiftY / (height * nearZ), a, -1, 0, 0, b, 0});
    }

    // Inverse of an affine transform (rotation, scale and translation; bottom row 0, 0, 0, 1).
    Mat4d affineInverse() const {
        const T a00 = m[0], a01 = m[4], a02 = m[8];
        const T a10 = m[1], a11 = m[5], a12 = m[9];
        const T a20 = m[2], a21 = m[6], a22 = m[10];
        const T c00 = a11 * a22 - a12 * a21;
        const T c01 = a12 * a20 - a10 * a22;
        const T c02 = a10 * a21 - a11 * a20;
        T det = a00 * c00 + a01 * c01 + a02 * c02;
        if (det == 0) {
            return Mat4d();
        }
        const T inv = static_cast<T>(1) / det;
        Mat4d r;
        r.at(0, 0) = c00 * inv;
        r.at(0, 1) = (a02 * a21 - a01 * a22) * inv;
        r.at(0, 2) = (a01 * a12 - a02 * a11) * inv;
        r.at(1, 0) = c01 * inv;
        r.at(1, 1) = (a00 * a22 - a02 * a20) * inv;
        r.at(1, 2) = (a02 * a10 - a00 * a12) * inv;
        r.at(2, 0) = c02 * inv;
        r.at(2, 1) = (a01 * a20 - a00 * a21) * inv;
        r.at(2, 2) = (a00 * a11 - a01 * a10) * inv;
        const Vec3d<T> t = translation();
        for (int row = 0; row < 3; ++row) {
            r.at(row, 3) = -(r.at(row, 0) * t.x + r.at(row, 1) * t.y + r.at(row, 2) * t.z);
        }
        return r;
    }
};

static_assert(sizeof(Mat4d<float>) == 64, "Mat4d<float> is sixteen packed floats");
static_assert(std::is_trivially_copyable<Mat4d<float>>::value, "Mat4d is a plain value type");

} // namespace Ko_1_1
