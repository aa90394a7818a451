#include "encoded_gain.hpp"
#include "pale_highlights.hpp"

#include <orvo_core/image_data.hpp>
#include <orvo_core/parallel.hpp>
#include <orvo_image_processing/highlight_hue.hpp>

#include <opencv2/core.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <optional>
#include <vector>

namespace orvo {

namespace {

using Light = std::array<float, 3>; // linear

// Encoded values of the file between which a channel counts as clipped. JPEG compression moves clipped values by a few
// steps of 8 bits, and values above the limit cannot come from clipping.
constexpr float kLimitFrom = 0.955f;
constexpr float kLimitAt = 0.98f;
constexpr float kBesideFrom = 0.85f; // of one channel, where another one is clipped
constexpr float kBesideAt = 0.95f;
constexpr float kBeyondFrom = 1.005f;
constexpr float kBeyondAt = 1.03f;

// Encoded values of the strongest channel between which a pixel ceases to show the hue of the light around a highlight.
constexpr float kHueUntil = 0.92f;
constexpr float kNoHueFrom = 0.955f;
constexpr float kDarkest = 0.2f; // linear; darker pixels are foreground rather than glow

constexpr int kMostCells = 192; // along the longer side
constexpr int kSmallestCell = 4;
constexpr int kSamplesPerCell = 8; // along a side
// Weight, as a share of that of a cell full of white, from which a cell needs no hue from coarser ones.
constexpr float kSufficient = 0.05f;

// Difference of the channels, in linear light, between which the surroundings count as neutral and as coloured.
constexpr float kNeutral = 0.01f;
constexpr float kColoured = 0.03f;

// Least share of the middle channel between the others: below it, noise would determine the strongest one.
constexpr float kLeastShare = 0.11f;
// Most light that a channel is given, in units of white: beyond one and a half stops the estimate is a guess.
constexpr float kMostLight = 2.8f;
// A smaller loss comes from the conversion between the spaces: white stays bit-equal.
constexpr float kRounding = 1e-4f;

using detail::fastEncoded;
using detail::fastLinear;
using detail::kLuminance;

/// Linear light of the working space and of a file.
struct Spaces
{
    cv::Matx33f workingFromFile;
    cv::Matx33f fileFromWorking;

    [[nodiscard]] Light inFile(const PixelRGB<float>& pixel) const
    {
        const Light working{fastLinear(pixel.r), fastLinear(pixel.g), fastLinear(pixel.b)};
        Light file;
        for (std::size_t c = 0; c < 3; ++c)
            file[c] = fileFromWorking.val[3 * c] * working[0] + fileFromWorking.val[3 * c + 1] * working[1] +
                      fileFromWorking.val[3 * c + 2] * working[2];
        return file;
    }
};

/// From the file's primaries at full scale, whose linear light is 1 whatever its transfer curve. Empty if they do not
/// add up to white: not a matrix profile.
std::optional<Spaces> spacesOf(const std::shared_ptr<ColorProfile>& profile)
{
    constexpr int kRgb = 3;
    constexpr float kWhiteError = 0.01f;
    if (!profile || profile->channelCount() != kRgb)
        return std::nullopt;
    _ImageData<PixelRGB<float>> primaries({3, 1}, profile);
    primaries.data()[0] = {1.0f, 0.0f, 0.0f};
    primaries.data()[1] = {0.0f, 1.0f, 0.0f};
    primaries.data()[2] = {0.0f, 0.0f, 1.0f};
    primaries.convertTo(ColorProfileType::linearMelissaRGB());
    const PixelRGB<float>* const p = primaries.data();
    Spaces spaces;
    spaces.workingFromFile = {p[0].r, p[1].r, p[2].r, p[0].g, p[1].g, p[2].g, p[0].b, p[1].b, p[2].b};
    for (int row = 0; row < 3; ++row)
        if (!(std::abs(spaces.workingFromFile.row(row).dot(cv::Matx13f::ones()) - 1.0f) < kWhiteError))
            return std::nullopt;
    constexpr double kLeastDeterminant = 1e-3; // of any set of real primaries it is far larger
    if (!(std::abs(cv::determinant(spaces.workingFromFile)) > kLeastDeterminant))
        return std::nullopt;
    spaces.fileFromWorking = spaces.workingFromFile.inv();
    return spaces;
}

/// How far each channel is above the weakest one, averaged over unclipped bright pixels near a place.
class HueField
{
public:
    HueField(const PixelRGB<float>* pixels, int width, int height, const Spaces& spaces)
        : cell(std::max(kSmallestCell, (std::max(width, height) + kMostCells - 1) / kMostCells)),
          finest((width + cell - 1) / cell, (height + cell - 1) / cell)
    {
        measure(pixels, width, height, spaces);
        fill(finest);
    }

    [[nodiscard]] Light at(int x, int y) const
    {
        const float perCell = 1.0f / static_cast<float>(cell);
        return finest.at((static_cast<float>(x) + 0.5f) * perCell, (static_cast<float>(y) + 0.5f) * perCell);
    }

private:
    struct Cell
    {
        Light colour{};
        float weight = 0.0f;
    };

    struct Grid
    {
        Grid(int columns_, int rows_)
            : columns(columns_), rows(rows_),
              cells(static_cast<std::size_t>(columns_) * static_cast<std::size_t>(rows_))
        {}
        [[nodiscard]] Cell& of(int x, int y)
        {
            return cells[static_cast<std::size_t>(y) * static_cast<std::size_t>(columns) + static_cast<std::size_t>(x)];
        }
        [[nodiscard]] const Cell& of(int x, int y) const { return const_cast<Grid*>(this)->of(x, y); }

        /// Between the cells, in units of cells; their centres are at halves.
        [[nodiscard]] Light at(float x, float y) const
        {
            const float px = std::clamp(x - 0.5f, 0.0f, static_cast<float>(columns - 1));
            const float py = std::clamp(y - 0.5f, 0.0f, static_cast<float>(rows - 1));
            const int left = static_cast<int>(px);
            const int top = static_cast<int>(py);
            const int right = std::min(left + 1, columns - 1);
            const int bottom = std::min(top + 1, rows - 1);
            const float fx = px - static_cast<float>(left);
            const float fy = py - static_cast<float>(top);
            Light colour;
            for (std::size_t c = 0; c < 3; ++c) {
                const float upper = of(left, top).colour[c] * (1.0f - fx) + of(right, top).colour[c] * fx;
                const float lower = of(left, bottom).colour[c] * (1.0f - fx) + of(right, bottom).colour[c] * fx;
                colour[c] = upper + (lower - upper) * fy;
            }
            return colour;
        }

        int columns;
        int rows;
        std::vector<Cell> cells;
    };

    void measure(const PixelRGB<float>* pixels, int width, int height, const Spaces& spaces)
    {
        const int step = std::max(1, cell / kSamplesPerCell);
        const auto measureCell = [&](int column, int row) {
            Cell sum;
            int samples = 0;
            for (int y = row * cell; y < std::min((row + 1) * cell, height); y += step)
                for (int x = column * cell; x < std::min((column + 1) * cell, width); x += step, ++samples) {
                    const Light light =
                        spaces.inFile(pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                                             static_cast<std::size_t>(x)]);
                    const float strongest = std::max({light[0], light[1], light[2]});
                    if (!(strongest > kDarkest))
                        continue;
                    const float weakest = std::max(0.0f, std::min({light[0], light[1], light[2]}));
                    // Light is brightest next to where it clips.
                    const float weight = strongest * strongest *
                                         (1.0f - detail::smoothStep(fastEncoded(strongest), kHueUntil, kNoHueFrom));
                    for (std::size_t c = 0; c < 3; ++c)
                        sum.colour[c] += weight * std::max(0.0f, light[c] - weakest);
                    sum.weight += weight;
                }
            if (sum.weight > 0.0f)
                for (float& colour : sum.colour)
                    colour /= sum.weight;
            sum.weight = std::min(1.0f, sum.weight / (kSufficient * static_cast<float>(samples)));
            finest.of(column, row) = sum;
        };
        forEachRow(finest.rows, [&](int row) {
            for (int column = 0; column < finest.columns; ++column)
                measureCell(column, row);
        });
    }

    /// Fills cells of little weight from a grid of half the size (Gortler, Grzeszczuk, Szeliski, Cohen, "The
    /// Lumigraph", 1996: pull-push).
    static void fill(Grid& grid)
    {
        if (grid.columns == 1 && grid.rows == 1)
            return;
        Grid coarse((grid.columns + 1) / 2, (grid.rows + 1) / 2);
        for (int y = 0; y < grid.rows; ++y)
            for (int x = 0; x < grid.columns; ++x) {
                Cell& sum = coarse.of(x / 2, y / 2);
                const Cell& part = grid.of(x, y);
                for (std::size_t c = 0; c < 3; ++c)
                    sum.colour[c] += part.weight * part.colour[c];
                sum.weight += part.weight;
            }
        for (Cell& each : coarse.cells) {
            if (each.weight > 0.0f)
                for (float& colour : each.colour)
                    colour /= each.weight;
            each.weight = std::min(1.0f, each.weight);
        }
        fill(coarse);
        for (int y = 0; y < grid.rows; ++y)
            for (int x = 0; x < grid.columns; ++x) {
                Cell& each = grid.of(x, y);
                const Light from = coarse.at((static_cast<float>(x) + 0.5f) / 2, (static_cast<float>(y) + 0.5f) / 2);
                for (std::size_t c = 0; c < 3; ++c)
                    each.colour[c] = from[c] + (each.colour[c] - from[c]) * each.weight;
            }
    }

    int cell; // pixels along a side
    Grid finest;
};

/// What the strongest channel lost, in the light of the file, and which one it is.
struct Loss
{
    std::size_t channel = 0;
    float light = 0.0f;
};

/// `light` and the same encoded, and the colour of the light around.
Loss lossOf(const Light& light, const Light& encodedLight, const Light& colour)
{
    std::array<std::size_t, 3> order{0, 1, 2};
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b) { return colour[a] != colour[b] ? colour[a] > colour[b] : a < b; });
    const auto [strong, middle, weak] = order;
    const float spread = colour[strong] - colour[weak];
    if (!(spread > kNeutral))
        return {};
    const float value = encodedLight[strong];
    const float brightest = std::max({encodedLight[0], encodedLight[1], encodedLight[2]});
    // Compression can take a channel below its limit where another one is clipped.
    const float clipped = std::max(detail::smoothStep(value, kLimitFrom, kLimitAt),
                                   detail::smoothStep(value, kBesideFrom, kBesideAt) *
                                       detail::smoothStep(brightest, kLimitFrom, kLimitAt));
    const float share = clipped * (1.0f - detail::smoothStep(brightest, kBeyondFrom, kBeyondAt)) *
                        detail::smoothStep(spread, kNeutral, kColoured);
    if (!(share > 0.0f))
        return {};
    const float place = std::max(kLeastShare, (colour[middle] - colour[weak]) / spread);
    const float wanted = light[weak] + (light[middle] - light[weak]) / place;
    return {strong, std::max(0.0f, std::min(wanted, kMostLight) - light[strong] - kRounding) * share};
}

// Pixels whose light is computed together, in vectors.
constexpr int kBlockPixels = 64;

ORVO_VECTOR_CLONES bool anyNearWhite(const float* samples, std::size_t count, float least)
{
    int found = 0;
    for (std::size_t i = 0; i < count; ++i)
        found |= samples[i] >= least ? 1 : 0;
    return found != 0;
}

using Channels = float[3][kBlockPixels];

/// Linear light of up to kBlockPixels pixels in the working space and in the file, as Spaces::inFile() gives it.
/// `matrix`: Spaces::fileFromWorking.
ORVO_VECTOR_CLONES void lightOfBlock(const float* samples, int count, const float* matrix, Channels& __restrict working,
                                     Channels& __restrict file)
{
    for (int c = 0; c < 3; ++c) {
        for (int i = 0; i < kBlockPixels; ++i)
            working[c][i] = i < count ? samples[3 * i + c] : 0.0f;
        for (int i = 0; i < kBlockPixels; ++i)
            working[c][i] = fastLinear(working[c][i]);
    }
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < kBlockPixels; ++i)
            file[c][i] =
                matrix[3 * c] * working[0][i] + matrix[3 * c + 1] * working[1][i] + matrix[3 * c + 2] * working[2][i];
}

ORVO_VECTOR_CLONES void encodeBlock(const Channels& __restrict light, Channels& __restrict result)
{
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < kBlockPixels; ++i)
            result[c][i] = fastEncoded(light[c][i]);
}

/// Pixels that lost light: their own, and what they lost of each channel of the working space.
struct Raised
{
    int count = 0;
    int place[kBlockPixels];
    Channels light;
    Channels lost;

    void fillUp()
    {
        for (std::size_t c = 0; c < 3; ++c) {
            std::fill(light[c] + count, std::end(light[c]), 1.0f);
            std::fill(lost[c] + count, std::end(lost[c]), 0.0f);
        }
    }
};

/// Adds the lost light at the luminance of the pixel: brighter than the clipped light that it surrounds, it would look
/// like a ring.
ORVO_VECTOR_CLONES void raiseBlock(Raised& block)
{
    for (int i = 0; i < kBlockPixels; ++i) {
        float before = 0.0f;
        float after = 0.0f;
        float light[3];
        for (std::size_t c = 0; c < 3; ++c) {
            before += kLuminance[c] * block.light[c][i];
            light[c] = block.light[c][i] + block.lost[c][i];
            after += kLuminance[c] * light[c];
        }
        const float gain = before / after;
        for (std::size_t c = 0; c < 3; ++c)
            block.light[c][i] = fastEncoded(light[c] * gain);
    }
}

/// Whether a channel of the file may be clipped, and the pixel is not white.
bool isCandidate(const PixelRGB<float>& pixel, float least)
{
    const float strongest = std::max({pixel.r, pixel.g, pixel.b});
    const bool isWhite = strongest - std::min({pixel.r, pixel.g, pixel.b}) < kRounding;
    return strongest >= least && !isWhite;
}

/// Strongest encoded value of the working space below which no channel of the file is at its limit.
float leastClipped(const Spaces& spaces)
{
    float least = 1.0f;
    for (std::size_t c = 0; c < 3; ++c)
        least = std::min(least, std::max({spaces.workingFromFile.val[c], spaces.workingFromFile.val[3 + c],
                                          spaces.workingFromFile.val[6 + c]}));
    return fastEncoded(least * fastLinear(kLimitFrom));
}

} // namespace

struct HighlightHueRecovery::State
{
    State(const PixelRGB<float>* pixels, int width, int height, const Spaces& spaces_)
        : spaces(spaces_), field(pixels, width, height, spaces), least(leastClipped(spaces))
    {}

    Spaces spaces;
    HueField field;
    float least;
};

HighlightHueRecovery::HighlightHueRecovery(const PixelRGB<float>* pixels, int width, int height,
                                           const std::shared_ptr<ColorProfile>& clippedIn)
{
    const auto spaces = spacesOf(clippedIn);
    if (spaces && width > 0 && height > 0)
        state = std::make_unique<State>(pixels, width, height, *spaces);
}

HighlightHueRecovery::~HighlightHueRecovery() = default;
HighlightHueRecovery::HighlightHueRecovery(HighlightHueRecovery&&) noexcept = default;
HighlightHueRecovery& HighlightHueRecovery::operator=(HighlightHueRecovery&&) noexcept = default;

void HighlightHueRecovery::row(int y, int begin, int end, PixelRGB<float>* pixels) const
{
    if (!state)
        return;
    const float least = state->least;
    const float limit = fastLinear(kLimitFrom);
    for (int first = begin; first < end; first += kBlockPixels) {
        const int count = std::min(kBlockPixels, end - first);
        PixelRGB<float>* const block = pixels + (first - begin);
        if (!anyNearWhite(&block->r, 3 * static_cast<std::size_t>(count), least))
            continue;
        Channels working;
        Channels light;
        Channels encodedLight;
        lightOfBlock(&block->r, count, state->spaces.fileFromWorking.val, working, light);
        encodeBlock(light, encodedLight);
        Raised raised;
        for (int i = 0; i < count; ++i) {
            const Light inFile{light[0][i], light[1][i], light[2][i]};
            if (!isCandidate(block[i], least) || !(std::max({inFile[0], inFile[1], inFile[2]}) > limit))
                continue;
            const Light encodedInFile{encodedLight[0][i], encodedLight[1][i], encodedLight[2][i]};
            const Loss loss = lossOf(inFile, encodedInFile, state->field.at(first + i, y));
            if (!(loss.light > 0.0f))
                continue;
            for (std::size_t c = 0; c < 3; ++c) {
                raised.light[c][raised.count] = working[c][i];
                raised.lost[c][raised.count] = loss.light * state->spaces.workingFromFile.val[3 * c + loss.channel];
            }
            raised.place[raised.count++] = i;
        }
        if (raised.count == 0)
            continue;
        raised.fillUp();
        raiseBlock(raised);
        for (int i = 0; i < raised.count; ++i)
            block[raised.place[i]] = {raised.light[0][i], raised.light[1][i], raised.light[2][i]};
    }
}

void recoverHighlightHue(PixelRGB<float>* pixels, int width, int height, const std::shared_ptr<ColorProfile>& clippedIn)
{
    const HighlightHueRecovery recovery(pixels, width, height, clippedIn);
    forEachRow(height, [&](int y) {
        recovery.row(y, 0, width, pixels + static_cast<std::size_t>(y) * static_cast<std::size_t>(width));
    });
}

} // namespace orvo
