#include "panorama/band_blender.hpp"

#include "frame/managed_mat.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <opencv2/imgproc.hpp>
#include <opencv2/stitching/detail/util.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

namespace orvo {
namespace {

constexpr int kChannels = 3;
constexpr float kLeastWeight = 1e-5f; // of a covered pixel; added to the weights, it also makes them divisible

// Pixels whose weights are repeated for each channel at once; they stay in the L1 cache.
constexpr int kBlock = 256;

// Columns or rows from `first` on, without `last`.
struct Range
{
    int first = 0;
    int last = 0;

    [[nodiscard]] bool isEmpty() const { return first >= last; }
    [[nodiscard]] int length() const { return last - first; }
};

int roundedUp(int length, int unit) { return (length + unit - 1) / unit * unit; }

// Where the pyramid of a picture lies on the canvas: with a border that its coarsest band can reach, in whole units, so
// that bands of picture and canvas coincide.
Range placeOf(int start, int length, int canvas, int unit)
{
    constexpr int kReach = 3; // units
    const int low = std::max(0, start - kReach * unit) / unit * unit;
    const int high = std::min(canvas, start + length + kReach * unit);
    const int rounded = roundedUp(high - low, unit);
    const int beyond = std::max(0, low + rounded - canvas);
    return {low - beyond, low - beyond + rounded};
}

cv::Size halved(const cv::Size& size) { return {(size.width + 1) / 2, (size.height + 1) / 2}; }

// A copy with a border, as by cv::copyMakeBorder(): the pixels around a submatrix, and beyond them their reflection.
cv::Mat bordered(const cv::Mat& picture, const cv::Size& size, const cv::Point& place)
{
    cv::Size whole;
    cv::Point offset;
    picture.locateROI(whole, offset);
    const cv::Point before(std::min(offset.x, place.x), std::min(offset.y, place.y));
    const cv::Point origin = place - before;
    cv::Mat source = picture;
    source.adjustROI(before.y, std::min(whole.height - offset.y, size.height - place.y) - picture.rows, before.x,
                     std::min(whole.width - offset.x, size.width - place.x) - picture.cols);
    const auto sourceAt = [](int index, int count) { return cv::borderInterpolate(index, count, cv::BORDER_REFLECT); };
    cv::Mat copy = managedMat(size.height, size.width, CV_16SC3);
    forEachRow(size.height, [&](int y) {
        const auto* const in = source.ptr<cv::Vec3s>(sourceAt(y - origin.y, source.rows));
        auto* const out = copy.ptr<cv::Vec3s>(y);
        for (int x = 0; x < origin.x; ++x)
            out[x] = in[sourceAt(x - origin.x, source.cols)];
        std::copy_n(in, source.cols, out + origin.x);
        for (int x = origin.x + source.cols; x < size.width; ++x)
            out[x] = in[sourceAt(x - origin.x, source.cols)];
    });
    return copy;
}

cv::Mat weightsOf(const cv::Mat& mask, const cv::Size& size, const cv::Point& place)
{
    constexpr double kStep = 1.0 / 255.0;
    cv::Mat weights = managedMat(size.height, size.width, CV_32FC1);
    weights.setTo(0.0);
    cv::Mat inside = weights(cv::Rect(place, mask.size()));
    mask.convertTo(inside, CV_32FC1, kStep);
    return weights;
}

// From fine to coarse.
std::vector<cv::Mat> pyramidOf(cv::Mat finest, int bands)
{
    std::vector<cv::Mat> levels = {std::move(finest)};
    for (int i = 0; i < bands; ++i) {
        const cv::Size size = halved(levels.back().size());
        cv::Mat coarser = managedMat(size.height, size.width, levels.back().type());
        cv::pyrDown(levels.back(), coarser, size);
        levels.push_back(coarser);
    }
    return levels;
}

// The columns with weights.
Range weighted(const float* weights, int count)
{
    Range found{0, count};
    while (!found.isEmpty() && weights[found.first] == 0.0f)
        ++found.first;
    while (!found.isEmpty() && weights[found.last - 1] == 0.0f)
        --found.last;
    return found;
}

// A part of the next finer level than `coarser`, interpolated: the pixels of cv::pyrUp() of the whole level.
class Enlarged
{
public:
    Enlarged(const cv::Mat& coarser, const Range& rows, const Range& columns)
    {
        // Each pixel needs the two or three nearest; those at the ends of a smaller part are wrong.
        const auto neededOf = [](const Range& range, int count) {
            return Range{std::max(0, range.first / 2 - 1), std::min(count, (range.last + 1) / 2 + 1)};
        };
        const Range neededRows = neededOf(rows, coarser.rows);
        const Range neededColumns = neededOf(columns, coarser.cols);
        const cv::Mat part =
            coarser(cv::Range(neededRows.first, neededRows.last), cv::Range(neededColumns.first, neededColumns.last));
        cv::pyrUp(part, pixels, cv::Size(2 * part.cols, 2 * part.rows));
        first = cv::Point(2 * neededColumns.first, 2 * neededRows.first);
    }

    [[nodiscard]] const std::int16_t* at(int row, int column) const
    {
        return pixels.ptr<std::int16_t>(row - first.y) + std::ptrdiff_t{kChannels} * (column - first.x);
    }

private:
    cv::Mat pixels;
    cv::Point first;
};

ORVO_INLINE std::int32_t saturated(std::int32_t value)
{
    constexpr std::int32_t kLeast = -32768;
    constexpr std::int32_t kMost = 32767;
    value = value > kLeast ? value : kLeast;
    return value < kMost ? value : kMost;
}

// Truncated to 32 bits and then to 16, as the conversion of a float in OpenCV.
ORVO_INLINE std::int16_t truncated(float value) { return static_cast<std::int16_t>(static_cast<std::int32_t>(value)); }

ORVO_INLINE void repeat(const float* __restrict weights, float* __restrict samples, int count)
{
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        samples[3 * i] = weights[i];
        samples[3 * i + 1] = weights[i];
        samples[3 * i + 2] = weights[i];
    }
}

// Adds `level` less `coarser`, which is 0 where there is none.
ORVO_VECTOR_CLONES void addRow(const std::int16_t* __restrict level, const std::int16_t* __restrict coarser,
                               const float* __restrict weights, std::int16_t* __restrict sums,
                               float* __restrict sumsOfWeights, int count)
{
    float repeated[kChannels * kBlock];
    for (int first = 0; first < count; first += kBlock) {
        const int length = count - first < kBlock ? count - first : kBlock;
        const std::ptrdiff_t start = std::ptrdiff_t{kChannels} * first;
        repeat(weights + first, repeated, length);
        const std::int16_t* const fine = level + start;
        const std::int16_t* const coarse = coarser + start;
        std::int16_t* const out = sums + start;
        for (std::ptrdiff_t i = 0; i < std::ptrdiff_t{kChannels} * length; ++i) {
            const auto detail = static_cast<float>(saturated(std::int32_t{fine[i]} - std::int32_t{coarse[i]}));
            out[i] = static_cast<std::int16_t>(out[i] + truncated(detail * repeated[i]));
        }
        float* const outWeights = sumsOfWeights + first;
        for (std::ptrdiff_t i = 0; i < length; ++i)
            outWeights[i] += weights[first + i];
    }
}

// Divides by the weights, and adds `coarser`.
ORVO_VECTOR_CLONES void restoreRow(const std::int16_t* __restrict coarser, const float* __restrict weights,
                                   std::int16_t* __restrict samples, int count)
{
    float repeated[kChannels * kBlock];
    for (int first = 0; first < count; first += kBlock) {
        const int length = count - first < kBlock ? count - first : kBlock;
        const std::ptrdiff_t start = std::ptrdiff_t{kChannels} * first;
        repeat(weights + first, repeated, length);
        const std::int16_t* const coarse = coarser + start;
        std::int16_t* const out = samples + start;
        for (std::ptrdiff_t i = 0; i < std::ptrdiff_t{kChannels} * length; ++i) {
            const std::int16_t own = truncated(static_cast<float>(out[i]) / (repeated[i] + kLeastWeight));
            out[i] = static_cast<std::int16_t>(saturated(std::int32_t{own} + std::int32_t{coarse[i]}));
        }
    }
}

ORVO_VECTOR_CLONES void coverRow(const float* __restrict weights, std::uint8_t* __restrict mask, int count)
{
    for (std::ptrdiff_t i = 0; i < count; ++i)
        mask[i] = weights[i] > kLeastWeight ? std::uint8_t{255} : std::uint8_t{0};
}

std::int16_t* samplesAt(const cv::Mat& picture, int row, int column)
{
    return const_cast<std::int16_t*>(picture.ptr<std::int16_t>(row)) + std::ptrdiff_t{kChannels} * column;
}

constexpr int kRowsAtOnce = 32; // so that their enlarged rows stay in the L2 cache, and no thread idles

// Calls `body` with ranges of rows that cover 0 .. rows - 1.
template <typename Body>
void forEachStrip(int rows, const Body& body)
{
    forEachRow((rows + kRowsAtOnce - 1) / kRowsAtOnce, [&](int strip) {
        body(Range{strip * kRowsAtOnce, std::min(rows, (strip + 1) * kRowsAtOnce)});
    });
}

// The columns with weights in any of the rows.
Range weightedIn(const cv::Mat& weights, const Range& rows)
{
    Range columns{weights.cols, 0};
    for (int y = rows.first; y < rows.last; ++y) {
        const Range row = weighted(weights.ptr<float>(y), weights.cols);
        if (row.isEmpty())
            continue;
        columns.first = std::min(columns.first, row.first);
        columns.last = std::max(columns.last, row.last);
    }
    return columns;
}

} // namespace

BandBlender::BandBlender(const std::vector<cv::Point>& corners, const std::vector<cv::Size>& sizes, int count)
    : canvas(cv::detail::resultRoi(corners, sizes)), shown(canvas.size())
{
    const double longest = std::max(canvas.width, canvas.height);
    const int last = std::min(count, static_cast<int>(std::ceil(std::log(longest) / std::log(2.0))));
    const int unit = 1 << last;
    canvas.width = roundedUp(canvas.width, unit);
    canvas.height = roundedUp(canvas.height, unit);
    cv::Size size = canvas.size();
    for (int i = 0; i <= last; ++i, size = halved(size))
        bands.push_back(
            {managedZeros(size.height, size.width, CV_16SC3), managedZeros(size.height, size.width, CV_32FC1)});
}

// Adds to one band of the canvas; `place` is that of the picture's levels there.
void BandBlender::add(Band& band, const cv::Point& place, const cv::Mat& level, const cv::Mat& coarser,
                      const cv::Mat& weights)
{
    const std::vector<std::int16_t> zeros(coarser.empty() ? static_cast<std::size_t>(kChannels * level.cols) : 0);
    forEachStrip(level.rows, [&](const Range& strip) {
        const Range part = weightedIn(weights, strip);
        if (part.isEmpty())
            return;
        std::optional<Enlarged> enlarged;
        if (!coarser.empty())
            enlarged.emplace(coarser, strip, part);
        for (int y = strip.first; y < strip.last; ++y)
            addRow(samplesAt(level, y, part.first), enlarged ? enlarged->at(y, part.first) : zeros.data(),
                   weights.ptr<float>(y) + part.first, samplesAt(band.sums, place.y + y, place.x + part.first),
                   band.weights.ptr<float>(place.y + y) + place.x + part.first, part.length());
    });
}

void BandBlender::feed(cv::UMat picture, const cv::Mat& mask, cv::Point corner)
{
    const int last = static_cast<int>(bands.size()) - 1;
    corner -= canvas.tl();
    const Range rows = placeOf(corner.y, picture.rows, canvas.height, 1 << last);
    const Range columns = placeOf(corner.x, picture.cols, canvas.width, 1 << last);
    const cv::Size size(columns.length(), rows.length());
    cv::Point place(columns.first, rows.first);
    cv::Mat finest = bordered(picture.getMat(cv::ACCESS_READ), size, corner - place);
    picture.release();
    std::vector<cv::Mat> levels = pyramidOf(std::move(finest), last);
    std::vector<cv::Mat> weights = pyramidOf(weightsOf(mask, size, corner - place), last);
    for (std::size_t i = 0; i < bands.size(); ++i) {
        add(bands[i], place, levels[i], i + 1 < bands.size() ? levels[i + 1] : cv::Mat(), weights[i]);
        levels[i].release();
        weights[i].release();
        place = cv::Point(place.x / 2, place.y / 2);
    }
}

// Divides a band by its weights and adds the coarser one, which is complete. Only where there are weights: those of a
// coarser band cover every pixel that contributes to a weighted one of a finer band.
void BandBlender::restore(Band& band, const cv::Mat& coarser)
{
    const std::vector<std::int16_t> zeros(coarser.empty() ? static_cast<std::size_t>(kChannels * band.sums.cols) : 0);
    forEachStrip(band.sums.rows, [&](const Range& strip) {
        const Range part = weightedIn(band.weights, strip);
        if (part.isEmpty())
            return;
        std::optional<Enlarged> enlarged;
        if (!coarser.empty())
            enlarged.emplace(coarser, strip, part);
        for (int y = strip.first; y < strip.last; ++y)
            restoreRow(enlarged ? enlarged->at(y, part.first) : zeros.data(), band.weights.ptr<float>(y) + part.first,
                       samplesAt(band.sums, y, part.first), part.length());
    });
}

void BandBlender::blend(cv::Mat& picture, cv::Mat& mask)
{
    cv::Mat coarser;
    for (std::size_t i = bands.size(); i-- > 0;) {
        restore(bands[i], coarser);
        coarser = bands[i].sums;
        bands[i].sums.release();
        if (i > 0)
            bands[i].weights.release();
    }
    picture = coarser(cv::Rect(cv::Point(), shown));
    mask = managedZeros(shown.height, shown.width, CV_8UC1);
    const cv::Mat weights = bands.front().weights(cv::Rect(cv::Point(), shown));
    forEachStrip(shown.height, [&](const Range& strip) {
        const Range part = weightedIn(weights, strip); // the rest was not restored and is still zero
        for (int y = strip.first; y < strip.last && !part.isEmpty(); ++y) {
            std::uint8_t* const covered = mask.ptr(y);
            coverRow(weights.ptr<float>(y) + part.first, covered + part.first, part.length());
            auto* const pixels = picture.ptr<cv::Vec3s>(y);
            for (int x = part.first; x < part.last; ++x)
                if (covered[x] == 0)
                    pixels[x] = cv::Vec3s();
        }
    });
    bands.clear();
}

} // namespace orvo
