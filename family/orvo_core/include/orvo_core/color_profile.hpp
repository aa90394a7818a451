/// Colour spaces of pictures.
#pragma once

#include <orvo_common/export.hpp>

#include <memory>
#include <span>
#include <string>
#include <vector>

namespace orvo {

/// A colour space, immutable, shared through std::shared_ptr. Either a matrix profile (three primaries and a curve for
/// each), any other profile that LittleCMS can read, or none at all. Usable from any thread. An empty pointer in a
/// picture means the same as ColorProfileType::None().
class ORVO_EXPORT ColorProfile
{
public:
    ColorProfile(const ColorProfile&) = delete;
    ColorProfile& operator=(const ColorProfile&) = delete;
    ~ColorProfile();

    /// A profile from the bytes of an ICC file; empty if they are not a usable RGB, gray or CMYK profile. A gray
    /// profile with a single curve works for RGB pixels too: with that curve and the primaries of sRGB, neutral stays
    /// neutral.
    [[nodiscard]] static std::shared_ptr<ColorProfile> fromIcc(std::span<const unsigned char> icc);

    /// A stable text: equal for profiles of the same space, whatever their names.
    [[nodiscard]] const std::string& hash() const;

    /// Compares hash().
    bool operator==(const ColorProfile& other) const;

    /// The bytes of an ICC file of this space; empty for None().
    [[nodiscard]] const std::vector<unsigned char>& icc() const;

    /// Samples per pixel: 1 gray, 3 RGB (None() too), 4 CMYK.
    [[nodiscard]] int channelCount() const;

    /// Whether samples are proportional to light.
    [[nodiscard]] bool isLinear() const;

    /// Name for display, such as "sRGB".
    [[nodiscard]] const std::string& description() const;

    struct Impl; ///< for the colour transform of this library
    [[nodiscard]] const Impl& impl() const { return *implementation; }
    explicit ColorProfile(std::unique_ptr<Impl> implementation);

private:
    std::unique_ptr<Impl> implementation;
};

/// The shared instances.
struct ORVO_EXPORT ColorProfileType
{
    /// IEC 61966-2-1.
    static std::shared_ptr<ColorProfile> sRGB();
    /// The working space: the primaries of ProPhoto RGB (ISO 22028-2), white D50, the transfer curve of sRGB. Wide
    /// enough to keep every camera colour, with the curve of sRGB, so that tone operations behave alike in both.
    static std::shared_ptr<ColorProfile> melissaRGB();
    /// The primaries of melissaRGB() with samples proportional to light: for undeveloped raw pictures.
    static std::shared_ptr<ColorProfile> linearMelissaRGB();
    /// The primaries of sRGB() with samples proportional to light: for EXR files.
    static std::shared_ptr<ColorProfile> linearSRGB();
    /// Data without a profile: never converted.
    static std::shared_ptr<ColorProfile> None();
};

/// The transfer curve of sRGB, continued beyond 1 and mirrored below 0, so that it has an inverse everywhere.
[[nodiscard]] ORVO_EXPORT float linearFromSRGBCurve(float encoded);
[[nodiscard]] ORVO_EXPORT float srgbCurveFromLinear(float linear);

} // namespace orvo
