#pragma once

#include <type_traits>

namespace Ko_1_1 {

// Two contiguous components; used as a pixel resolution (width in x, height in y).
template <typename T> struct SVec2d {
    T x{};
    T y{};

    constexpr SVec2d() = default;
    constexpr SVec2d(T x_, T y_) : x(x_), y(y_) {}
    constexpr bool operator==(const SVec2d& o) const { return x == o.x && y == o.y; }
    constexpr bool operator!=(const SVec2d& o) const { return !(*this == o); }
};

static_assert(sizeof(SVec2d<int>) == 8, "SVec2d<int> is two packed ints");
static_assert(std::is_trivially_copyable<SVec2d<int>>::value, "SVec2d is a plain value type");

} // namespace Ko_1_1
