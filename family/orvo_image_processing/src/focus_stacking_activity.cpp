#include "focus_stacking_activity.hpp"

#include <cmath>

namespace orvo::detail {

namespace {

// Rows of a grid that are computed together. Each band computes two rows of its neighbours again.
constexpr int kBandRows = 32;
// Rows of the picture under one row of the grid below it.
constexpr int kTaps = 5;

// Weight of the picture's second band relative to the first, and of the band of a coarser level relative to the grid
// above it. Energy grows from band to band, by four for a plain edge, while the difference between in focus and out of
// focus is in the fine bands. So a coarse coefficient follows the fine detail around it if there is any, and all bands
// of a place come from one frame. Full weights lost three percent of the sharpness to mixed bands; with weights smaller
// than these the frames alternate with the noise.
constexpr float kSecondShare = 1.0f / 4;
constexpr float kCoarseBandShare = 1.0f / 16;
// Share that a grid takes from the coarser one. Enough to decide where there is no fine detail, too little to let the
// glow of a defocused edge, which is coarse, win over fine texture.
constexpr float kCoarserShare = 1.0f / 16;

// Samples of a grid used to measure its noise: the error of a quantile of so many is far below its value.
constexpr double kNoiseSamples = 65536.0;
// The flattest twentieth of the windows: nearly every picture has at least that much out of focus or blank.
constexpr double kFlatQuantile = 0.05;
// Windows of one brightness required to measure its noise; with fewer, the nearest brightness is used instead.
constexpr std::size_t kFewestInBin = 200;
// How much noisier one brightness can be than the quietest: four times in amplitude. Anything above is texture.
constexpr float kNoiseSpread = 16.0f;
// Full scale squared. No camera's noise is larger, so a picture full of texture does not count as noise.
constexpr float kMostNoise = 0.01f;
// The energy of a window of noise fluctuates by about a third of its mean, and the flattest twentieth has half of the
// mean. A difference of this multiple is beyond four deviations.
constexpr float kMarginOfNoise = 4.0f;
// The fluctuation of a grid relative to the next finer one. White noise has a quarter of its energy in the next band,
// that of interpolated sensors up to half; the part from the finer grid is averaged over four times the area.
constexpr float kMarginFall = 0.5f;

// Share of absent pixels from which on a sample of a level counts as absent: filled pixels are near the truth, and a
// lost pixel must not take the coarse levels of half the picture with it.
constexpr float kAbsentShare = 1.0f / 64;
// Samples to each side that contribute to a coefficient, beyond its own.
constexpr int kAbsentReach = 2;

ORVO_VECTOR_CLONES void setEnergy(float* __restrict energy, const float* __restrict sample, const float* __restrict low,
                                  int width)
{
    for (int x = 0; x < width; ++x)
        energy[x] = (sample[x] - low[x]) * (sample[x] - low[x]);
}

ORVO_VECTOR_CLONES void addEnergy(float* __restrict energy, const float* __restrict sample, const float* __restrict low,
                                  int width)
{
    for (int x = 0; x < width; ++x)
        energy[x] += (sample[x] - low[x]) * (sample[x] - low[x]);
}

ORVO_VECTOR_CLONES void column121(float* __restrict out, const float* above, const float* middle, const float* below,
                                  int width)
{
    for (int x = 0; x < width; ++x)
        out[x] = ((above[x] + below[x]) + 2.0f * middle[x]) * (1.0f / 16);
}

/// `in` is padded.
ORVO_VECTOR_CLONES void row121(float* __restrict out, const float* __restrict in, int width)
{
    for (int x = 0; x < width; ++x)
        out[x] = (in[x - 1] + in[x + 1]) + 2.0f * in[x];
}

ORVO_VECTOR_CLONES void scaleRow(float* row, float scale, int width)
{
    for (int x = 0; x < width; ++x)
        row[x] *= scale;
}

ORVO_VECTOR_CLONES void addScaled(float* __restrict sum, const float* __restrict in, float scale, int width)
{
    for (int x = 0; x < width; ++x)
        sum[x] += in[x] * scale;
}

/// A band of rows of a plane, and one more at each end where the plane has it.
class Band
{
public:
    Band(int first_, int last_, LevelExtent extent)
        : first(std::max(first_ - 1, 0)), last(std::min(last_ + 1, extent.height)), width(extent.width),
          rows(last - first + 1, width)
    {}
    [[nodiscard]] float* row(int y) const { return rows.row(std::clamp(y, first, last - 1) - first); }

    /// Writes row `y`, smoothed by 1 2 1 in both directions.
    void smoothed(float* out, int y) const
    {
        float* const line = rows.row(last - first);
        column121(line, row(y - 1), row(y), row(y + 1), width);
        padRow(line, width);
        row121(out, line, width);
    }

    const int first, last;

private:
    int width;
    ScratchRows rows;
};

/// Energy of the picture's own band, reduced to the first grid and smoothed.
class FinestEnergy
{
public:
    FinestEnergy(const PixelRGB<float>* pixels_, LevelExtent extent_, const Level& below_)
        : pixels(pixels_), extent(extent_), below(below_)
    {}

    void band(const Level& grid, int firstRow, int lastRow) const
    {
        const Band reduced(firstRow, lastRow, {below.width(), below.height()});
        const ScratchRows ring(kTaps, extent.width);
        const ScratchRows scratch(kScratch, extent.width);
        int next = std::max(2 * reduced.first - 2, 0);
        for (int y = reduced.first; y < reduced.last; ++y) {
            for (; next <= std::min(2 * y + 2, extent.height - 1); ++next)
                energy(ring.row(next % kTaps), scratch, next);
            const auto near = [&](int at) { return ring.row(std::clamp(at, 0, extent.height - 1) % kTaps); };
            reduceColumns(scratch.row(0), near(2 * y - 2), near(2 * y - 1), near(2 * y), near(2 * y + 1),
                          near(2 * y + 2), extent.width);
            padRow(scratch.row(0), extent.width);
            narrowRow(reduced.row(y), scratch.row(0), extent.width);
        }
        for (int y = firstRow; y < lastRow; ++y)
            reduced.smoothed(grid.row(0, y), y);
    }

private:
    static constexpr int kScratch = kChannels + 2;

    void energy(float* out, const ScratchRows& scratch, int y) const
    {
        const PixelRGB<float>* const row =
            pixels + static_cast<std::size_t>(y) * static_cast<std::size_t>(extent.width);
        splitRow(scratch.row(0), scratch.row(1), scratch.row(2), &row->r, extent.width);
        for (int c = 0; c < kChannels; ++c) {
            float* const low = scratch.row(kChannels);
            expandRow(low, scratch.row(kChannels + 1), below, c, y, extent.width);
            (c == 0 ? setEnergy : addEnergy)(out, scratch.row(c), low, extent.width);
        }
    }

    const PixelRGB<float>* pixels;
    LevelExtent extent;
    const Level& below;
};

/// A share of the energy of a level's band, smoothed.
void levelEnergy(const Level& grid, const Level& level, const Level& below, float share)
{
    forEachBand(grid.height(), kBandRows, [&](int firstRow, int lastRow) {
        const Band energy(firstRow, lastRow, {level.width(), level.height()});
        const ScratchRows scratch(2, level.width());
        for (int y = energy.first; y < energy.last; ++y)
            for (int c = 0; c < kChannels; ++c) {
                expandRow(scratch.row(0), scratch.row(1), below, c, y, level.width());
                (c == 0 ? setEnergy : addEnergy)(energy.row(y), level.row(c, y), scratch.row(0), level.width());
            }
        for (int y = firstRow; y < lastRow; ++y) {
            energy.smoothed(grid.row(0, y), y);
            scaleRow(grid.row(0, y), share, level.width());
        }
    });
}

/// Returns the quantile and reorders the values.
float flatQuantile(std::vector<float>& energies)
{
    const auto at = static_cast<std::ptrdiff_t>(kFlatQuantile * static_cast<double>(energies.size()));
    std::nth_element(energies.begin(), energies.begin() + at, energies.end());
    return energies[static_cast<std::size_t>(at)];
}

/// The noise of a frame from the finest energies and the level of the same extent, which supplies the brightness.
NoiseCurve noiseOf(const Level& energies, const Level& level)
{
    const double cells = static_cast<double>(LevelExtent{energies.width(), energies.height()}.pixels());
    const int step = std::max(1, static_cast<int>(std::ceil(std::sqrt(cells / kNoiseSamples))));
    std::array<std::vector<float>, NoiseCurve::kBins> bins;
    std::vector<float> all;
    for (int y = 0; y < energies.height(); y += step)
        for (int x = 0; x < energies.width(); x += step) {
            const float brightness = (level.row(0, y)[x] + level.row(1, y)[x] + level.row(2, y)[x]) / kChannels;
            const float limited = std::clamp(brightness * NoiseCurve::kBins, 0.0f, NoiseCurve::kBins - 1.0f);
            bins[static_cast<std::size_t>(limited)].push_back(energies.row(0, y)[x]);
            all.push_back(energies.row(0, y)[x]);
        }
    const float whole = flatQuantile(all);
    NoiseCurve noise;
    int measured = -1; // the last bin with a measured noise
    for (int i = 0; i < NoiseCurve::kBins; ++i) {
        std::vector<float>& own = bins[static_cast<std::size_t>(i)];
        if (own.size() < kFewestInBin)
            continue;
        const float energy = std::min({flatQuantile(own), kNoiseSpread * whole, kMostNoise});
        const int from = measured < 0 ? 0 : (measured + i + 1) / 2;
        std::fill(noise.energy.begin() + from, noise.energy.end(), energy);
        measured = i;
    }
    if (measured < 0)
        noise.energy.fill(std::min(whole, kMostNoise));
    return noise;
}

void addFiner(const Level& grid, const Level& finer)
{
    forEachBand(grid.height(), kBandRows, [&](int first, int last) {
        const ScratchRows scratch(2, finer.width());
        for (int y = first; y < last; ++y) {
            reduceColumns(scratch.row(0), finer.nearRow(0, 2 * y - 2), finer.nearRow(0, 2 * y - 1),
                          finer.nearRow(0, 2 * y), finer.nearRow(0, 2 * y + 1), finer.nearRow(0, 2 * y + 2),
                          finer.width());
            padRow(scratch.row(0), finer.width());
            narrowRow(scratch.row(1), scratch.row(0), finer.width());
            addScaled(grid.row(0, y), scratch.row(1), 1.0f, grid.width());
        }
    });
}

void addCoarser(const Level& grid, const Level& coarser)
{
    forEachBand(grid.height(), kBandRows, [&](int first, int last) {
        const ScratchRows scratch(2, grid.width());
        for (int y = first; y < last; ++y) {
            expandRow(scratch.row(0), scratch.row(1), coarser, 0, y, grid.width());
            addScaled(grid.row(0, y), scratch.row(0), kCoarserShare, grid.width());
        }
    });
}

} // namespace

Activity measureActivity(const PixelRGB<float>* pixels, LevelExtent extent, const std::vector<Level>& levels)
{
    Activity activity;
    const auto extentOf = [](const Level& level) { return LevelExtent{level.width(), level.height()}; };
    activity.grids.emplace_back(extentOf(levels[0]), 1);
    const FinestEnergy finest(pixels, extent, levels[0]);
    forEachBand(levels[0].height(), kBandRows,
                [&](int first, int last) { finest.band(activity.grids[0], first, last); });
    activity.noise = noiseOf(activity.grids[0], levels[0]);
    if (levels.size() > 1) {
        const Level own(extentOf(levels[0]), 1);
        levelEnergy(own, levels[0], levels[1], kSecondShare);
        forEachRow(own.height(),
                   [&](int y) { addScaled(activity.grids[0].row(0, y), own.row(0, y), 1.0f, own.width()); });
    }
    for (std::size_t i = 1; i < levels.size(); ++i) {
        activity.grids.emplace_back(extentOf(levels[i]), 1);
        const Level& grid = activity.grids.back();
        if (i + 1 < levels.size())
            levelEnergy(grid, levels[i], levels[i + 1], kCoarseBandShare);
        else // the coarsest level has no band
            forEachRow(grid.height(), [&](int y) { std::fill_n(grid.row(0, y), grid.width(), 0.0f); });
        addFiner(grid, activity.grids[i - 1]);
    }
    for (std::size_t i = levels.size() - 1; i > 0; --i)
        addCoarser(activity.grids[i - 1], activity.grids[i]);
    return activity;
}

float noiseMargin(std::size_t index) { return kMarginOfNoise * std::pow(kMarginFall, static_cast<float>(index)); }

void markAbsent(Activity& activity, const Level& mask)
{
    std::vector<Level> shares;
    for (const Level& grid : activity.grids) {
        shares.emplace_back(LevelExtent{grid.width(), grid.height()}, 1);
        reduceLevel(shares.back(), shares.size() == 1 ? mask : shares[shares.size() - 2], 1);
    }
    for (std::size_t i = 0; i < shares.size(); ++i) {
        const Level& share = shares[i];
        forEachRow(share.height(), [&](int y) {
            const auto touched = [&](int x) {
                for (int v = y - kAbsentReach; v <= y + kAbsentReach; ++v)
                    for (int u = std::max(x - kAbsentReach, 0); u <= std::min(x + kAbsentReach, share.width() - 1); ++u)
                        if (share.nearRow(0, v)[u] > kAbsentShare)
                            return true;
                return false;
            };
            for (int x = 0; x < share.width(); ++x)
                if (touched(x))
                    activity.grids[i].row(0, y)[x] = kAbsent;
        });
    }
}

} // namespace orvo::detail
