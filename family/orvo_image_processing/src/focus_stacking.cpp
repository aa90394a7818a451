#include "focus_stacking_activity.hpp"
#include "focus_stacking_levels.hpp"
#include "focus_stacking_range.hpp"

#include <orvo_image_processing/focus_stacking.hpp>

#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>

namespace grfx {

namespace {

using orvo::forEachRow;
using orvo::ManagedPlane;
using orvo::PixelRGB;
using orvo::detail::Activity;
using orvo::detail::expandRow;
using orvo::detail::forEachBand;
using orvo::detail::kChannels;
using orvo::detail::Level;
using orvo::detail::LevelExtent;
using orvo::detail::NoiseCurve;
using orvo::detail::SampleRange;
using orvo::detail::ScratchRows;

// Rows of a level that share their scratch.
constexpr int kBandRows = 32;
// A frame has to exceed the current activity by this share: less is invisible, and frames that are equal, or equal up
// to rounding, do not alternate.
constexpr float kBetterBy = 1.0f / 64;
// Below any activity, also that of absent pixels: the value before the first frame.
constexpr float kNothing = -4.0f;
// Weights of the coarsest level are squared activities above noise, in fourth powers of full scale. Where there is no
// activity only the first frame counts: an activity of 1e-6 is a detail of 1e-3, the limit of visibility.
constexpr float kFirstWeight = 1e-12f;
constexpr float kLaterWeight = 1e-20f;
constexpr float kAbsentWeight = 1e-30f;
// What noise leaves in the activity of the coarsest level, which includes shares of all bands, relative to the noise of
// the finest: the flattest windows have half of the mean, and the bands below it add a tenth.
constexpr float kNoiseOfAllBands = 2.2f;

/// By how much a frame's activity exceeds the current one beyond the required margin; keeps the activity where it does.
/// Up to `margin` times the noise at the brightness of r, g, b counts as noise.
ORVO_VECTOR_CLONES void challenge(float* __restrict gain, float* __restrict held, const float* __restrict activity,
                                  const float* __restrict r, const float* __restrict g, const float* __restrict b,
                                  const NoiseCurve& noise, float margin, int width)
{
    // The table is read in a loop of its own, so that the others work on vectors.
    constexpr int kBlock = 64;
    int bins[kBlock];
    float shares[kBlock];
    float lows[kBlock];
    float highs[kBlock];
    for (int first = 0; first < width; first += kBlock) {
        const int count = width - first < kBlock ? width - first : kBlock;
        for (int i = 0; i < count; ++i) {
            const int x = first + i;
            const NoiseCurve::Place place = NoiseCurve::placeOf((r[x] + g[x] + b[x]) * (1.0f / kChannels));
            bins[i] = place.bin;
            shares[i] = place.share;
        }
        for (int i = 0; i < count; ++i) {
            lows[i] = noise.energy[static_cast<std::size_t>(bins[i])];
            highs[i] = noise.energy[static_cast<std::size_t>(bins[i]) + 1];
        }
        for (int i = 0; i < count; ++i) {
            const int x = first + i;
            const float uncertain = margin * (lows[i] + (highs[i] - lows[i]) * shares[i]);
            const float current = held[x];
            const float better = current * kBetterBy;
            const float gained = activity[x] - current - (better > uncertain ? better : uncertain);
            gain[x] = gained;
            held[x] = gained > 0.0f ? activity[x] : current;
        }
    }
}

ORVO_VECTOR_CLONES bool anyPositive(const float* gain, int width)
{
    int count = 0;
    for (int x = 0; x < width; ++x)
        count += gain[x] > 0.0f ? 1 : 0;
    return count > 0;
}

/// held = gain > 0 ? sample - low : held
ORVO_VECTOR_CLONES void keepDetail(float* __restrict held, const float* __restrict gain, const float* __restrict sample,
                                   const float* __restrict low, int width)
{
    for (int x = 0; x < width; ++x)
        held[x] = gain[x] > 0.0f ? sample[x] - low[x] : held[x];
}

ORVO_VECTOR_CLONES void addRows(float* __restrict sum, const float* __restrict in, int width)
{
    for (int x = 0; x < width; ++x)
        sum[x] += in[x];
}

std::string sizeText(int width, int height) { return std::to_string(width) + "x" + std::to_string(height); }

/// The merge of the frames so far.
struct Merged
{
    Merged(const std::vector<LevelExtent>& extents) : range(extents[0])
    {
        for (std::size_t l = 0; l + 1 < extents.size(); ++l)
            details.emplace_back(extents[l], kChannels);
        for (std::size_t l = 1; l < extents.size(); ++l) {
            activity.emplace_back(extents[l], 1);
            std::fill_n(activity.back().row(0, 0), extents[l].pixels(), kNothing);
        }
        coarsest.emplace(extents.back(), kChannels + 1);
        std::fill_n(coarsest->row(0, 0), (kChannels + 1) * extents.back().pixels(), 0.0f);
    }

    std::vector<Level> details;    ///< chosen coefficients of the picture and of all levels except the coarsest
    std::vector<Level> activity;   ///< of the chosen ones, from the first level below the picture on
    std::optional<Level> coarsest; ///< weighted sums, and the sum of weights
    SampleRange range;
    NoiseCurve noise; ///< the minimum of the frames': a frame without flat parts overestimates it
};

class LaplacianFocusStacker final : public IFocusStacking<PixelRGB<float>>
{
public:
    explicit LaplacianFocusStacker(std::vector<LevelExtent> extents_) : extents(std::move(extents_)) {}

    void addFrame(const PixelRGB<float>* pixels, int width, int height, int flag) override
    {
        requireSize(width, height, "addFrame");
        if (flag != 0)
            throw std::invalid_argument("addFrame: flag is " + std::to_string(flag) + ", only 0 is supported");
        if (!merged)
            merged.emplace(extents);
        if (merged->range.include(pixels)) {
            merge(pixels, nullptr);
        } else {
            const orvo::detail::FilledFrame filled = orvo::detail::fillAbsent(pixels, extents[0]);
            merge(filled.pixels.data(), &filled.absent);
        }
        ++frames;
    }

    void reset() override
    {
        merged.reset();
        frames = 0;
    }

    [[nodiscard]] int frameCount() const override { return frames; }

    void getResult(PixelRGB<float>* pixels, int width, int height) override
    {
        requireSize(width, height, "getResult");
        if (frames == 0)
            throw std::logic_error("getResult: no frame has been added");
        std::vector<Level> levels = collapse();
        const Level& below = levels.back();
        const Level& details = merged->details[0];
        forEachBand(height, kBandRows, [&](int first, int last) {
            const ScratchRows rows(kChannels + 1, width);
            for (int y = first; y < last; ++y) {
                for (int c = 0; c < kChannels; ++c) {
                    expandRow(rows.row(c), rows.row(kChannels), below, c, y, width);
                    addRows(rows.row(c), details.row(c, y), width);
                }
                merged->range.limitRow(pixels + static_cast<std::size_t>(y) * static_cast<std::size_t>(width),
                                       rows.row(0), rows.row(1), rows.row(2), y);
            }
        });
    }

private:
    void requireSize(int width, int height, const char* member) const
    {
        if (width != extents[0].width || height != extents[0].height)
            throw std::invalid_argument(std::string(member) + ": the picture is " + sizeText(width, height) +
                                        ", the stacker's size is " + sizeText(extents[0].width, extents[0].height));
    }

    void merge(const PixelRGB<float>* pixels, const Level* absent)
    {
        std::vector<Level> levels;
        for (std::size_t l = 1; l < extents.size(); ++l) {
            levels.emplace_back(extents[l], kChannels);
            if (l == 1)
                orvo::detail::reducePicture(levels[0], pixels, extents[0]);
            else
                orvo::detail::reduceLevel(levels[l - 1], levels[l - 2], kChannels);
        }
        Activity activity = orvo::detail::measureActivity(pixels, extents[0], levels);
        if (absent != nullptr)
            orvo::detail::markAbsent(activity, *absent);
        for (std::size_t i = 0; i < activity.noise.energy.size(); ++i) {
            float& least = merged->noise.energy[i];
            least = frames == 0 ? activity.noise.energy[i] : std::min(least, activity.noise.energy[i]);
        }
        addCoarsest(levels.back(), activity.grids.back());
        for (std::size_t i = 0; i < levels.size(); ++i) {
            const Level gains = challengeHeld(activity.grids[i], levels[i], i);
            if (i == 0)
                mergePicture(pixels, levels[0], gains);
            if (i + 1 < levels.size())
                mergeLevel(levels[i], levels[i + 1], gains, i);
        }
    }

    /// Where the gain is positive the frame is chosen, and its activity becomes the current one.
    [[nodiscard]] Level challengeHeld(const Level& grid, const Level& level, std::size_t index)
    {
        Level gains(extents[index + 1], 1);
        const float margin = frames == 0 ? 0.0f : orvo::detail::noiseMargin(index);
        forEachRow(grid.height(), [&](int y) {
            challenge(gains.row(0, y), merged->activity[index].row(0, y), grid.row(0, y), level.row(0, y),
                      level.row(1, y), level.row(2, y), merged->noise, margin, grid.width());
        });
        return gains;
    }

    /// Merges the picture's own coefficients by the expanded gains of the first grid.
    void mergePicture(const PixelRGB<float>* pixels, const Level& below, const Level& gains)
    {
        const int width = extents[0].width;
        forEachBand(extents[0].height, kBandRows, [&](int first, int last) {
            const ScratchRows rows(kChannels + 3, width);
            float* const gain = rows.row(kChannels);
            float* const low = rows.row(kChannels + 1);
            float* const scratch = rows.row(kChannels + 2);
            for (int y = first; y < last; ++y) {
                expandRow(gain, scratch, gains, 0, y, width);
                if (!anyPositive(gain, width))
                    continue;
                const auto start = static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
                orvo::detail::splitRow(rows.row(0), rows.row(1), rows.row(2), &pixels[start].r, width);
                for (int c = 0; c < kChannels; ++c) {
                    expandRow(low, scratch, below, c, y, width);
                    keepDetail(merged->details[0].row(c, y), gain, rows.row(c), low, width);
                }
            }
        });
    }

    void mergeLevel(const Level& level, const Level& below, const Level& gains, std::size_t index)
    {
        const int width = level.width();
        forEachBand(level.height(), kBandRows, [&](int first, int last) {
            const ScratchRows rows(2, width);
            for (int y = first; y < last; ++y) {
                if (!anyPositive(gains.row(0, y), width))
                    continue;
                for (int c = 0; c < kChannels; ++c) {
                    expandRow(rows.row(0), rows.row(1), below, c, y, width);
                    keepDetail(merged->details[index + 1].row(c, y), gains.row(0, y), level.row(c, y), rows.row(0),
                               width);
                }
            }
        });
    }

    void addCoarsest(const Level& level, const Level& grid)
    {
        const float least = frames == 0 ? kFirstWeight : kLaterWeight;
        forEachRow(level.height(), [&](int y) {
            for (int x = 0; x < level.width(); ++x) {
                const float activity = grid.row(0, y)[x];
                const float brightness = (level.row(0, y)[x] + level.row(1, y)[x] + level.row(2, y)[x]) / kChannels;
                const float above = std::max(activity - kNoiseOfAllBands * merged->noise.at(brightness), 0.0f);
                const float weight = activity < 0.0f ? kAbsentWeight : above * above + least;
                for (int c = 0; c < kChannels; ++c)
                    merged->coarsest->row(c, y)[x] += weight * level.row(c, y)[x];
                merged->coarsest->row(kChannels, y)[x] += weight;
            }
        });
    }

    /// Combines the levels from the coarsest up to the first below the picture.
    [[nodiscard]] std::vector<Level> collapse() const
    {
        std::vector<Level> levels;
        levels.emplace_back(extents.back(), kChannels);
        const Level& sums = *merged->coarsest;
        forEachRow(sums.height(), [&](int y) {
            for (int c = 0; c < kChannels; ++c)
                for (int x = 0; x < sums.width(); ++x)
                    levels[0].row(c, y)[x] = sums.row(c, y)[x] / sums.row(kChannels, y)[x];
        });
        for (std::size_t l = extents.size() - 2; l > 0; --l) {
            levels.emplace_back(extents[l], kChannels);
            const Level& below = levels[levels.size() - 2];
            const Level& level = levels.back();
            const Level& details = merged->details[l];
            forEachBand(level.height(), kBandRows, [&](int first, int last) {
                const ScratchRows rows(2, level.width());
                for (int y = first; y < last; ++y)
                    for (int c = 0; c < kChannels; ++c) {
                        expandRow(rows.row(0), rows.row(1), below, c, y, level.width());
                        addRows(rows.row(0), details.row(c, y), level.width());
                        std::copy_n(rows.row(0), level.width(), level.row(c, y));
                    }
            });
        }
        return levels;
    }

    std::vector<LevelExtent> extents; ///< of the picture and the levels below it
    std::optional<Merged> merged;
    int frames = 0;
};

void require(bool holds, const char* name, const std::string& value, const char* bound)
{
    if (!holds)
        throw std::invalid_argument(std::string("produceLaplacianFocusStacking: ") + name + " is " + value + ", " +
                                    bound);
}

} // namespace

template <>
std::unique_ptr<IFocusStacking<PixelRGB<float>>>
produceLaplacianFocusStacking<PixelRGB<float>>(int width, int height, float value, int levels, ESample sample)
{
    require(width >= 1, "width", std::to_string(width), "expected at least 1");
    require(height >= 1, "height", std::to_string(height), "expected at least 1");
    require(value >= 1.0f, "value", std::to_string(value), "expected at least 1");
    require(levels >= 1, "levels", std::to_string(levels), "expected at least 1");
    require(sample == ESample::Float, "sample", std::to_string(static_cast<int>(sample)), "only 0 is supported");
    return std::make_unique<LaplacianFocusStacker>(orvo::detail::levelExtents(width, height, value, levels));
}

} // namespace grfx
