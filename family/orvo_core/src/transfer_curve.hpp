/// Transfer curves of matrix profiles, evaluated for many samples at once.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace orvo {

/// The curve from an encoded sample to light. All are odd (mirrored below 0), continue beyond 1 and have an inverse.
class TransferCurve
{
public:
    enum class Kind
    {
        kLinear,
        kSRGB,    ///< IEC 61966-2-1
        kGamma,   ///< a plain power
        kSampled, ///< a table, linear between its points and beyond its end
    };

    static constexpr int kTableSteps = 4096; ///< of kSampled, for 0..1; an ICC file's own tables have at most these

    /// Recognises the kind of the curve `light(encoded)` for 0..1. Throws std::invalid_argument unless it increases
    /// from 0 to 1 everywhere: any other curve has no inverse.
    explicit TransferCurve(const std::function<double(double)>& light);

    [[nodiscard]] Kind kind() const { return form; }
    /// In place, `count` samples.
    void decode(float* samples, int count) const; ///< encoded to light
    void encode(float* samples, int count) const; ///< light to encoded
    /// Equal texts for curves that hardly differ.
    [[nodiscard]] std::string text() const;

private:
    void fillTable(const std::vector<double>& values);
    [[nodiscard]] float lightOf(float encoded) const; // from the table
    [[nodiscard]] float encodedOf(float light) const;

    Kind form = Kind::kSampled;
    float gamma = 1.0f;
    float endSlope = 1.0f;    // of light, beyond 1
    std::vector<float> table; // kTableSteps + 1 values of light
    std::vector<int> guide;   // for light in steps of the root: where to start searching `table`
};

} // namespace orvo
