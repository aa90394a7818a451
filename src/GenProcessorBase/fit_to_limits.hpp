/// Shrinks a request until its text is short enough.
#pragma once

#include <orvo_core/geometry.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>

namespace orvo {

/// Clamps `size` so that no side exceeds `aspect` times the other; an aspect below 1 switches this off. No side becomes
/// 0, since resize() takes an empty size as the whole picture.
[[nodiscard]] inline _Size<int> clampedToAspect(_Size<int> size, float aspect)
{
    if (!(aspect >= 1.0f))
        return size;
    const auto width = static_cast<float>(size.width);
    const auto height = static_cast<float>(size.height);
    if (height * aspect < width)
        return {std::max(1, static_cast<int>(height * aspect)), size.height};
    if (width * aspect < height)
        return {size.width, std::max(1, static_cast<int>(width * aspect))};
    return size;
}

/// A scale and its candidate; empty at scale 0.
template <typename Candidate>
struct ScaledCandidate
{
    float scale = 0.0f;
    std::shared_ptr<const Candidate> candidate;

    [[nodiscard]] _Size<int> size() const { return candidate ? candidate->image->size() : _Size<int>(); }
};

/// Finds by bisection the largest candidate whose `total` is at most `maxSize` and whose sides respect `aspect`. A
/// Candidate has `image`, and `resized(size)` returns a newly encoded one; `total(candidate)` is the length of its
/// text. Encoding dominates the cost, so no size is encoded twice, and the search stops within a hundredth of the
/// scale. If nothing fits, returns the smallest candidate tried. An empty candidate gives an empty result.
template <typename Candidate, typename Total>
[[nodiscard]] std::shared_ptr<const Candidate> fitToLimits(std::shared_ptr<const Candidate> candidate,
                                                           std::int32_t maxSize, float aspect, const Total& total)
{
    if (!candidate)
        return nullptr;
    const _Size<int> given = candidate->image->size();
    const _Size<int> full = clampedToAspect(given, aspect);
    if (full != given)
        candidate = candidate->resized(full);
    const auto fits = [&](const Candidate& c) { return static_cast<std::int64_t>(total(c)) <= maxSize; };
    if (fits(*candidate))
        return candidate;
    const auto sizeAt = [&](float scale) {
        if (scale == 1.0f)
            return clampedToAspect(full, aspect);
        const auto side = [scale](int length) {
            return std::max(1, static_cast<int>(static_cast<float>(length) * scale));
        };
        return clampedToAspect({side(full.width), side(full.height)}, aspect);
    };

    ScaledCandidate<Candidate> upper;
    upper.scale = std::sqrt(static_cast<float>(std::max(0, maxSize)) / static_cast<float>(total(*candidate)));
    const _Size<int> first = sizeAt(upper.scale);
    upper.candidate = first == full ? candidate : candidate->resized(first);
    if (fits(*upper.candidate))
        return upper.candidate;
    ScaledCandidate<Candidate> lower;
    for (;;) {
        const _Size<int> lowSize = lower.size();
        const _Size<int> highSize = upper.size();
        if (highSize.width - lowSize.width < 2 && highSize.height - lowSize.height < 2)
            break;
        if (std::abs(upper.scale - lower.scale) < 0.01f)
            break;
        const float middle = (upper.scale + lower.scale) * 0.5f;
        const _Size<int> size = sizeAt(middle);
        if (size == lowSize) {
            lower.scale = middle;
        } else if (size == highSize) {
            upper.scale = middle;
        } else {
            auto next = candidate->resized(size);
            auto& bound = fits(*next) ? lower : upper;
            bound = {middle, std::move(next)};
        }
    }
    return lower.candidate ? lower.candidate : upper.candidate;
}

} // namespace orvo
