/// Joins pictures by membranes. This is the only header of the library that includes OpenCV, since its interface is
/// made of OpenCV's matrices: a program that includes it must find OpenCV 4.7 or newer itself.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace orvo {

/// Lays pictures one after another on a canvas and hides each new seam with a membrane: it measures the colour
/// difference along the edge of the pictures already placed and spreads it smoothly into the new picture, so that both
/// meet without a step. There are no frequency bands. Where the two disagree strongly, as at a moving subject, the
/// membrane skips the edge. Earlier pictures lie in front.
///
/// Colour is CV_16SC3, blue first, full scale 16383, 0 .. full scale; masks are CV_8UC1, set where not 0.
///
/// Example:
///   orvo::PanoramaMBlender blender;
///   blender.feed(left, leftMask, leftRegion, {0, 0});
///   blender.feed(right, rightMask, rightRegion, {800, 0});
///   cv::Mat joined, mask;
///   blender.blend(joined, mask);
class ORVO_EXPORT PanoramaMBlender
{
public:
    PanoramaMBlender();
    PanoramaMBlender(const PanoramaMBlender&);
    PanoramaMBlender(PanoramaMBlender&&) noexcept;
    PanoramaMBlender& operator=(const PanoramaMBlender&);
    PanoramaMBlender& operator=(PanoramaMBlender&&) noexcept;
    virtual ~PanoramaMBlender();

    /// Adds a picture whose top-left pixel lies at `corner`. `mask` selects its pixels; `region` selects where it may
    /// also grow, by up to 16 pixels, into empty canvas. Both start at the picture's first pixel; pixels that they do
    /// not cover count as clear. The picture is shared, not copied: it must not change before the last blend(). The
    /// masks are copied, one bit per pixel. Throws cv::Exception on matrices of other types.
    void feed(const cv::Mat& image, const cv::Mat& mask, const cv::Mat& region, cv::Point corner);

    /// Joins all pictures fed so far, in that order: `result` becomes a new CV_16SC3 of their common bounding box,
    /// `resultMask` a new CV_8UC1 of that size: 255 where there is a picture, and 0 elsewhere, where `result` is black.
    /// A membrane can push samples above full scale or below 0; only the range of the type bounds them. Without
    /// pictures both stay unchanged. May be called again, also after further feeds.
    ///
    /// A difference that is constant along the joint carries through the whole new part to the ends of the canvas: the
    /// membrane is free where the new picture borders on empty canvas. Spots where a channel differs by half of full
    /// scale or more are skipped, with a margin of 16 pixels.
    ///
    /// Blocks; one thread at a time on one object. Parallel over rows; the same bytes for any number of threads.
    /// Peak: 41 bytes per pixel of the canvas and 12 per pixel of the largest picture. Throws std::length_error if the
    /// bounding box is wider than an int, std::bad_alloc, and cv::Exception.
    void blend(cv::Mat& result, cv::Mat& resultMask);

private:
    std::vector<cv::Mat> images;
    std::vector<std::vector<bool>> masks;   ///< row-major, one bit per pixel of the image
    std::vector<std::vector<bool>> regions; ///< the same
    std::vector<cv::Point> corners;
};

/// Dilates the nonzero pixels of the `width` x `height` plane `data` by `radius` pixels horizontally and vertically:
/// those within reach become 1, the rest 0. T is a byte type. Works on runs of set pixels, so that the time does not
/// grow with the radius. A negative radius counts as 0. Any thread; parallel; the same bytes for any number of threads.
/// Peak: one more plane. Throws std::bad_alloc.
template <typename T>
void dilationRLE(T* data, int width, int height, int radius);

namespace detail {

/// One line of dilationRLE(): reads `length` pixels of `in`, sets runs in `out`, which must be all 0.
template <typename T>
void dilateRuns(const T* in, T* out, int length, int radius)
{
    const int last = length - 1;
    int end = -1; // of the run before
    for (int p = 0; p < length; ++p) {
        if (in[p] == T{})
            continue;
        const int begin = std::max({end + 1, p - radius, 0});
        const auto reach = [&](int from) { return from < last - radius ? from + radius : last; };
        end = reach(p);
        while (end < last) {
            int next = end;
            while (next > p && in[next] == T{})
                --next;
            if (next == p)
                break;
            p = next;
            end = reach(p);
        }
        std::fill(out + begin, out + end + 1, T{1});
        p = end;
    }
}

} // namespace detail

template <typename T>
void dilationRLE(T* data, int width, int height, int radius)
{
    static_assert(sizeof(T) == 1, "a plane of bytes");
    if (width <= 0 || height <= 0)
        return;
    const int reach = std::clamp(radius, 0, std::max(width, height));
    const auto rowAt = [width](T* plane, int y) { return plane + static_cast<std::ptrdiff_t>(y) * width; };
    const ManagedPlane<T> across(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), true);
    forEachRow(height, [&](int y) { detail::dilateRuns(rowAt(data, y), rowAt(across.data(), y), width, reach); });

    // Columns are gathered in strips as wide as a cache line.
    constexpr int kStrip = 64;
    forEachRow((width + kStrip - 1) / kStrip, [&](int strip) {
        const int first = strip * kStrip;
        const int columns = std::min(kStrip, width - first);
        const std::size_t length = static_cast<std::size_t>(height);
        const ManagedPlane<T> lines(2 * kStrip * length, true);
        T* const in = lines.data();
        T* const out = in + kStrip * length;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < columns; ++x)
                in[static_cast<std::size_t>(x) * length + static_cast<std::size_t>(y)] =
                    rowAt(across.data(), y)[first + x];
        for (int x = 0; x < columns; ++x) {
            const std::size_t line = static_cast<std::size_t>(x) * length;
            detail::dilateRuns(in + line, out + line, height, reach);
        }
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < columns; ++x)
                rowAt(data, y)[first + x] = out[static_cast<std::size_t>(x) * length + static_cast<std::size_t>(y)];
    });
}

} // namespace orvo
