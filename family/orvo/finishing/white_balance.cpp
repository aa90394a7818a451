#include "common/curve_tables.hpp"

#include <orvo/finishing.hpp>
#include <orvo_common/scoped_timer.hpp>
#include <orvo_core/luma.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <vector>

namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;
using Colour = std::array<double, 3>;

constexpr int kSmallSide = 384; // px: the cast is estimated on a small version
constexpr double kMinkowskiNorm =
    6.0;                         // the best value for Finlayson and Trezzi 2004, and for van de Weijer et al. 2007
constexpr float kClipped = 0.9f; // linear; a clipped pixel has lost its colour
constexpr float kDark = 0.005f;  // linear luminance; noise dominates below it
constexpr std::size_t kLeastPixels = 64;
constexpr double kGrayRange = 0.35;      // log2 distance from the estimate within which a pixel counts as gray
constexpr double kDisagreement = 0.5;    // log2 distance of two estimates of the cast at which little trust is left
constexpr double kMostTemperature = 2.0; // log2 of red over blue: from daylight to candles and deep shade
constexpr double kMostTint = 0.35;       // log2 of green over the mean of the others: lights hardly differ in it
constexpr double kNoCast = 0.005;        // log2; less is invisible
constexpr float kFadeStart = 0.75f;      // linear level from which whites are protected: clipped ones are white

Colour linearOf(const PixelRGB<float>& p, bool linear)
{
    const details::CurveTables& tables = details::CurveTables::instance();
    const auto decode = [&](float v) { return static_cast<double>(linear ? v : tables.decode(v)); };
    return {decode(p.r), decode(p.g), decode(p.b)};
}

double luminance(const Colour& c) { return luma601(c[0], c[1], c[2]); }

bool usable(const Colour& c)
{
    // Written so that NaN is not usable.
    return c[0] < kClipped && c[1] < kClipped && c[2] < kClipped && c[0] > 0.0 && c[1] > 0.0 && c[2] > 0.0 &&
           luminance(c) > kDark;
}

// The colour of the light as log2 of red and blue over green.
struct Cast
{
    double red = 0.0;
    double blue = 0.0;
};

double distance(const Colour& c, const Cast& cast)
{
    return std::hypot(std::log2(c[0] / c[1]) - cast.red, std::log2(c[2] / c[1]) - cast.blue);
}

// Minkowski means of each channel.
class Mean
{
public:
    explicit Mean(double norm_) : norm(norm_) {}
    void add(const Colour& c, double weight)
    {
        for (std::size_t i = 0; i < 3; ++i)
            sum[i] += weight * std::pow(std::abs(c[i]), norm);
        ++count;
    }
    [[nodiscard]] std::optional<Cast> cast() const
    {
        if (count < kLeastPixels || !(sum[0] > 0.0 && sum[1] > 0.0 && sum[2] > 0.0))
            return std::nullopt;
        return Cast{std::log2(sum[0] / sum[1]) / norm, std::log2(sum[2] / sum[1]) / norm};
    }

private:
    double norm;
    Colour sum{};
    std::size_t count = 0;
};

class CastEstimator
{
public:
    CastEstimator(const Picture& small, bool linear)
        : width(small.width()), height(small.height()), colours(small.pixelCount())
    {
        for (std::size_t i = 0; i < colours.size(); ++i)
            colours[i] = linearOf(small.data()[i], linear);
    }

    // The mean of three estimates: all pixels (shades of gray), edges (gray edge of first order), and the pixels that
    // are gray under roughly such a light. Large areas of one colour mislead the first two, but hardly the third.
    [[nodiscard]] Cast estimate() const
    {
        const std::optional<Cast> shades = ofPixels(nullptr, kMinkowskiNorm);
        const std::optional<Cast> edges = ofEdges();
        if (!shades)
            return {};
        Cast cast = edges ? mean(*shades, *edges) : *shades;
        constexpr int kRounds = 3;
        for (int round = 0; round < kRounds; ++round) {
            const std::optional<Cast> grays = ofPixels(&cast, 1.0);
            if (grays)
                cast = mean(cast, *grays);
        }
        const double share = edges ? trust(*shades, *edges) : 1.0;
        return limited({cast.red * share, cast.blue * share});
    }

private:
    static Cast mean(const Cast& a, const Cast& b) { return {(a.red + b.red) / 2.0, (a.blue + b.blue) / 2.0}; }

    // Under one light both estimates agree. Where they do not, the colour belongs to objects: a blue sky dominates the
    // areas and yellow trees the edges. The result is then uncertain, and less is changed.
    static double trust(const Cast& areas, const Cast& edges)
    {
        const double apart = std::hypot(areas.red - edges.red, areas.blue - edges.blue) / kDisagreement;
        return std::exp(-apart * apart);
    }

    static Cast limited(const Cast& cast)
    {
        const double temperature = std::clamp(cast.red - cast.blue, -kMostTemperature, kMostTemperature);
        const double tint = std::clamp((cast.red + cast.blue) / 2.0, -kMostTint, kMostTint);
        return {tint + temperature / 2.0, tint - temperature / 2.0};
    }

    [[nodiscard]] std::optional<Cast> ofPixels(const Cast* about, double norm) const
    {
        Mean sum(norm);
        for (const Colour& c : colours) {
            if (!usable(c))
                continue;
            const double away = about != nullptr ? distance(c, *about) / kGrayRange : 0.0;
            if (away < 3.0)
                sum.add(c, std::exp(-away * away));
        }
        return sum.cast();
    }

    [[nodiscard]] std::optional<Cast> ofEdges() const
    {
        Mean sum(kMinkowskiNorm);
        for (int y = 1; y + 1 < height; ++y) {
            for (int x = 1; x + 1 < width; ++x) {
                const std::array<const Colour*, 4> around{&at(x - 1, y), &at(x + 1, y), &at(x, y - 1), &at(x, y + 1)};
                if (!std::all_of(around.begin(), around.end(), [](const Colour* c) { return usable(*c); }))
                    continue;
                Colour slope;
                for (std::size_t i = 0; i < 3; ++i)
                    slope[i] = std::hypot((*around[1])[i] - (*around[0])[i], (*around[3])[i] - (*around[2])[i]);
                sum.add(slope, 1.0);
            }
        }
        return sum.cast();
    }

    [[nodiscard]] const Colour& at(int x, int y) const
    {
        return colours[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
    }

    int width;
    int height;
    std::vector<Colour> colours;
};

_Size<int> smallSize(const _Size<int>& size)
{
    const int longest = std::max(size.width, size.height);
    if (longest <= kSmallSide)
        return size;
    const auto scaled = [longest](int side) {
        return std::max(1, static_cast<int>(static_cast<long long>(side) * kSmallSide / longest));
    };
    return {scaled(size.width), scaled(size.height)};
}

// Near white the change fades out: clipped pixels are white under any light, and would turn to the opposite colour of
// the cast.
float shareAt(const PixelRGB<float>& light)
{
    const float sum = light.r + light.g + light.b;
    const float pairs = sum > 0.0f ? (light.r * light.g + light.g * light.b + light.b * light.r) / sum : 0.0f;
    const float t = std::clamp((pairs - kFadeStart) / (1.0f - kFadeStart), 0.0f, 1.0f);
    return 1.0f - t * t * (3.0f - 2.0f * t);
}

} // namespace

void applyWB(PicturePointer& image, float value)
{
    if (!image || image->pixelCount() == 0 || !(value > 0.0f))
        return;
    const ScopedTimer timer("applyWB", 0);
    const bool linear = image->colorProfile() && image->colorProfile()->isLinear();
    const _Size<int> size = smallSize(image->size());
    const Cast cast = size == image->size() ? CastEstimator(*image, linear).estimate()
                                            : CastEstimator(*image->resize(size, {}, true), linear).estimate();
    const double share = std::min(value, 1.0f);
    if (std::max(std::abs(cast.red), std::abs(cast.blue)) * share < kNoCast)
        return;

    // Gains that remove the cast and keep the luminance of a gray under it.
    const Colour light{std::exp2(cast.red * share), 1.0, std::exp2(cast.blue * share)};
    const double level = luminance(light);
    const PixelRGB<float> gain{static_cast<float>(level / light[0]), static_cast<float>(level / light[1]),
                               static_cast<float>(level / light[2])};
    const details::CurveTables& tables = details::CurveTables::instance();
    PixelRGB<float>* const pixels = image->data();
    forEachRange(image->pixelCount(), [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i != last; ++i) {
            PixelRGB<float>& p = pixels[i];
            PixelRGB<float> at =
                linear ? p : PixelRGB<float>{tables.decode(p.r), tables.decode(p.g), tables.decode(p.b)};
            const float kept = shareAt(at);
            at.r *= 1.0f + (gain.r - 1.0f) * kept;
            at.g *= 1.0f + (gain.g - 1.0f) * kept;
            at.b *= 1.0f + (gain.b - 1.0f) * kept;
            p = linear ? at : PixelRGB<float>{tables.encode(at.r), tables.encode(at.g), tables.encode(at.b)};
        }
    });
}

} // namespace orvo
