#include <orvo_common/memory_manager.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <vector>

namespace orvo {
namespace {

// For each output sample of one axis the run of input samples that contribute, and their weights.
struct AxisTaps
{
    struct Run
    {
        int first;         // input sample, inside the picture
        int count;         // at least 1
        std::size_t start; // of its weights
    };
    std::vector<Run> runs;
    std::vector<float> weights;

    [[nodiscard]] int firstInput() const
    {
        return std::min_element(runs.begin(), runs.end(), [](auto& a, auto& b) { return a.first < b.first; })->first;
    }
    [[nodiscard]] int inputEnd() const
    {
        int end = 0;
        for (const Run& run : runs)
            end = std::max(end, run.first + run.count);
        return end;
    }
};

// Keys, IEEE Transactions on Acoustics, Speech and Signal Processing 29(6), 1981, with a = -1/2: the cubic through the
// samples whose slope at each is that between its two neighbours (Catmull and Rom, 1974).
double catmullRom(double distance)
{
    const double d = std::abs(distance);
    if (d < 1.0)
        return (1.5 * d - 2.5) * d * d + 1.0;
    return d < 2.0 ? ((-0.5 * d + 2.5) * d - 4.0) * d + 2.0 : 0.0;
}

// Collects the weights of one output sample. Positions outside the picture count as its edge.
class RunBuilder
{
public:
    RunBuilder(AxisTaps& taps_, int inputLength_) : taps(taps_), inputLength(inputLength_) {}

    void add(std::int64_t position, double weight)
    {
        const int index = static_cast<int>(std::clamp<std::int64_t>(position, 0, inputLength - 1));
        if (run.empty())
            first = index;
        // Positions are increasing, so the clamped ones are too.
        run.resize(std::max(run.size(), static_cast<std::size_t>(index - first) + 1), 0.0);
        run[static_cast<std::size_t>(index - first)] += weight;
    }

    void finish()
    {
        // Zero weights at the ends would let NaN spread into neighbouring samples.
        std::size_t begin = 0;
        std::size_t end = run.size();
        while (end - begin > 1 && run[begin] == 0.0)
            ++begin;
        while (end - begin > 1 && run[end - 1] == 0.0)
            --end;
        double sum = 0.0;
        for (std::size_t k = begin; k < end; ++k)
            sum += run[k];
        taps.runs.push_back({first + static_cast<int>(begin), static_cast<int>(end - begin), taps.weights.size()});
        // Each weight's rounding error carries over to the next one, so that a constant stays constant.
        double owed = 0.0;
        for (std::size_t k = begin; k < end; ++k) {
            const double exact = run[k] / sum + owed;
            taps.weights.push_back(static_cast<float>(exact));
            owed = exact - static_cast<double>(taps.weights.back());
        }
        run.clear();
    }

private:
    AxisTaps& taps;
    int inputLength;
    int first = 0;
    std::vector<double> run;
};

// Taps that map `partLength` input samples from `partStart` on to `outputLength` samples. Sample i covers the interval
// from i to i+1, so centres are at halves and nothing shifts.
AxisTaps makeTaps(int inputLength, int partStart, int partLength, int outputLength)
{
    AxisTaps taps;
    taps.runs.reserve(static_cast<std::size_t>(outputLength));
    RunBuilder builder(taps, inputLength);
    const double scale = static_cast<double>(partLength) / outputLength;
    for (int i = 0; i < outputLength; ++i) {
        if (scale > 1.0) {
            const double left = i * scale;
            const double right = i + 1 == outputLength ? partLength : (i + 1) * scale;
            for (auto k = static_cast<std::int64_t>(left); static_cast<double>(k) < right; ++k) {
                const auto from = static_cast<double>(k);
                builder.add(partStart + k, std::min(right, from + 1.0) - std::max(left, from));
            }
        } else {
            const double centre = (i + 0.5) * scale - 0.5;
            const double base = std::floor(centre);
            for (int k = -1; k <= 2; ++k)
                builder.add(partStart + static_cast<std::int64_t>(base) + k, catmullRom(base + k - centre));
        }
        builder.finish();
    }
    return taps;
}

template <int kChannels>
void filterRow(const float* source, float* target, const AxisTaps& taps)
{
    for (const AxisTaps::Run& run : taps.runs) {
        const float* const weights = taps.weights.data() + run.start;
        const float* input = source + static_cast<std::ptrdiff_t>(run.first) * kChannels;
        // Long sums are split into short ones: the rounding error of a sum grows with the number of its terms.
        constexpr int kShort = 16;
        float sums[kChannels] = {};
        for (int first = 0; first < run.count; first += kShort) {
            const int end = std::min(run.count, first + kShort);
            float parts[kChannels] = {};
            for (int k = first; k < end; ++k, input += kChannels)
                for (int c = 0; c < kChannels; ++c)
                    parts[c] += weights[k] * input[c];
            for (int c = 0; c < kChannels; ++c)
                sums[c] += parts[c];
        }
        for (int c = 0; c < kChannels; ++c)
            *target++ = sums[c];
    }
}

// The weighted sum of rows. `rows` starts at the first row of the run.
void mixRows(const float* rows, std::ptrdiff_t rowFloats, std::ptrdiff_t length, const float* weights, int count,
             float* target)
{
    // A stretch that stays in the L1 cache while one row after another is added to it.
    constexpr std::ptrdiff_t kStretch = 2048; // floats
    for (std::ptrdiff_t begin = 0; begin < length; begin += kStretch) {
        const std::ptrdiff_t end = std::min(length, begin + kStretch);
        const float* row = rows;
        int k = 0;
        for (; k + 4 <= count; k += 4, row += 4 * rowFloats) {
            const float w0 = weights[k], w1 = weights[k + 1], w2 = weights[k + 2], w3 = weights[k + 3];
            const float *a = row, *b = row + rowFloats, *c = row + 2 * rowFloats, *d = row + 3 * rowFloats;
            if (k == 0)
                for (std::ptrdiff_t i = begin; i < end; ++i)
                    target[i] = (w0 * a[i] + w1 * b[i]) + (w2 * c[i] + w3 * d[i]);
            else
                for (std::ptrdiff_t i = begin; i < end; ++i)
                    target[i] += (w0 * a[i] + w1 * b[i]) + (w2 * c[i] + w3 * d[i]);
        }
        for (; k < count; ++k, row += rowFloats) {
            const float w = weights[k];
            if (k == 0)
                for (std::ptrdiff_t i = begin; i < end; ++i)
                    target[i] = w * row[i];
            else
                for (std::ptrdiff_t i = begin; i < end; ++i)
                    target[i] += w * row[i];
        }
    }
}

// A view of rows of floats.
struct Rows
{
    const float* data;
    std::ptrdiff_t stride; // floats from row to row
    int first = 0;         // number of the row that `data` points at
    [[nodiscard]] const float* row(int y) const { return data + (y - first) * stride; }
};

void checkResize(_Size<int> source, _Size<int> size, const _Rect<int>& rect)
{
    if (size.width < 0 || size.height < 0 || rect.width < 0 || rect.height < 0)
        throw std::invalid_argument("_ImageData::resize: the size is negative");
    const bool wantsPixels = size.width > 0 && size.height > 0;
    const bool hasPixels = source.width > 0 && source.height > 0 && rect.width > 0 && rect.height > 0;
    if (wantsPixels && !hasPixels)
        throw std::invalid_argument("_ImageData::resize: the part has no pixels");
}

// An axis whose samples are copied unchanged needs no taps.
bool isCopied(int inputLength, int partStart, int partLength, int outputLength)
{
    return partLength == outputLength && partStart >= 0 && partStart <= inputLength - partLength;
}

template <typename T>
void resizeInto(const _ImageData<T>& source, const _Rect<int>& rect, _ImageData<T>& target)
{
    constexpr int kChannels = static_cast<int>(sizeof(T) / sizeof(float));
    if (target.pixelCount() == 0)
        return;
    const std::ptrdiff_t rowFloats = static_cast<std::ptrdiff_t>(target.width()) * kChannels;
    Rows input{reinterpret_cast<const float*>(source.data()), static_cast<std::ptrdiff_t>(source.width()) * kChannels,
               0};
    float* const output = reinterpret_cast<float*>(target.data());

    // The required rows of the source, [top, bottom).
    const bool rowsCopied = isCopied(source.height(), rect.y, rect.height, target.height());
    AxisTaps down;
    if (!rowsCopied)
        down = makeTaps(source.height(), rect.y, rect.height, target.height());
    const int top = rowsCopied ? rect.y : down.firstInput();
    const int bottom = rowsCopied ? rect.y + rect.height : down.inputEnd();

    std::optional<ManagedPlane<float>> narrowed;
    if (isCopied(source.width(), rect.x, rect.width, target.width())) {
        input.data += static_cast<std::ptrdiff_t>(rect.x) * kChannels;
    } else {
        const AxisTaps across = makeTaps(source.width(), rect.x, rect.width, target.width());
        if (!rowsCopied)
            narrowed.emplace(static_cast<std::size_t>(rowFloats) * static_cast<std::size_t>(bottom - top));
        float* const lines = narrowed ? narrowed->data() : output;
        forEachRow(bottom - top,
                   [&](int y) { filterRow<kChannels>(input.row(top + y), lines + y * rowFloats, across); });
        if (rowsCopied)
            return;
        input = {lines, rowFloats, top};
    }
    forEachRow(target.height(), [&](int y) {
        if (rowsCopied) {
            std::memcpy(output + y * rowFloats, input.row(top + y),
                        static_cast<std::size_t>(rowFloats) * sizeof(float));
            return;
        }
        const AxisTaps::Run& run = down.runs[static_cast<std::size_t>(y)];
        mixRows(input.row(run.first), input.stride, rowFloats, down.weights.data() + run.start, run.count,
                output + y * rowFloats);
    });
}

// Resolves the zero rectangle and the zero size.
_Rect<int> meantRect(const _Rect<int>& rect, _Size<int> source)
{
    return rect == _Rect<int>() ? _Rect<int>(0, 0, source.width, source.height) : rect;
}

_Size<int> meantSize(_Size<int> size, const _Rect<int>& rect) { return size == _Size<int>() ? rect.size() : size; }

} // namespace

template <typename T>
std::shared_ptr<_ImageData<T>> _ImageData<T>::resize(_Size<int> size, const _Rect<int>& rect, bool) const
{
    const _Rect<int> part = meantRect(rect, extent);
    const _Size<int> resolved = meantSize(size, part);
    checkResize(extent, resolved, part);
    auto result = std::make_shared<_ImageData>(resolved, profile);
    resizeInto(*this, part, *result);
    return result;
}

std::shared_ptr<MaskImage> MaskImage::resize(_Size<int> size, const _Rect<int>& rect, bool) const
{
    const _Rect<int> part = meantRect(rect, this->size());
    const _Size<int> resolved = meantSize(size, part);
    checkResize(this->size(), resolved, part);
    auto result = std::make_shared<MaskImage>(resolved);
    resizeInto<float>(*this, part, *result);
    result->clamp(); // the cubic overshoots at edges, and weights must not
    return result;
}

// The class itself is instantiated where its other members are defined.
template std::shared_ptr<_ImageData<PixelRGB<float>>> _ImageData<PixelRGB<float>>::resize(_Size<int>, const _Rect<int>&,
                                                                                          bool) const;
template std::shared_ptr<_ImageData<PixelRGBA<float>>>
_ImageData<PixelRGBA<float>>::resize(_Size<int>, const _Rect<int>&, bool) const;
template std::shared_ptr<_ImageData<float>> _ImageData<float>::resize(_Size<int>, const _Rect<int>&, bool) const;

} // namespace orvo
