// The light of one frame row, and the noise of the sensor on it. Shared by developed pictures and raw files.
#pragma once

#include <scenes/camera.hpp>

namespace orvo::scenes {

/// Light of the scene with the walker in frame row `y`.
void seenRow(const RadianceScene& scene, const Shot& shot, const Homography& sceneFromFrameMap, int y, int width,
             PixelRGB<float>* row);

/// Adds noise to linear samples of one channel of a pixel, full scale 1.
class NoiseSource
{
public:
    NoiseSource(const std::optional<SensorNoise>& noise, const ExposureSettings& exposure, std::uint64_t seed);
    [[nodiscard]] bool silent() const { return !(perElectron > 0.0f); }
    /// `sample` distinguishes everything that has noise of its own: pixel times channels plus channel.
    [[nodiscard]] float noisy(float linear, std::uint64_t sample) const;

private:
    float perElectron = 0.0f;  // full scale per electron; 0 is no noise
    float readVariance = 0.0f; // of full scale
    std::uint64_t seed;
};

} // namespace orvo::scenes
