/// Describes how two pictures differ: position, number of samples, and amount.
#pragma once

#include <orvo_core/image_data.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <ostream>
#include <sstream>

namespace orvo::test {

/// The differences of two pictures of one size beyond a tolerance.
struct Differences
{
    std::size_t count = 0; ///< samples beyond the tolerance
    std::size_t of = 0;    ///< samples compared
    double largest = 0.0;  ///< infinite where one of the two is NaN and the other is not
    int x = 0, y = 0;      ///< of the largest
    int channel = 0;       ///< of the largest
    double expected = 0.0; ///< there
    double found = 0.0;    ///< there

    /// "(311, 42) channel 1: 0.482 expected, 0.517 found; 37 of 307200 samples beyond 0.002"
    void describe(std::ostream& out, double tolerance) const
    {
        out << "(" << x << ", " << y << ") channel " << channel << ": " << expected << " expected, " << found
            << " found; " << count << " of " << of << " samples beyond " << tolerance;
    }
};

/// Compares samples that `found(x, y, channel)` and `expected(x, y, channel)` return.
template <typename Found, typename Expected>
Differences differencesOf(int width, int height, int channels, double tolerance, const Found& found,
                          const Expected& expected)
{
    Differences result;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int channel = 0; channel < channels; ++channel) {
                const double f = found(x, y, channel);
                const double e = expected(x, y, channel);
                ++result.of;
                double difference = std::abs(f - e);
                if (std::isnan(difference))
                    difference = std::isnan(f) && std::isnan(e) ? 0.0 : std::numeric_limits<double>::infinity();
                if (difference > tolerance)
                    ++result.count;
                if (difference > result.largest) {
                    result.largest = difference;
                    result.x = x;
                    result.y = y;
                    result.channel = channel;
                    result.expected = e;
                    result.found = f;
                }
            }
    return result;
}

/// Differences of two pictures of floats of one size.
template <typename T>
Differences differencesOf(const _ImageData<T>& found, const _ImageData<T>& expected, double tolerance)
{
    constexpr int kChannels = static_cast<int>(sizeof(T) / sizeof(float));
    const auto sampleOf = [](const _ImageData<T>& picture) {
        return [data = reinterpret_cast<const float*>(picture.data()), width = picture.width()](int x, int y, int c) {
            return static_cast<double>(data[(static_cast<std::ptrdiff_t>(y) * width + x) * kChannels + c]);
        };
    };
    return differencesOf(found.width(), found.height(), kChannels, tolerance, sampleOf(found), sampleOf(expected));
}

/// Checks that two pictures have the same bytes; the failure has the first difference.
template <typename T>
testing::AssertionResult sameBytes(const _ImageData<T>& found, const _ImageData<T>& expected)
{
    if (found.size() != expected.size())
        return testing::AssertionFailure() << found.width() << " x " << found.height() << " pixels, expected "
                                           << expected.width() << " x " << expected.height();
    if (std::memcmp(found.data(), expected.data(), found.pixelCount() * sizeof(T)) == 0)
        return testing::AssertionSuccess() << "the bytes are the same";
    std::ostringstream text;
    differencesOf(found, expected, 0.0).describe(text, 0.0);
    return testing::AssertionFailure() << text.str();
}

/// Matches a picture of the size of `expected` whose samples are all within `tolerance` of it. A NaN on one side only
/// is a difference. `expected` is referred to or shared, never copied.
template <typename T>
class PixelsNearMatcher
{
public:
    using is_gtest_matcher = void;

    PixelsNearMatcher(std::shared_ptr<const _ImageData<T>> owner, const _ImageData<T>& expectedPicture, double allowed)
        : keeper(std::move(owner)), expected(&expectedPicture), tolerance(allowed)
    {}

    bool MatchAndExplain(const _ImageData<T>& found, std::ostream* out) const
    {
        if (found.size() != expected->size()) {
            if (out != nullptr)
                *out << "which has " << found.width() << " x " << found.height() << " pixels";
            return false;
        }
        const Differences differences = differencesOf(found, *expected, tolerance);
        if (out != nullptr && differences.largest > 0.0)
            differences.describe(*out, tolerance);
        return differences.count == 0;
    }
    void DescribeTo(std::ostream* out) const
    {
        *out << "has " << expected->width() << " x " << expected->height() << " pixels within " << tolerance;
    }
    void DescribeNegationTo(std::ostream* out) const { *out << "differs anywhere by more than " << tolerance; }

private:
    std::shared_ptr<const _ImageData<T>> keeper;
    const _ImageData<T>* expected;
    double tolerance;
};

template <typename T>
PixelsNearMatcher<T> PixelsNear(const _ImageData<T>& expected, double tolerance)
{
    return {nullptr, expected, tolerance};
}
template <typename T>
PixelsNearMatcher<T> PixelsNear(std::shared_ptr<_ImageData<T>> expected, double tolerance)
{
    const _ImageData<T>& picture = *expected;
    return {std::move(expected), picture, tolerance};
}

} // namespace orvo::test

namespace orvo {

/// What GoogleTest prints of a picture: its size, not its bytes.
template <typename T>
void PrintTo(const _ImageData<T>& picture, std::ostream* out)
{
    *out << "a picture of " << picture.width() << " x " << picture.height() << " pixels";
}

} // namespace orvo
