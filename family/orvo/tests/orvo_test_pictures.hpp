/// Pictures for the tests of this library.
#pragma once

#include <orvo/raw_development.hpp>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <optional>
#include <random>
#include <vector>

namespace test {

using Pixel = orvo::PixelRGB<float>;
using Picture = orvo::_ImageData<Pixel>;

inline const std::vector<orvo::_Size<int>> kAwkwardSizes = {{0, 0}, {1, 1}, {3, 2}, {1, 7}, {641, 3}};
inline constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
inline constexpr float kInfinity = std::numeric_limits<float>::infinity();

/// A picture of `colour(x, y)`.
inline orvo::PicturePointer drawn(orvo::_Size<int> size, std::shared_ptr<orvo::ColorProfile> profile,
                                  const std::function<Pixel(int, int)>& colour)
{
    auto picture = std::make_shared<Picture>(size, std::move(profile));
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            picture->row(y)[x] = colour(x, y);
    return picture;
}

inline orvo::PicturePointer noise(orvo::_Size<int> size, std::shared_ptr<orvo::ColorProfile> profile, unsigned seed,
                                  float low = 0.0f, float high = 1.0f)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> values(low, high);
    return drawn(size, std::move(profile), [&](int, int) {
        const float r = values(random);
        const float g = values(random);
        return Pixel{r, g, values(random)};
    });
}

inline orvo::PicturePointer copyOf(const orvo::PicturePointer& picture) { return picture->copy({}); }

inline bool bytesEqual(const Picture& a, const Picture& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.pixelCount() * sizeof(Pixel)) == 0;
}

inline bool finite(const Picture& picture)
{
    for (std::size_t i = 0; i < picture.pixelCount(); ++i) {
        const Pixel& p = picture.data()[i];
        if (!std::isfinite(p.r) || !std::isfinite(p.g) || !std::isfinite(p.b))
            return false;
    }
    return true;
}

/// Largest difference of any channel.
inline float largestChange(const Picture& a, const Picture& b)
{
    float most = 0.0f;
    for (std::size_t i = 0; i < a.pixelCount(); ++i) {
        const Pixel& p = a.data()[i];
        const Pixel& q = b.data()[i];
        for (const float d : {p.r - q.r, p.g - q.g, p.b - q.b})
            most = std::isnan(d) ? kInfinity : std::max(most, std::abs(d));
    }
    return most;
}

/// A drawing of discs and squares with soft rims, defined by a formula, so that it can be drawn at any scale. 0..1.
class Discs
{
public:
    explicit Discs(orvo::_Size<int> size, unsigned seed = 5)
    {
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        const int count = size.width * size.height / 1500;
        for (int i = 0; i < count; ++i)
            discs.push_back({unit(random) * size.width, unit(random) * size.height, 4.0 + 14.0 * unit(random),
                             0.15 + 0.7 * unit(random)});
    }

    [[nodiscard]] double at(double x, double y) const
    {
        double value = 0.4;
        for (const Disc& disc : discs) {
            const double reach = disc.radius + 8.0;
            if (std::abs(x - disc.x) > reach || std::abs(y - disc.y) > reach)
                continue;
            const double inside = disc.radius - std::hypot(x - disc.x, y - disc.y);
            if (inside > -8.0)
                value += (disc.value - value) / (1.0 + std::exp(-inside / 0.6));
        }
        return value;
    }

private:
    struct Disc
    {
        double x, y, radius, value;
    };
    std::vector<Disc> discs;
};

/// Folder of the real test pictures, if ORVO_TEST_DATA is set.
inline std::optional<std::filesystem::path> dataFolder()
{
    const char* const folder = std::getenv("ORVO_TEST_DATA");
    return folder != nullptr && *folder != '\0' ? std::optional<std::filesystem::path>(folder) : std::nullopt;
}

} // namespace test
