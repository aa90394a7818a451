#include "answers/colour_membrane.hpp"

#include <orvo/answers.hpp>
#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvo {
namespace {

using Picture = _ImageData<PixelRGB<float>>;

std::string text(_Size<int> size) { return std::to_string(size.width) + " x " + std::to_string(size.height); }

bool sameProfile(const Picture& a, const Picture& b)
{
    return a.colorProfile() == b.colorProfile() ||
           (a.colorProfile() && b.colorProfile() && *a.colorProfile() == *b.colorProfile());
}

// `picture` converted to the profile of `other`; `picture` itself if they are equal.
std::shared_ptr<const Picture> inProfileOf(const Picture& other, const std::shared_ptr<const Picture>& picture)
{
    if (sameProfile(*picture, other) || !other.colorProfile())
        return picture;
    std::shared_ptr<Picture> converted;
    picture->colorTransform(converted, other.colorProfile(), true);
    return converted;
}

float luma(const PixelRGB<float>& p) { return 0.25f * p.r + 0.5f * p.g + 0.25f * p.b; }

// Strength of the finest structure: the residual of 2 x 2 pixels without their mean, rows and columns. It is 0 for
// smooth pictures and 2 s for white noise of deviation s.
float finest(const Picture& picture, int x, int y)
{
    const PixelRGB<float>* const above = picture.row(y) + x;
    const PixelRGB<float>* const below = picture.row(y + 1) + x;
    return luma(above[0]) - luma(above[1]) - luma(below[0]) + luma(below[1]);
}

// Deviation of the grain where the mask is 0: the median over the three quarters of the samples with the least
// structure, so that edges do not count as grain.
struct Grain
{
    float source = 0.0f;
    float result = 0.0f;
};

Grain grainAround(const Picture& result, const Picture& source, const _ImageData<float>& mask)
{
    constexpr int kStep = 4;                       // pixels between samples
    constexpr std::size_t kLeastPlaces = 64;       // too few to measure below this
    constexpr float kDeviationOfQuantile = 2.046f; // 1 / the 0.375 quantile of an absolute normal distribution
    std::vector<float> ofSource;
    std::vector<float> ofResult;
    for (int y = 0; y + 1 < mask.height(); y += kStep)
        for (int x = 0; x + 1 < mask.width(); x += kStep)
            if (mask.row(y)[x] == 0.0f && mask.row(y + 1)[x + 1] == 0.0f) {
                ofSource.push_back(std::abs(finest(source, x, y)));
                ofResult.push_back(std::abs(finest(result, x, y)));
            }
    if (ofSource.size() < kLeastPlaces)
        return {};
    const auto deviation = [](std::vector<float>& values) {
        // The median of the lower three quarters.
        const auto place = values.begin() + static_cast<std::ptrdiff_t>(values.size() * 3 / 8);
        std::nth_element(values.begin(), place, values.end());
        return kDeviationOfQuantile * *place / 2.0f;
    };
    return {deviation(ofSource), deviation(ofResult)};
}

// Pseudorandom value that depends only on the position; mean 0, deviation 1, about normal: the sum of four uniform ones
// from one mixed word (the mixer of Steele, Lea, Flood: Fast Splittable Pseudorandom Number Generators, OOPSLA 2014).
float grainAt(int x, int y)
{
    std::uint64_t z = static_cast<std::uint64_t>(static_cast<std::uint32_t>(x)) << 32 | static_cast<std::uint32_t>(y);
    z += 0x9E3779B97F4A7C15ull;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    z ^= z >> 31;
    const auto part = [z](int shift) { return static_cast<float>(z >> shift & 0xFFFF) / 65535.0f - 0.5f; };
    constexpr float kDeviationOfSum = 0.57735f; // square root of 4/12
    return (part(0) + part(16) + part(32) + part(48)) / kDeviationOfSum;
}

void addGrain(Picture& result, const _ImageData<float>& mask, float deviation)
{
    constexpr float kMostGrain = 0.05f; // more is not grain
    const float strength = std::min(deviation, kMostGrain);
    forEachRow(result.height(), [&](int y) {
        PixelRGB<float>* const row = result.row(y);
        const float* const weights = mask.row(y);
        for (int x = 0; x < result.width(); ++x) {
            if (weights[x] == 0.0f)
                continue;
            const float grain = strength * grainAt(x, y);
            row[x] = {row[x].r + grain, row[x].g + grain, row[x].b + grain};
        }
    });
}

} // namespace

void blendWithSource(AnswerPicture& result, const std::shared_ptr<const Picture>& source,
                     const std::shared_ptr<const _ImageData<float>>& mask)
{
    if (!result || !source || !mask || result->size() != source->size() || result->size() != mask->size())
        throw std::invalid_argument("blendWithSource: answer, source and mask of one size are needed" +
                                    (result && source && mask ? ", found " + text(result->size()) + ", " +
                                                                    text(source->size()) + " and " + text(mask->size())
                                                              : std::string()));
    if (!sameProfile(*result, *source) && source->colorProfile())
        result->convertTo(source->colorProfile());
    const Grain grain = grainAround(*result, *source, *mask);
    addMembrane(*result, *source, *mask);
    constexpr float kNoticeable = 1.1f; // less is within the error of the measurement
    if (grain.source > kNoticeable * grain.result)
        addGrain(*result, *mask, std::sqrt(grain.source * grain.source - grain.result * grain.result));
}

void blendRoi(AnswerPicture& target, const std::shared_ptr<const Picture>& result,
              const std::shared_ptr<const _ImageData<float>>& mask, const _Rect<int>& rect)
{
    if (!target || !result || !mask || result->size() != rect.size() || mask->size() != rect.size())
        throw std::invalid_argument(
            "blendRoi: answer and mask of " + text(rect.size()) + " are needed" +
            (result && mask ? ", found " + text(result->size()) + " and " + text(mask->size()) : std::string()));
    const auto fitting = inProfileOf(*target, result);
    const auto blendRow = [&](int row) {
        const std::int64_t y = std::int64_t{rect.y} + row;
        if (y < 0 || y >= target->height())
            return;
        PixelRGB<float>* const into = target->row(static_cast<int>(y));
        const PixelRGB<float>* const from = fitting->row(row);
        const float* const weights = mask->row(row);
        const int begin = std::max(0, -std::max(rect.x, -rect.width));
        const auto end = static_cast<int>(std::min<std::int64_t>(rect.width, std::int64_t{target->width()} - rect.x));
        for (int x = begin; x < end; ++x) {
            const float w = weights[x];
            if (!(w > 0.0f))
                continue;
            PixelRGB<float>& pixel = into[rect.x + x];
            if (w >= 1.0f)
                pixel = from[x];
            else
                pixel = {pixel.r + (from[x].r - pixel.r) * w, pixel.g + (from[x].g - pixel.g) * w,
                         pixel.b + (from[x].b - pixel.b) * w};
        }
    };
    forEachRow(rect.height, blendRow);
}

} // namespace orvo
