#include "filling/usage_cost.hpp"

#include <algorithm>

namespace orvo::details {

UsageCost::UsageCost(const PatchFillSettings& settings, const FillLevel& level, const PatchField& field)
    : width(level.width()), columns((level.width() + kBlock - 1) / kBlock)
{
    constexpr float kMost = 4.0f; // times the weight
    constexpr int kColours = 3;
    if (!(settings.usageWeight > 0.0f))
        return;
    const int rows = (level.height() + kBlock - 1) / kBlock;
    costs.resize(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows));
    std::int64_t targets = 0;
    for (int y = 0; y < level.height(); ++y) {
        const FillLevel::Span span = level.targetSpans[static_cast<std::size_t>(y)];
        for (int x = span.first; x < span.end; ++x) {
            const auto target = static_cast<std::size_t>(level.at(x, y));
            if (level.targets[target] == 0)
                continue;
            ++costs[blockOf(field.source[target])];
            ++targets;
        }
    }
    const float even = std::max(1.0f, static_cast<float>(targets) / static_cast<float>(level.sourceCount));
    const float free = settings.usageLimit * even * static_cast<float>(kBlock * kBlock);
    const float unit = settings.usageWeight * settings.usageWeight * static_cast<float>(kPatchPixels * kColours);
    for (std::int32_t& cost : costs)
        cost = static_cast<std::int32_t>(unit * std::clamp(static_cast<float>(cost) / free - 1.0f, 0.0f, kMost));
}

} // namespace orvo::details
