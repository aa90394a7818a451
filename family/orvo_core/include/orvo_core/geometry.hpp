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

/// Left, top, width, height; as a part of a picture, (0, 0, 0, 0) means all of it.
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

/// `size`, shrunk in proportion until its longest side is at most `limit` (1 or more), truncated; no nonzero side
/// becomes 0. A size within the limit is unchanged.
[[nodiscard]] constexpr _Size<int> scaleSizeToMax(const _Size<int>& size, int limit)
{
    const int longest = size.width > size.height ? size.width : size.height;
    if (longest <= limit)
        return size;
    const auto scaled = [&](int side) {
        const auto length = static_cast<int>(static_cast<long long>(side) * limit / longest);
        return side > 0 && length < 1 ? 1 : length;
    };
    return {scaled(size.width), scaled(size.height)};
}

/// A picture, or a part of it, at a size. A zero rectangle is the whole picture, a zero size the picture's own.
struct ResizeParameters
{
    _Size<int> size;
    _Rect<int> rect;
    bool flag = true; ///< always true in this library
};

} // namespace orvo
