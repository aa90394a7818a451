// The light of one frame row, and the sensor's noise on it. Shared by developed pictures and raw files.
#pragma once

#include <scenes/camera.hpp>

namespace orvo::scenes {

/// The light that reaches the sensor in one shot, row by row.
class Sight
{
public:
    Sight(const RadianceScene& scene, const Shot& shot);
    /// Light of the scene with the walker, pixels (0, y) .. (width - 1, y) of the frame.
    void row(int y, int width, PixelRGB<float>* light) const;
    /// The walker's coverage of the same pixels.
    void coverageRow(int y, int width, float* coverage) const;

private:
    /// Calls `visit(x, sample)` where the walker covers part of row `y`.
    template <typename Visit>
    void overSubject(int y, int width, const Visit& visit) const;

    const RadianceScene& scene;
    std::optional<SubjectPlacement> subject;
    Homography map;
    _Rect<double> subjectBox; // frame pixels that can show the walker
};

/// Adds noise to linear samples of one channel of a pixel, full scale 1.
class NoiseSource
{
public:
    NoiseSource(const std::optional<SensorNoise>& noise, const ExposureSettings& exposure, std::uint64_t seed);
    [[nodiscard]] bool silent() const { return !(perElectron > 0.0f); }
    /// `sample` identifies each independent noise value: pixel times channels plus channel.
    [[nodiscard]] float noisy(float linear, std::uint64_t sample) const;

private:
    float perElectron = 0.0f;  // full scale per electron; 0 is no noise
    float readVariance = 0.0f; // of full scale
    std::uint64_t seed;
};

} // namespace orvo::scenes
