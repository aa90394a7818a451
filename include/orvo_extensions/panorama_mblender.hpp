/// Joins pictures by membranes. The one header of this library that includes OpenCV, whose matrices are its interface:
/// a program that includes it must find OpenCV 4.7 or newer itself.
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

/// Lays pictures one after another on a canvas and hides each new seam with a membrane: the difference in colour along
/// the edge of what lies there already is carried into the new picture, so that both meet without a step. Nothing is
/// done by bands. Where the two disagree strongly, as at something that moved, the edge is left out of the membrane.
/// The pictures in front come first.
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

    /// Adds a picture whose top-left pixel lies at `corner`. `mask` says where it counts; `region` where it may also
    /// grow, by up to 16 pixels, into canvas that holds nothing. Both begin at the picture's first pixel; what they do
    /// not cover is clear. The picture is shared, not copied: it must not change before the last blend(). The masks are
    /// copied, a bit a pixel. Throws cv::Exception on matrices of other types.
    void feed(const cv::Mat& image, const cv::Mat& mask, const cv::Mat& region, cv::Point corner);

    /// Joins all pictures fed so far, in that order: `result` becomes a new CV_16SC3 of the rectangle that holds them
    /// all, `resultMask` a new CV_8UC1 of that size, 255 where a picture lies and 0 elsewhere, where `result` is black.
    /// A membrane can lift samples above full scale, or below 0; only the ends of the type bound them. Without any
    /// picture both stay as they are. May be called again, and after further feeds.
    ///
    /// A difference that is the same all along the joint is carried through the whole new part, and so to the ends of
    /// the canvas: where the new picture ends over nothing, nothing is asked of the membrane. A spot where a channel
    /// differs by half of full scale or more is left out, and 16 pixels around it.
    ///
    /// Blocks; one thread at a time on one object. Parallel over rows; the same bytes for any number of threads.
    /// Peak, in bytes a pixel of the canvas: 41, and 12 a pixel of the largest picture. Throws std::length_error
    /// where the rectangle is wider than an int, what allocation throws, and cv::Exception.
    void blend(cv::Mat& result, cv::Mat& resultMask);

private:
    std::vector<cv::Mat> images;
    std::vector<std::vector<bool>> masks;   ///< row-major, a bit for each pixel of the image
    std::vector<std::vector<bool>> regions; ///< the same
    std::vector<cv::Point> corners;
};

/// Sets to 1 all of the `width` x `height` plane `data` that lies within `radius` pixels, across and down, of a pixel
/// that is not 0; the rest stays 0. T is a byte type. Works on runs of set pixels, so that the time does not grow with
/// the radius. A negative radius counts as 0. Any thread; parallel; the same bytes for any number of threads. Peak: one
/// more plane. Throws std::bad_alloc.
template <typename T>
void dilationRLE(T* data, int width, int height, int radius);

namespace detail {

/// One line of dilationRLE(), `length` pixels `in`, onto `out`, which is 0 all along.
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

    // Columns are taken out in strips of a cache line.
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
