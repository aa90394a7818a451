#include "encoded_gain.hpp"
#include "pale_highlights.hpp"
#include "scene_agreement.hpp"
#include "tone_map_fit.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/auto_exposure.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <optional>
#include <vector>

namespace orvo {

namespace {

using detail::FittedCurve;
using detail::PatchPairs;
using detail::ToneCurve;

// The curve as a table over the square root of the value, which is finer where a strong exposure is steep. It covers
// values of 0..4; beyond, the last piece is extrapolated.
constexpr int kTableSize = 8192;
constexpr float kTableReach = 2.0f;
constexpr float kPerRoot = static_cast<float>(kTableSize - 1) / kTableReach;
constexpr float kLargestRoot = 1e6f;

constexpr float kMiddleLow = 0.2f; // limits of the middle tone reported as pivot
constexpr float kMiddleHigh = 0.6f;

/// No value is below `least`.
void fillTable(float* table, const ToneCurveMap& map, float least)
{
    const ToneCurve curve(map);
    float largest = least;
    for (int i = 0; i < kTableSize; ++i) {
        const float root = static_cast<float>(i) / kPerRoot;
        largest = std::max(largest, curve(root * root)); // monotone despite the rounding of the pieces
        table[i] = largest;
    }
}

// White is neutral. The channels' curves are fitted separately and end at different heights, which would tint all
// clipped areas; pixels whose darkest channel exceeds the first limit converge and are equal at the second.
constexpr float kMeetFrom = 0.97f;
constexpr float kMeetAt = 1.0f;

// Distances below the strongest channel up to which a channel goes with it, and from which it is on its own.
constexpr float kBesideUntil = 0.015f;
constexpr float kApartFrom = 0.05f;

// Pixels that are mapped together: by channel, so that the loops over them vectorise.
constexpr std::size_t kBlockPixels = 64;

struct Block
{
    float in[3][kBlockPixels];
    float out[3][kBlockPixels];
};

/// Two neighbours of a table, which one load of 64 bits takes.
struct TablePair
{
    float low, high;
};

/// In three loops: compilers leave a loop that reads tables at computed places in single steps.
ORVO_INLINE void lookUpBlock(Block& block, const float* __restrict tables)
{
    for (std::size_t c = 0; c < 3; ++c) {
        const float* const table = tables + c * kTableSize;
        int indices[kBlockPixels];
        float beyond[kBlockPixels];
        TablePair pairs[kBlockPixels];
        for (std::size_t i = 0; i < kBlockPixels; ++i) {
            const float v = block.in[c][i];
            const float root = std::sqrt(v > 0.0f ? v : 0.0f);
            const float place = (root < kLargestRoot ? root : kLargestRoot) * kPerRoot;
            const float whole = place < static_cast<float>(kTableSize - 2) ? place : static_cast<float>(kTableSize - 2);
            indices[i] = static_cast<int>(whole);
            beyond[i] = place - static_cast<float>(indices[i]);
        }
        for (std::size_t i = 0; i < kBlockPixels; ++i)
            std::memcpy(&pairs[i], table + indices[i], sizeof(TablePair));
        for (std::size_t i = 0; i < kBlockPixels; ++i)
            block.out[c][i] = pairs[i].low + beyond[i] * (pairs[i].high - pairs[i].low);
    }
}

ORVO_INLINE bool anyAbove(const float (&values)[kBlockPixels], float limit)
{
    int found = 0;
    for (const float value : values)
        found |= value > limit ? 1 : 0;
    return found != 0;
}

/// Brings the channels together near white. `clippedTone`: the lower limit of white.
ORVO_INLINE void whitenBlock(Block& block, float clippedTone)
{
    for (std::size_t i = 0; i < kBlockPixels; ++i) {
        float darkest = kLargestRoot;
        float least = kLargestRoot;
        float brightest = clippedTone;
        float strongest = 0.0f;
        for (std::size_t c = 0; c < 3; ++c) {
            const float v = block.in[c][i];
            const float mapped = block.out[c][i];
            strongest = v > strongest ? v : strongest;
            darkest = v < darkest ? v : darkest;
            least = mapped < least ? mapped : least;
            brightest = mapped > brightest ? mapped : brightest;
        }
        const float reach = (darkest - kMeetFrom) / (kMeetAt - kMeetFrom);
        const float meet = reach > 0.0f ? (reach < 1.0f ? reach : 1.0f) : 0.0f;
        // Two channels near the limit go together: otherwise the more clipped one would fall below the other, and a
        // pale cyan would turn blue. Channels further below it are measured and stay.
        const float pale = detail::paleShare(darkest) * detail::clippedShare(strongest);
        for (std::size_t c = 0; c < 3; ++c) {
            const float mapped = block.out[c][i];
            const float beside = 1.0f - detail::smoothStep(strongest - block.in[c][i], kBesideUntil, kApartFrom);
            const float even = mapped + (least - mapped) * pale * beside;
            block.out[c][i] = even + (brightest - even) * meet;
        }
    }
}

/// `tables`: one for each channel, one after another. `from` and `to` may be the same.
ORVO_VECTOR_CLONES void applyTables(const float* from, float* to, std::size_t pixels, const float* __restrict tables,
                                    float clippedTone)
{
    Block block;
    for (std::size_t first = 0; first < pixels; first += kBlockPixels) {
        const std::size_t count = std::min(kBlockPixels, pixels - first);
        const float* const samples = from + 3 * first;
        if (count < kBlockPixels)
            for (auto& channel : block.in)
                std::fill(channel, channel + kBlockPixels, 0.0f);
        for (std::size_t i = 0; i < count; ++i) {
            block.in[0][i] = samples[3 * i];
            block.in[1][i] = samples[3 * i + 1];
            block.in[2][i] = samples[3 * i + 2];
        }
        lookUpBlock(block, tables);
        bool nearWhite = false;
        for (const auto& channel : block.in)
            nearWhite = nearWhite || anyAbove(channel, kMeetFrom);
        if (nearWhite)
            whitenBlock(block, clippedTone);
        float* const target = to + 3 * first;
        for (std::size_t i = 0; i < count; ++i) {
            target[3 * i] = block.out[0][i];
            target[3 * i + 1] = block.out[1][i];
            target[3 * i + 2] = block.out[2][i];
        }
    }
}

float lookUp(const float* table, float v)
{
    const float place = std::min(std::sqrt(std::max(v, 0.0f)) * kPerRoot, static_cast<float>(kTableSize - 2));
    const int index = static_cast<int>(place);
    return table[index] + (place - static_cast<float>(index)) * (table[index + 1] - table[index]);
}

detail::ToneLimits limitsOf(const float* table)
{
    constexpr int kStepsOf8Bits = 255;
    detail::ToneLimits limits;
    limits.shoulder = lookUp(table, detail::kShoulderShare);
    limits.ceiling = lookUp(table, detail::kClippedShare);
    for (int i = 0; i <= kStepsOf8Bits; ++i) {
        const auto value = [&](int k) { return lookUp(table, static_cast<float>(k) / kStepsOf8Bits); };
        const float here = value(i);
        const float step = std::max(here - value(std::max(0, i - 1)), value(i + 1) - here);
        // A steep map leaves gaps between the tones it gives.
        const int first = detail::toneBin(value(std::max(0, i - 1)));
        const int last = detail::toneBin(value(i + 1));
        for (int bin = first; bin <= last; ++bin) {
            float& largest = limits.step[static_cast<std::size_t>(bin)];
            largest = std::max(largest, step);
        }
    }
    return limits;
}

// In the place of a brighter frame: raised by stops, the noise of dark tones would go below all that it shows, and a
// thousandth of the pixels of a merge is its black.
void fillTables(float* tables, const auto_exposure_data_t& data, bool isForFrame)
{
    for (std::size_t c = 0; c < 3; ++c)
        fillTable(tables + c * kTableSize, data.curves[c], isForFrame ? data.curves[c].black : 0.0f);
}

ORVO_VECTOR_CLONES void mixByShares(const float* __restrict from, float* __restrict to, const float* __restrict shares,
                                    std::size_t pixels)
{
    for (std::size_t i = 0; i < pixels; ++i)
        for (std::size_t c = 0; c < 3; ++c) {
            const float mixed = to[3 * i + c] + (from[3 * i + c] - to[3 * i + c]) * shares[i];
            to[3 * i + c] = shares[i] < 1.0f ? mixed : from[3 * i + c];
        }
}

// Brightest channels, encoded, between which the curves give way: above, a pixel may be partly clipped in its file.
constexpr float kHueFrom = 0.85f;
constexpr float kHueAt = 0.95f;
// Change of the light by the recovery of the hue, as a share of the luminance, from which the curves give way too.
constexpr float kRecovered = 0.01f;
constexpr float kRecoverable = 0.7f; // darker pixels, by the brightest channel, are never clipped
// A brighter frame clips such a pixel itself. Shares of light that the map leaves.
constexpr float kDarkerFrom = 1.0f;
constexpr float kDarkerAt = 0.8f;
constexpr float kLeastLight = 1e-6f; // far below the first step of 16 bits; keeps the quotients finite

using Channels = float[3][kBlockPixels];

void gather(const float* samples, std::size_t count, Channels& result)
{
    for (std::size_t i = 0; i < kBlockPixels; ++i)
        for (std::size_t c = 0; c < 3; ++c)
            result[c][i] = i < count ? samples[3 * i + c] : 0.0f;
}

/// Gives `mapped` the colour of `hue` times `tint` at its own luminance. `original`: the pixels before the map.
ORVO_VECTOR_CLONES void takeHues(Channels& __restrict mapped, const Channels& __restrict original,
                                 const Channels& __restrict hue, const float* __restrict tint)
{
    // Each step a loop of its own: together they are too much for a compiler to vectorise.
    Channels light;
    Channels wanted;
    float luminance[kBlockPixels];
    float before[kBlockPixels];
    float after[kBlockPixels];
    float change[kBlockPixels];
    float brightest[kBlockPixels];
    for (std::size_t i = 0; i < kBlockPixels; ++i) {
        luminance[i] = before[i] = kLeastLight;
        after[i] = change[i] = brightest[i] = 0.0f;
    }
    for (std::size_t c = 0; c < 3; ++c) {
        float own[kBlockPixels];
        for (std::size_t i = 0; i < kBlockPixels; ++i)
            own[i] = detail::fastLinear(original[c][i]);
        for (std::size_t i = 0; i < kBlockPixels; ++i)
            wanted[c][i] = detail::fastLinear(hue[c][i]);
        for (std::size_t i = 0; i < kBlockPixels; ++i)
            light[c][i] = detail::fastLinear(mapped[c][i]);
        const float weight = detail::kLuminance[c];
        const float tinted = tint[c];
        for (std::size_t i = 0; i < kBlockPixels; ++i) {
            const float changed = std::abs(wanted[c][i] - own[i]);
            change[i] = changed > change[i] ? changed : change[i];
            luminance[i] += weight * own[i];
            wanted[c][i] *= tinted;
            before[i] += weight * wanted[c][i];
            after[i] += weight * light[c][i];
            brightest[i] = original[c][i] > brightest[i] ? original[c][i] : brightest[i];
        }
    }
    float gain[kBlockPixels];
    float share[kBlockPixels];
    for (std::size_t i = 0; i < kBlockPixels; ++i) {
        gain[i] = after[i] / before[i];
        const float recovered = detail::smoothStep(change[i], 0.0f, kRecovered * luminance[i]);
        const float bright = detail::smoothStep(brightest[i], kHueFrom, kHueAt);
        share[i] =
            (recovered > bright ? recovered : bright) * (1.0f - detail::smoothStep(gain[i], kDarkerAt, kDarkerFrom));
    }
    for (std::size_t c = 0; c < 3; ++c)
        for (std::size_t i = 0; i < kBlockPixels; ++i) {
            const float mixed = detail::fastEncoded(light[c][i] + (wanted[c][i] * gain[i] - light[c][i]) * share[i]);
            mapped[c][i] = share[i] > 0.0f ? mixed : mapped[c][i];
        }
}

void takeHues(float* mapped, const float* original, const float* hues, std::size_t pixels, const float* tint)
{
    for (std::size_t first = 0; first < pixels; first += kBlockPixels) {
        const std::size_t count = std::min(kBlockPixels, pixels - first);
        const float* const from = original + 3 * first;
        if (std::none_of(from, from + 3 * count, [](float v) { return v > kRecoverable; }))
            continue;
        Channels before;
        Channels wanted;
        Channels result;
        gather(from, count, before);
        gather(hues + 3 * first, count, wanted);
        gather(mapped + 3 * first, count, result);
        takeHues(result, before, wanted, tint);
        for (std::size_t i = 0; i < count; ++i)
            for (std::size_t c = 0; c < 3; ++c)
                mapped[3 * (first + i) + c] = result[c][i];
    }
}

bool isNeutral(const auto_exposure_data_t& data)
{
    return std::all_of(data.curves.begin(), data.curves.end(), [](const ToneCurveMap& map) { return map.knots == 0; });
}

FittedCurve fitAllChannels(const PatchPairs& pairs)
{
    std::vector<detail::PatchPair> all;
    for (const auto& channel : pairs.channels)
        all.insert(all.end(), channel.begin(), channel.end());
    return detail::fitCurve(all);
}

// The tone of the first frame where the second is clipped in all channels: the median brightness of those patches;
// empty if there are too few.
std::optional<float> toneOfClipped(const PatchPairs& pairs)
{
    constexpr float kClippedMean = 0.98f;
    constexpr std::size_t kFewest = 16;
    std::vector<float> tones;
    for (std::size_t i = 0; i < pairs.channels[0].size(); ++i) {
        const auto of = [&](std::size_t c) -> const detail::PatchPair& { return pairs.channels[c][i]; };
        if (std::min({of(0).b, of(1).b, of(2).b}) > kClippedMean)
            tones.push_back((of(0).a + of(1).a + of(2).a) / 3.0f);
    }
    if (tones.size() < kFewest)
        return std::nullopt;
    const auto middle = tones.begin() + static_cast<std::ptrdiff_t>(tones.size() / 2);
    std::nth_element(tones.begin(), middle, tones.end());
    return *middle;
}

} // namespace

void autoExposureEstimateRGB(const float* a, const float* b, int width, int height, auto_exposure_data_t& data,
                             int mode)
{
    data = {};
    PatchPairs pairs = detail::collectPatches(a, b, width, height);
    if (pairs.equal)
        return;
    detail::dropMovedPatches(pairs);
    std::array<FittedCurve, 4> fits; // the channels, then all together
    forEachRow(4, [&](int i) {
        const auto c = static_cast<std::size_t>(i);
        if (i == 3)
            fits[c] = fitAllChannels(pairs);
        else if ((mode >> i & 1) != 0)
            fits[c] = detail::fitCurve(pairs.channels[c]);
    });
    const FittedCurve& common = fits[3];
    data.expV = 1.0f + common.map.ev * 0.1f;
    data.expM = std::clamp(common.middle, kMiddleLow, kMiddleHigh);
    data.contr = common.contrast;
    // A channel without enough usable tones of its own uses the shared curve.
    for (std::size_t c = 0; c < 3; ++c)
        data.curves[c] = fits[c].map.knots > 0 ? fits[c].map : common.map;
    data.clippedTone = toneOfClipped(pairs);
}

struct ReexposedFrame::State
{
    State(const float* a, const float* b, int width, int height, const auto_exposure_data_t& data)
        : clippedTone(data.clippedTone.value_or(0.0f)), tables(3 * kTableSize)
    {
        fillTables(tables.data(), data, a != nullptr);
        for (std::size_t c = 0; c < 3; ++c)
            tint[c] = detail::fastLinear(lookUp(tables.data() + c * kTableSize, kMiddleHigh));
        const float middle = tint[1] > 0.0f ? tint[1] : 1.0f;
        isDarker = middle < detail::fastLinear(kMiddleHigh);
        for (float& each : tint)
            each /= middle;
        const auto stride = 3 * static_cast<std::size_t>(width);
        const auto mappedRow = [&](int y, float* scratch) {
            map(b + static_cast<std::size_t>(y) * stride, scratch, static_cast<std::size_t>(width));
            return scratch;
        };
        if (a != nullptr)
            agreement.emplace(a, mappedRow, width, height,
                              std::array{limitsOf(tables.data()), limitsOf(tables.data() + kTableSize),
                                         limitsOf(tables.data() + 2 * kTableSize)});
    }

    void map(const float* from, float* to, std::size_t pixels, const float* hues = nullptr) const
    {
        applyTables(from, to, pixels, tables.data(), clippedTone);
        if (hues != nullptr)
            takeHues(to, from, hues, pixels, tint.data());
    }

    float clippedTone;
    ManagedPlane<float> tables;
    bool isDarker = false;
    std::array<float, 3> tint{}; ///< the map's gains at a tone that is not clipped, in units of green's
    std::optional<detail::SceneAgreement> agreement;
};

ReexposedFrame::ReexposedFrame(const PixelRGB<float>* a, const PixelRGB<float>* b, int width, int height,
                               const auto_exposure_data_t& data)
{
    if (width > 0 && height > 0 && !isNeutral(data))
        state = std::make_unique<State>(reinterpret_cast<const float*>(a), reinterpret_cast<const float*>(b), width,
                                        height, data);
}

ReexposedFrame::~ReexposedFrame() = default;
ReexposedFrame::ReexposedFrame(ReexposedFrame&&) noexcept = default;
ReexposedFrame& ReexposedFrame::operator=(ReexposedFrame&&) noexcept = default;

void ReexposedFrame::row(int y, int first, int end, const PixelRGB<float>* a, const PixelRGB<float>* b,
                         PixelRGB<float>* result, const PixelRGB<float>* hues) const
{
    const auto pixels = static_cast<std::size_t>(end - first);
    if (!state) {
        std::memmove(static_cast<void*>(result), b, pixels * sizeof(PixelRGB<float>));
        return;
    }
    const float* const from = &b->r;
    float* const to = &result->r;
    const float* const hue = hues != nullptr && state->isDarker ? &hues->r : nullptr;
    if (!state->agreement || state->agreement->isNowhere()) {
        state->map(from, to, pixels, hue);
        return;
    }
    // Where both show the same, the frame itself is the best estimate of the scene at its exposure.
    float shares[kBlockPixels];
    for (std::size_t p = 0; p < pixels; p += kBlockPixels) {
        const std::size_t count = std::min(kBlockPixels, pixels - p);
        const int x = first + static_cast<int>(p);
        state->agreement->rowShares(y, x, x + static_cast<int>(count), shares);
        if (std::all_of(shares, shares + count, [](float share) { return share >= 1.0f; })) {
            std::memcpy(to + 3 * p, &a[p].r, count * sizeof(PixelRGB<float>));
            continue;
        }
        state->map(from + 3 * p, to + 3 * p, count, hue != nullptr ? hue + 3 * p : nullptr);
        mixByShares(&a[p].r, to + 3 * p, shares, count);
    }
}

bool ReexposedFrame::usesHues() const { return state && state->isDarker; }

bool ReexposedFrame::isFrameItself(const _Rect<int>& area) const
{
    if (!state || !state->agreement || state->agreement->isNowhere())
        return false;
    return state->agreement->isEverywhere(area.x, area.y, area.x + area.width, area.y + area.height);
}

void autoExposureApplyRGB(const PixelRGB<float>* a, PixelRGB<float>* b, int width, int height,
                          const auto_exposure_data_t& data)
{
    if (width <= 0 || height <= 0 || isNeutral(data))
        return;
    const ReexposedFrame reexposed(a, b, width, height, data);
    forEachRow(height, [&](int y) {
        const std::size_t offset = static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
        reexposed.row(y, 0, width, a != nullptr ? a + offset : nullptr, b + offset, b + offset);
    });
}

void autoExposureAdjustRGB(const float* a, float* b, int width, int height)
{
    auto_exposure_data_t data;
    autoExposureEstimateRGB(a, b, width, height, data, 7);
    autoExposureApplyRGB(nullptr, b, width, height, data); // the frames need not be aligned
}

void autoExposureEstimateRGB(const PixelRGB<float>* a, const PixelRGB<float>* b, int width, int height,
                             auto_exposure_data_t& data, int mode)
{
    autoExposureEstimateRGB(reinterpret_cast<const float*>(a), reinterpret_cast<const float*>(b), width, height, data,
                            mode);
}

void autoExposureApplyRGB(const float* a, float* b, int width, int height, const auto_exposure_data_t& data)
{
    autoExposureApplyRGB(reinterpret_cast<const PixelRGB<float>*>(a), reinterpret_cast<PixelRGB<float>*>(b), width,
                         height, data);
}

void autoExposureAdjustRGB(const PixelRGB<float>* a, PixelRGB<float>* b, int width, int height)
{
    autoExposureAdjustRGB(reinterpret_cast<const float*>(a), reinterpret_cast<float*>(b), width, height);
}

} // namespace orvo
