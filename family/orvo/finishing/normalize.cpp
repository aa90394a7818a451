#include <orvo/finishing.hpp>
#include <orvo_common/memory_manager.hpp>
#include <orvo_common/scoped_timer.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/luma.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/local_laplacian.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

namespace orvo {
namespace {

constexpr int kBins = 4097;     // of a histogram over 0..kTop: finer than a step of 8 bits, with 1 as one of them
constexpr float kTop = 2.0f;    // brighter pixels count as this bright
constexpr double kTail = 0.001; // share of the pixels beyond each of the two points
constexpr int kBands = 64;      // of rows, each with a histogram of integers: any order of adding gives the same sums

constexpr float kNormalBlack = 0.01f;  // a black point up to here is normal
constexpr float kNormalWhite = 0.985f; // and a white point from here to 1
constexpr float kMostBlack = 0.1f;     // maximum subtracted: haze is part of many pictures
constexpr float kMostGain = 1.6f;      // less than a stop, encoded
constexpr float kLeastGain = 0.7f;

// A blend that no longer reaches the ends of the scale has lost contrast inside as well: the mean of a bright and a
// dark frame keeps half of each frame's contrast. A local Laplacian filter, which leaves edges without halo, raises
// local contrast, from the first share of missing scale on and fully from the second.
constexpr float kNoticedLoss = 0.04f;
constexpr float kFullLoss = 0.1f;
// Such a blend is also darker than its frames, because many dark frames contribute to it. A middle tone below the first
// is lifted up to it, by at most the second, the gain of the deepest shadows minus one.
constexpr float kDarkMiddle = 0.34f;
constexpr float kMostLift = 0.5f;
constexpr float kDetail = 1.1f;        // log2 of the gain of the finest differences
constexpr float kFineGain = 1.5f;      // plain, and lower: the finest differences contain the noise
constexpr float kDetailFloor = 0.004f; // a step of 8 bits is noise
constexpr int kDetailSamples = 9;
constexpr float kDetailThreshold = 0.4f;
// Bright parts of the blend are the mean of a dark frame and of brighter ones that are clipped there, so highlights
// have lost the most contrast and get the full correction. Shadows come almost unchanged from the brightest frame: they
// get only this share, which also spares their noise.
constexpr float kShadowShare = 0.6f;
constexpr float kShadowTone = 0.2f;
constexpr float kHighlightTone = 0.6f;

// Stretched tones approach white smoothly instead of clipping: from the first on, never beyond the second.
constexpr float kShoulder = 0.95f;
constexpr float kTopTone = 0.997f;
// Local contrast leaves at least this share of a tone, so that no shadow is lost.
constexpr float kDarkestShare = 0.6f;

// White points below these are dark on purpose: brightening fades out between them.
constexpr float kNightWhite = 0.3f;
constexpr float kDayWhite = 0.6f;

// The same for the distance of the points: a wall of fog, or a single colour, has no contrast to restore.
constexpr float kFlatRange = 0.1f;
constexpr float kFullRange = 0.35f;

using Histogram = std::array<std::uint32_t, kBins>;

struct BandHistograms
{
    Histogram luminance{};
    Histogram strongest{};
};

// Pixels that are computed together, by channel, so that the loops over them vectorise.
constexpr int kBlock = 64;

struct Block
{
    float r[kBlock], g[kBlock], b[kBlock];
    float luminance[kBlock];
    float fineBase[kBlock]; // luminance of the picture at half size
    float change[kBlock];   // and what the filter changes there
    float factor[kBlock];
};

ORVO_INLINE void readBlock(Block& block, const PixelRGB<float>* pixels, int count)
{
    for (int i = 0; i < kBlock; ++i) {
        const PixelRGB<float>& p = pixels[i < count ? i : 0];
        block.r[i] = p.r;
        block.g[i] = p.g;
        block.b[i] = p.b;
    }
    for (int i = 0; i < kBlock; ++i)
        block.luminance[i] = luma601(block.r[i], block.g[i], block.b[i]);
}

// std::min(), std::max() and std::clamp() without references, which keep loops from being vectorised.
ORVO_INLINE float smaller(float a, float b) { return b < a ? b : a; }
ORVO_INLINE float larger(float a, float b) { return a < b ? b : a; }
ORVO_INLINE float limited01(float v) { return v < 0.0f ? 0.0f : (1.0f < v ? 1.0f : v); }

// The strongest channel in sRGB, the final space of most pictures: colours that fill the wide working space are beyond
// white there. Approximates light by the square of the value, precise enough to judge white.
ORVO_INLINE float strongestChannel(float encodedRed, float encodedGreen, float encodedBlue)
{
    const float r = encodedRed * encodedRed;
    const float g = encodedGreen * encodedGreen;
    const float b = encodedBlue * encodedBlue;
    const float red = 2.0364f * r - 0.7376f * g - 0.2988f * b;
    const float green = 1.2232f * g - 0.2257f * r + 0.0025f * b;
    const float blue = 1.1452f * b - 0.0105f * r - 0.1347f * g;
    return std::sqrt(larger(larger(larger(red, green), blue), 0.0f));
}

ORVO_INLINE int binOf(float value)
{
    const float limited = value > 0.0f ? smaller(value, kTop) : 0.0f; // also for NaN
    return static_cast<int>(limited * (static_cast<float>(kBins - 1) / kTop) + 0.5f);
}

float valueOf(std::size_t bin) { return static_cast<float>(bin) * (kTop / static_cast<float>(kBins - 1)); }

ORVO_INLINE float smoothStep(float from, float to, float value)
{
    const float t = limited01((value - from) / (to - from));
    return t * t * (3.0f - 2.0f * t);
}

struct Points
{
    float black = 0.0f;
    float middle = 0.5f;
    float white = 1.0f;
    float light = 1.0f; // the white point of luminance alone
};

// White is between the luminance and the strongest channel of the brightest pixels: with the latter alone one coloured
// lamp would keep the picture dark, and the shoulder compresses values that the former moves above white.
constexpr float kShareOfStrongest = 0.4f;

ORVO_VECTOR_CLONES void addPixels(BandHistograms& bands, const PixelRGB<float>* pixels, std::ptrdiff_t total)
{
    Block block;
    int dark[kBlock];
    int bright[kBlock];
    for (std::ptrdiff_t first = 0; first < total; first += kBlock) {
        const int count = static_cast<int>(std::min<std::ptrdiff_t>(kBlock, total - first));
        readBlock(block, pixels + first, count);
        for (int i = 0; i < kBlock; ++i) {
            dark[i] = binOf(block.luminance[i]);
            bright[i] = binOf(strongestChannel(block.r[i], block.g[i], block.b[i]));
        }
        for (int i = 0; i < count; ++i) {
            if (!std::isfinite(block.luminance[i]))
                continue;
            ++bands.luminance[static_cast<std::size_t>(dark[i])];
            ++bands.strongest[static_cast<std::size_t>(bright[i])];
        }
    }
}

// Measures black by luminance.
Points measure(const PixelRGB<float>* pixels, int width, int height)
{
    std::vector<BandHistograms> bands(kBands);
    forEachRow(kBands, [&](int band) {
        BandHistograms& own = bands[static_cast<std::size_t>(band)];
        const auto edge = [height](int index) { return static_cast<std::int64_t>(height) * index / kBands; };
        addPixels(own, pixels + edge(band) * width, (edge(band + 1) - edge(band)) * width);
    });
    std::vector<std::uint64_t> dark(kBins);
    std::vector<std::uint64_t> bright(kBins);
    std::uint64_t total = 0;
    for (const BandHistograms& band : bands) {
        for (std::size_t i = 0; i < kBins; ++i) {
            dark[i] += band.luminance[i];
            bright[i] += band.strongest[i];
            total += band.luminance[i];
        }
    }
    if (total == 0)
        return {};
    const auto beyond = static_cast<std::uint64_t>(kTail * static_cast<double>(total));
    std::size_t low = 0;
    for (std::uint64_t sum = dark[0]; sum <= beyond; sum += dark[low])
        ++low;
    const auto whiteOf = [beyond](const std::vector<std::uint64_t>& counts) {
        std::size_t high = kBins - 1;
        for (std::uint64_t sum = counts[high]; sum <= beyond; sum += counts[high])
            --high;
        return valueOf(high);
    };
    const float white = whiteOf(dark) + (whiteOf(bright) - whiteOf(dark)) * kShareOfStrongest;
    std::size_t middle = 0;
    for (std::uint64_t sum = dark[0]; sum <= total / 2; sum += dark[middle])
        ++middle;
    return {valueOf(low), valueOf(middle), white, whiteOf(dark)};
}

struct Levels
{
    float black = 0.0f; // subtracted from luminance
    float gain = 1.0f;
    float detail = 0.0f; // strength of the local contrast, 0..1
    float lift = 0.0f;   // of dark middle tones
    [[nodiscard]] bool isNeutral() const { return black == 0.0f && gain == 1.0f && detail == 0.0f && lift == 0.0f; }
};

Levels plan(const Points& points)
{
    Levels levels;
    const float contrast = smoothStep(kFlatRange, kFullRange, points.white - points.black);
    const float daylight = smoothStep(kNightWhite, kDayWhite, points.white);
    levels.black = std::clamp(points.black - kNormalBlack, 0.0f, kMostBlack) * contrast;
    const float range = points.white - levels.black;
    if (points.light > 1.0f)
        levels.gain = std::max(1.0f / points.light, kLeastGain);
    else if (range < kNormalWhite && range > 0.0f)
        levels.gain = 1.0f + (std::min(kNormalWhite / range, kMostGain) - 1.0f) * contrast * daylight;
    const float loss = points.black + std::max(0.0f, 1.0f - points.white);
    levels.detail = smoothStep(kNoticedLoss, kFullLoss, loss) * contrast * daylight;
    const float middle = std::max(points.middle - levels.black, 0.0f) * levels.gain;
    if (middle > 0.0f && middle < kDarkMiddle)
        levels.lift = std::min((kDarkMiddle - middle) / (middle * (1.0f - kDarkMiddle)), kMostLift) * levels.detail;
    return levels;
}

// The gain of luminance from local contrast. The filter runs at half size, for a quarter of the time; the finest
// differences, which it misses there, are raised by the same curve.
class LocalContrast
{
public:
    LocalContrast(const PixelRGB<float>* pixels, int fullWidth, int fullHeight)
        : width(std::max(fullWidth / 2, 1)), height(std::max(fullHeight / 2, 1)),
          base(static_cast<std::size_t>(width) * static_cast<std::size_t>(height)),
          change(static_cast<std::size_t>(width) * static_cast<std::size_t>(height))
    {
        const ManagedPlane<std::int16_t> raised(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
        const int right = std::min(1, fullWidth - 1);
        const int down = std::min(1, fullHeight - 1) * fullWidth;
        forEachRow(height, [&](int y) {
            const PixelRGB<float>* const row = pixels + static_cast<std::ptrdiff_t>(2 * y) * fullWidth;
            for (int x = 0; x < width; ++x) {
                const PixelRGB<float>* const p = row + 2 * x;
                const float mean =
                    0.25f * (luma601(p[0]) + luma601(p[right]) + luma601(p[down]) + luma601(p[down + right]));
                const float limited = mean > 0.0f ? std::min(mean, 1.0f) : 0.0f;
                raised[at(x, y)] = static_cast<std::int16_t>(limited * grfx::kGray16White);
                base[at(x, y)] = limited;
            }
        });
        grfx::local_laplacian_gray16(raised.data(), width, height, width, kDetail, kDetailFloor, kDetailSamples,
                                     kDetailThreshold, 1.0f);
        forEachRow(height, [&](int y) {
            for (int x = 0; x < width; ++x)
                change[at(x, y)] = static_cast<float>(raised[at(x, y)]) / grfx::kGray16White - base[at(x, y)];
        });
    }

    // Fills `fineBase` and `change` for the pixels from (x, y) of the full size on.
    void sample(Block& block, int x, int y) const
    {
        // A sample of the half size is between two pixels of the full one.
        const int top = std::clamp((y - 1) / 2, 0, height - 1);
        const int below = std::min(top + 1, height - 1);
        const float down = shareOfNext(y);
        sampleRow(base.data() + at(0, top), base.data() + at(0, below), down, x, width, block.fineBase);
        sampleRow(change.data() + at(0, top), change.data() + at(0, below), down, x, width, block.change);
    }

private:
    static ORVO_INLINE float shareOfNext(int i) { return i == 0 ? 0.0f : (i % 2 == 0 ? 0.75f : 0.25f); }

    static ORVO_INLINE float mixed(const float* row, int left, int right, float across)
    {
        return row[left] + (row[right] - row[left]) * across;
    }

    // `x` is a multiple of the block.
    ORVO_VECTOR_CLONES static void sampleRow(const float* __restrict above, const float* __restrict below, float down,
                                             int x, int width, float* __restrict out)
    {
        static_assert(kBlock % 2 == 0);
        const int half = x / 2;
        if (x > 0 && half + kBlock / 2 < width) { // inside, places and shares alternate
            for (int k = 0; k < kBlock / 2; ++k) {
                const int at = half + k;
                const float upperEven = mixed(above, at - 1, at, 0.75f);
                const float lowerEven = mixed(below, at - 1, at, 0.75f);
                const float upperOdd = mixed(above, at, at + 1, 0.25f);
                const float lowerOdd = mixed(below, at, at + 1, 0.25f);
                out[2 * k] = upperEven + (lowerEven - upperEven) * down;
                out[2 * k + 1] = upperOdd + (lowerOdd - upperOdd) * down;
            }
            return;
        }
        for (int i = 0; i < kBlock; ++i) {
            const int left = std::clamp((x + i - 1) / 2, 0, width - 1);
            const int right = std::min(left + 1, width - 1);
            const float across = shareOfNext(x + i);
            const float upper = mixed(above, left, right, across);
            const float lower = mixed(below, left, right, across);
            out[i] = upper + (lower - upper) * down;
        }
    }

    [[nodiscard]] std::size_t at(int x, int y) const
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x);
    }

    int width;
    int height;
    ManagedPlane<float> base;   // luminance
    ManagedPlane<float> change; // the filter's change of it
};

// The gain of luminance for pixels of luminance `value`.
ORVO_INLINE float localGain(float value, float fineBase, float change)
{
    const float fine = value - fineBase;
    const float size = smaller(std::abs(fine), kDetailThreshold);
    const float raised = larger(0.0f, kFineGain * size / (1.0f + (kFineGain - 1.0f) * size / kDetailThreshold) - size);
    const float kept = smoothStep(kDetailFloor, 2.0f * kDetailFloor, size) * raised;
    return change + (fine < 0.0f ? -kept : kept);
}

// Subtracts `black` from luminance; near it a parabola with the same slope takes over, so that shadows end at 0 without
// clipping.
ORVO_INLINE float leveled(float y, const Levels& levels)
{
    const float black = levels.black;
    const float left = y >= 2.0f * black ? y - black : y * y / (4.0f * black);
    const float scaled = left * levels.gain;
    return scaled < 1.0f ? scaled * (1.0f + levels.lift) / (1.0f + levels.lift * scaled) : scaled;
}

// Stays below white with a continuous slope. Tones that were at white before may be there again.
ORVO_INLINE float shouldered(float strongest, float before)
{
    const float top = larger(kTopTone, smaller(before, 1.0f));
    const float above = strongest - kShoulder;
    const float bent = kShoulder + above / (1.0f + above / (top - kShoulder));
    return strongest <= kShoulder ? strongest : bent;
}

// `local`: whether the block has samples of the local contrast.
ORVO_VECTOR_CLONES void factorsOf(Block& block, const Levels& levels_, bool local)
{
    const Levels levels = levels_;
    const float strength = levels.gain * levels.detail;
    // Each step a loop of its own: together they are too much for a compiler to vectorise.
    float target[kBlock];
    for (int i = 0; i < kBlock; ++i)
        target[i] = leveled(block.luminance[i], levels);
    if (local)
        for (int i = 0; i < kBlock; ++i) {
            const float y = block.luminance[i];
            const float plain = target[i];
            const float share = kShadowShare + (1.0f - kShadowShare) * smoothStep(kShadowTone, kHighlightTone, y);
            const float raised = strength * share * localGain(y, block.fineBase[i], block.change[i]);
            target[i] = larger(plain + raised, kDarkestShare * plain);
        }
    float limited[kBlock];
    float strongest[kBlock];
    for (int i = 0; i < kBlock; ++i)
        strongest[i] = strongestChannel(block.r[i], block.g[i], block.b[i]);
    for (int i = 0; i < kBlock; ++i) {
        const float factor = target[i] / block.luminance[i];
        limited[i] = larger(1.0f, shouldered(strongest[i] * factor, strongest[i]) / strongest[i]);
    }
    for (int i = 0; i < kBlock; ++i) {
        const float y = block.luminance[i];
        const float factor = target[i] / y;
        const float bright = factor > 1.0f ? limited[i] : factor;
        const float wanted = strongest[i] > 0.0f ? bright : factor;
        const float positive = y > 0.0f ? wanted : 1.0f;
        block.factor[i] = y <= std::numeric_limits<float>::max() ? positive : 1.0f;
    }
}

ORVO_VECTOR_CLONES void scaleBlock(const Block& block, PixelRGB<float>* pixels, int count)
{
    for (int i = 0; i < count; ++i)
        pixels[i] = {block.r[i] * block.factor[i], block.g[i] * block.factor[i], block.b[i] * block.factor[i]};
}

} // namespace

void normalize_for_hdr(PixelRGB<float>* pixels, int width, int height)
{
    if (pixels == nullptr || width <= 0 || height <= 0)
        return;
    const ScopedTimer timer("normalize_for_hdr", 0);
    const Levels levels = plan(measure(pixels, width, height));
    if (levels.isNeutral())
        return;
    std::optional<LocalContrast> local;
    if (levels.detail > 0.0f)
        local.emplace(pixels, width, height);
    forEachRow(height, [&](int row) {
        PixelRGB<float>* const line = pixels + static_cast<std::ptrdiff_t>(row) * width;
        Block block{};
        for (int x = 0; x < width; x += kBlock) {
            const int count = std::min(kBlock, width - x);
            readBlock(block, line + x, count);
            if (local)
                local->sample(block, x, row);
            factorsOf(block, levels, local.has_value());
            scaleBlock(block, line + x, count);
        }
    });
}

} // namespace orvo
