/// Sizes, rectangles and points: plain values.
#pragma once

namespace orvo {

/// Width and height; (0, 0) means unset.
template <typename T>
struct _Size
{
    T width{};
    T height{};

    constexpr _Size() = default;
    constexpr _Size(T width_, T height_) : width(width_), height(height_) {}
    constexpr bool operator==(const _Size&) const = default;
};

/// Left, top, width, height; (0, 0, 0, 0) means the whole picture where a function takes a part.
template <typename T>
struct _Rect
{
    T x{};
    T y{};
    T width{};
    T height{};

    constexpr _Rect() = default;
    constexpr _Rect(T x_, T y_, T width_, T height_) : x(x_), y(y_), width(width_), height(height_) {}
    [[nodiscard]] constexpr _Size<T> size() const { return {width, height}; }
    constexpr bool operator==(const _Rect&) const = default;
};

template <typename T>
struct _Point
{
    T x{};
    T y{};

    constexpr _Point() = default;
    constexpr _Point(T x_, T y_) : x(x_), y(y_) {}
    constexpr bool operator==(const _Point&) const = default;
};

/// A picture, or a part of it, at a size. The zero rectangle is the whole picture, the zero size the picture's own.
struct ResizeParameters
{
    _Size<int> size;
    _Rect<int> rect;
    bool flag = true; ///< always true in this library
};

} // namespace orvo
