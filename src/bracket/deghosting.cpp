#include "bracket/deghosting.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/guided_filter.hpp>
#include <orvo_logger/logstream.hpp>

#include <algorithm>
#include <array>
#include <cmath>

namespace orvo {
namespace {

// Sensitivity = amount * kSensitivityStep * kSensitivitySpan + kLowestSensitivity: 0.75 to 2.5 for amounts 0 to 4.
constexpr float kSensitivityStep = 0.25f;
constexpr float kSensitivitySpan = 1.75f;
constexpr float kLowestSensitivity = 0.75f;

// Fine structure is what a guided filter of a thirtieth of the width takes away.
constexpr int kWidthsPerRadius = 30;
constexpr float kGuidedEps = 0.2f;

// A reference brighter than this on the mean of its channels, of 255, is blown out and shows no structure to compare.
constexpr float kBlownOut = 245.0f;

// The curve from a difference of structure to a mark.
constexpr float kMarkContrast = 3.0f;

// Of replaced pixels.
constexpr float kBrightest = 2.0f;

// Exposure maps by channel.
constexpr int kByChannel = 7;

constexpr std::size_t kLevels = 256; // of the mask

using Pixel = PixelRGB<float>;

// What the guided filter takes away, limited to 0..1 by channel and summed.
ORVO_INLINE float structureOf(const Pixel& v, const Pixel& smooth)
{
    const Pixel limited =
        clampValue(Pixel{std::abs(v.r - smooth.r), std::abs(v.g - smooth.g), std::abs(v.b - smooth.b)});
    return limited.r + limited.g + limited.b;
}

ORVO_INLINE void structuresOf(const Pixel* __restrict values, const Pixel* __restrict smooth, float* __restrict out,
                              int pixels)
{
    for (int x = 0; x < pixels; ++x)
        out[x] = structureOf(values[x], smooth[x]);
}

// A row of the frame and of the reference at its exposure, each with what the guided filter makes of it.
struct ComparedRow
{
    const Pixel* frame;
    const Pixel* smoothFrame;
    const Pixel* mapped;
    const Pixel* smoothMapped;
    const Pixel* reference;
};

ORVO_VECTOR_CLONES void markRow(const ComparedRow& row, std::uint8_t* __restrict marks, float sensitivity, int count)
{
    constexpr int kTogether = 64; // by steps that vectorise
    float ofFrame[kTogether];
    float ofMapped[kTogether];
    float brightness[kTogether];
    for (int first = 0; first < count; first += kTogether) {
        const int pixels = std::min(kTogether, count - first);
        structuresOf(row.frame + first, row.smoothFrame + first, ofFrame, pixels);
        structuresOf(row.mapped + first, row.smoothMapped + first, ofMapped, pixels);
        const Pixel* __restrict const reference = row.reference + first;
        for (int x = 0; x < pixels; ++x)
            brightness[x] = (reference[x].r + reference[x].g + reference[x].b) / 3.0f * 255.0f;
        std::uint8_t* __restrict const out = marks + first;
        for (int x = 0; x < pixels; ++x) {
            const float difference = std::abs(ofFrame[x] - ofMapped[x]);
            const float d = (difference + difference) * sensitivity;
            const float limited = d < 0.0f ? 0.0f : (1.0f < d ? 1.0f : d);
            const float v = (limited - 0.5f) * kMarkContrast * sensitivity + 0.5f;
            const int isShown = brightness[x] < kBlownOut ? 1 : 0;
            const int differs = v > 0.0f ? 1 : 0;
            out[x] = static_cast<std::uint8_t>(out[x] | (isShown & differs));
        }
    }
}

ORVO_INLINE float mixed(float value, float wanted, float m)
{
    const float v = value + (wanted - value) * m;
    return v >= kBrightest ? kBrightest : (v > 0.0f ? v : 0.0f);
}

ORVO_VECTOR_CLONES void limitPixels(float* samples, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = mixed(samples[i], samples[i], 0.0f);
}

ORVO_VECTOR_CLONES void mixPixels(float* samples, const float* wanted, const float* weights, std::size_t pixels)
{
    for (std::size_t p = 0; p < pixels; ++p)
        for (std::size_t c = 0; c < 3; ++c)
            samples[3 * p + c] = mixed(samples[3 * p + c], wanted[3 * p + c], weights[p]);
}

std::array<float, kLevels> weightTable()
{
    std::array<float, kLevels> table{};
    for (std::size_t level = 0; level < table.size(); ++level)
        table[level] = GhostMask::weightOf(static_cast<std::uint8_t>(level));
    return table;
}

} // namespace

Deghosting::Deghosting(_Size<int> size_, DeghostAmount amount, std::size_t frameCount, int referenceIndex)
    : size(size_), sensitivity(static_cast<float>(static_cast<int>(amount)) * kSensitivityStep * kSensitivitySpan +
                               kLowestSensitivity),
      mask(size_.width, size_.height)
{
    LOG(__orvolog() << "[Deghosting] " << size.width << "x" << size.height << " refIdx: " << referenceIndex
                    << "deghostAmount: " << static_cast<int>(amount));
    maps.resize(frameCount);
}

void Deghosting::compare(std::size_t index, const Pixel* frame, const Pixel* reference)
{
    auto_exposure_data_t data;
    autoExposureEstimateRGB(frame, reference, size.width, size.height, data, kByChannel);
    maps[index] = std::make_unique<ReexposedFrame>(frame, reference, size.width, size.height, data);
    const ReexposedFrame& map = *maps[index];
    const int radius = size.width / kWidthsPerRadius; // truncated
    if (radius < 1)
        return; // no surroundings, hence no structure
    const auto stride = static_cast<std::size_t>(size.width);
    const auto at = [stride](int x, int y) {
        return static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(x);
    };
    const auto rowOfMap = [&](int y, int first, int end, Pixel* result) {
        map.row(y, first, end, frame + at(first, y), reference + at(first, y), result);
    };

    GuidedFilter ofFrame(size.width, size.height, static_cast<float>(radius), kGuidedEps);
    GuidedFilter ofMapped(size.width, size.height, static_cast<float>(radius), kGuidedEps);
    forEachRow(ofFrame.blockRows(), [&](int block) {
        const int top = ofFrame.firstRow(block);
        const int bottom = ofFrame.endRow(block);
        ofFrame.measure(block, frame + at(0, top));
        if (map.isFrameItself({0, top, size.width, bottom - top})) {
            ofMapped.measureLike(block, ofFrame);
            return;
        }
        const ManagedPlane<Pixel> rows(at(0, bottom - top));
        for (int y = top; y < bottom; ++y)
            rowOfMap(y, 0, size.width, rows.data() + at(0, y - top));
        ofMapped.measure(block, rows.data());
    });
    ofFrame.solve();
    ofMapped.solve();

    // Where the reference at the frame's exposure is the frame itself, as far as the filter reaches, both have one
    // structure, and the rounding of the filter is far below a mark.
    const int reach = ofFrame.influence();
    const auto isSame = [&](const _Rect<int>& tile) {
        const int left = std::max(0, tile.x - reach);
        const int top = std::max(0, tile.y - reach);
        const int right = std::min(size.width, tile.x + tile.width + reach);
        const int bottom = std::min(size.height, tile.y + tile.height + reach);
        return map.isFrameItself({left, top, right - left, bottom - top});
    };
    const auto markTile = [&](int column, int row) {
        const _Rect<int> tile = ofFrame.tile(column, row);
        if (tile.height <= 0 || isSame(tile))
            return;
        const auto columns = static_cast<std::size_t>(tile.width);
        const std::size_t pixels = columns * static_cast<std::size_t>(tile.height);
        const ManagedPlane<Pixel> scratch(3 * pixels);
        Pixel* const mapped = scratch.data();
        Pixel* const smoothMapped = mapped + pixels;
        Pixel* const smoothFrame = smoothMapped + pixels;
        for (int i = 0; i < tile.height; ++i)
            rowOfMap(tile.y + i, tile.x, tile.x + tile.width, mapped + static_cast<std::size_t>(i) * columns);
        ofFrame.apply(column, row, frame + at(tile.x, tile.y), smoothFrame, stride, columns);
        ofMapped.apply(column, row, mapped, smoothMapped, columns, columns);
        for (int i = 0; i < tile.height; ++i) {
            const std::size_t offset = static_cast<std::size_t>(i) * columns;
            const std::size_t place = at(tile.x, tile.y + i);
            markRow({frame + place, smoothFrame + offset, mapped + offset, smoothMapped + offset, reference + place},
                    mask.marks(tile.y + i) + tile.x, sensitivity, tile.width);
        }
    };
    forEachRow(ofFrame.tileRows() * ofFrame.tileColumns(),
               [&](int i) { markTile(i % ofFrame.tileColumns(), i / ofFrame.tileColumns()); });
}

void Deghosting::finishMask() { mask.grow(); }

void Deghosting::replaceRow(std::size_t index, int y, Pixel* frame, const ReferenceRow& reference,
                            const ReferenceRow& hues) const
{
    static const std::array<float, kLevels> kWeights = weightTable();
    for (int first = 0, end = 0; first < size.width; first = end) {
        const bool isClear = mask.isClear(y, first, end);
        const auto pixels = static_cast<std::size_t>(end - first);
        Pixel* const target = frame + first;
        if (isClear) {
            limitPixels(&target->r, 3 * pixels);
            continue;
        }
        std::array<Pixel, GhostMask::kTile> scratch;
        std::array<Pixel, GhostMask::kTile> hueScratch;
        std::array<Pixel, GhostMask::kTile> wanted;
        std::array<float, GhostMask::kTile> weights;
        const std::uint8_t* const levels = mask.levels(y) + first;
        for (std::size_t i = 0; i < pixels; ++i)
            weights[i] = kWeights[levels[i]];
        const bool takesHues =
            hues && maps[index]->usesHues() && !maps[index]->isFrameItself({first, y, end - first, 1});
        maps[index]->row(y, first, end, target, reference(y, first, end, scratch.data()), wanted.data(),
                         takesHues ? hues(y, first, end, hueScratch.data()) : nullptr);
        mixPixels(&target->r, &wanted[0].r, weights.data(), pixels);
    }
}

template <typename Frame>
void processDeghosting(std::vector<Frame>& frames, DeghostAmount amount, int referenceIndex,
                       const HighlightHueRecovery* hues)
{
    const _Size<int> size = frames[0].image->size();
    if (size.width <= 0 || size.height <= 0)
        return;
    const auto at = static_cast<std::size_t>(referenceIndex);
    const Pixel* const reference = frames[at].image->data();
    Deghosting deghosting(size, amount, frames.size(), referenceIndex);
    for (std::size_t i = 0; i < frames.size(); ++i)
        if (i != at)
            deghosting.compare(i, frames[i].image->data(), reference);
    deghosting.finishMask();
    const auto stride = static_cast<std::size_t>(size.width);
    const auto referenceRow = [&](int y, int first, int, Pixel*) {
        return reference + static_cast<std::size_t>(y) * stride + first;
    };
    Deghosting::ReferenceRow hueRow;
    if (hues != nullptr)
        hueRow = [&](int y, int first, int end, Pixel* scratch) {
            std::copy_n(referenceRow(y, first, end, nullptr), end - first, scratch);
            hues->row(y, first, end, scratch);
            return static_cast<const Pixel*>(scratch);
        };
    for (std::size_t i = 0; i < frames.size(); ++i)
        if (i != at)
            forEachRow(size.height, [&](int y) {
                deghosting.replaceRow(i, y, frames[i].image->data() + static_cast<std::size_t>(y) * stride,
                                      referenceRow, hueRow);
            });
}

template void processDeghosting<HDRFrame>(std::vector<HDRFrame>&, DeghostAmount, int, const HighlightHueRecovery*);
template void processDeghosting<FocusStackerFrame>(std::vector<FocusStackerFrame>&, DeghostAmount, int,
                                                   const HighlightHueRecovery*);

} // namespace orvo
