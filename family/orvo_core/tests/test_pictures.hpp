/// Pictures and comparisons for the tests of this library.
#pragma once

#include <orvo_core/image_data.hpp>

#include <cstddef>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

namespace test {

using Picture = orvo::_ImageData<orvo::PixelRGB<float>>;
using PictureRGBA = orvo::_ImageData<orvo::PixelRGBA<float>>;

inline const std::vector<orvo::_Size<int>> kAwkwardSizes = {{0, 0}, {1, 1}, {1, 7}, {641, 3}, {64, 64}};

/// Seeded noise between `low` and `high`.
template <typename T>
std::shared_ptr<orvo::_ImageData<T>> noise(orvo::_Size<int> size, unsigned seed, float low = 0.0f, float high = 1.0f,
                                           std::shared_ptr<orvo::ColorProfile> profile = nullptr)
{
    auto result = std::make_shared<orvo::_ImageData<T>>(size, std::move(profile));
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> values(low, high);
    auto* const samples = reinterpret_cast<float*>(result->data());
    for (std::size_t i = 0; i < result->pixelCount() * (sizeof(T) / sizeof(float)); ++i)
        samples[i] = values(random);
    return result;
}

template <typename T>
bool bytesEqual(const orvo::_ImageData<T>& a, const orvo::_ImageData<T>& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.pixelCount() * sizeof(T)) == 0;
}

/// The mean of each channel, summed in double.
template <typename T>
std::vector<double> means(const orvo::_ImageData<T>& picture)
{
    constexpr std::size_t kChannels = sizeof(T) / sizeof(float);
    std::vector<double> sums(kChannels, 0.0);
    const auto* const samples = reinterpret_cast<const float*>(picture.data());
    for (std::size_t i = 0; i < picture.pixelCount() * kChannels; ++i)
        sums[i % kChannels] += static_cast<double>(samples[i]);
    for (double& sum : sums)
        sum /= static_cast<double>(picture.pixelCount());
    return sums;
}

} // namespace test
