/// How a camera maps light to the values in its files.
#pragma once

#include "bracket/frames.hpp"

#include <array>
#include <vector>

namespace orvo {

/// Linear light for the values 0..1 of a file, by channel, as tables.
class CameraResponse
{
public:
    static constexpr int kChannels = 3;

    /// The same curve for all channels.
    [[nodiscard]] static CameraResponse linear();
    [[nodiscard]] static CameraResponse sRGB();

    /// Fits a deviation from sRGB to frames of one size that show the same view at different exposures. `exposures` are
    /// the factors of light, at the indices of the frames. sRGB where the frames show too little.
    [[nodiscard]] static CameraResponse estimatedFrom(const std::vector<HDRFrame>& frames,
                                                      const std::vector<double>& exposures);

    /// Light of a value, which is clamped to 0..1.
    [[nodiscard]] float light(int channel, float value) const;
    /// Light per value there.
    [[nodiscard]] float slope(int channel, float value) const;

private:
    static constexpr int kSteps = 1024;
    using Table = std::array<float, kSteps + 1>;

    template <typename Curve>
    static Table tableOf(const Curve& curve);

    std::array<Table, kChannels> tables{};
};

} // namespace orvo
