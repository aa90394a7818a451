/// Pictures and masks for the tests of filling.
#pragma once

#include "orvo_test_pictures.hpp"

#include <orvo/filling.hpp>

#include <cmath>
#include <functional>
#include <memory>

namespace test {

using Mask = orvo::_ImageData<float>;

/// 1 where `inside` is true.
inline std::shared_ptr<Mask> maskOf(orvo::_Size<int> size, const std::function<bool(int x, int y)>& inside)
{
    auto mask = std::make_shared<Mask>(size, nullptr);
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            mask->row(y)[x] = inside(x, y) ? 1.0f : 0.0f;
    return mask;
}

inline std::function<bool(int, int)> within(orvo::_Rect<int> rect)
{
    return [rect](int x, int y) {
        return x >= rect.x && y >= rect.y && x < rect.x + rect.width && y < rect.y + rect.height;
    };
}

inline orvo::PicturePointer filled(const Picture& picture, const Mask& mask,
                                   const orvo::RunControl& control = orvo::RunControl::none())
{
    return orvo::patchFiller()->fill(picture, mask, control);
}

/// A texture with structure at several scales, without a period.
inline Pixel cloth(int x, int y)
{
    const auto wave = [](double v) { return static_cast<float>(0.5 + 0.5 * std::sin(v)); };
    const float coarse = wave(0.11 * x + 0.05 * y + 2.0 * std::sin(0.013 * y));
    const float fine = wave(1.3 * x + 0.4 * std::sin(0.2 * y)) * wave(0.9 * y);
    return {0.2f + 0.5f * coarse, 0.3f + 0.4f * fine, 0.2f + 0.25f * (coarse + fine)};
}

/// Checks that the known pixels have the same bytes.
inline bool knownEqual(const Picture& a, const Picture& b, const Mask& mask)
{
    for (std::size_t i = 0; i < a.pixelCount(); ++i)
        if (!(mask.data()[i] >= 0.5f) && std::memcmp(&a.data()[i], &b.data()[i], sizeof(Pixel)) != 0)
            return false;
    return true;
}

/// The largest difference of a channel in the hole.
inline float worstInside(const Picture& a, const Picture& b, const Mask& mask)
{
    float worst = 0.0f;
    for (std::size_t i = 0; i < a.pixelCount(); ++i) {
        if (!(mask.data()[i] >= 0.5f))
            continue;
        const Pixel& p = a.data()[i];
        const Pixel& q = b.data()[i];
        for (const float d : {p.r - q.r, p.g - q.g, p.b - q.b})
            worst = std::isnan(d) ? kInfinity : std::max(worst, std::abs(d));
    }
    return worst;
}

} // namespace test
