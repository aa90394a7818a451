/// The implementation of ColorProfile, and LittleCMS handles. Private to this library.
#pragma once

#include "transfer_curve.hpp"

#include <orvo_core/color_profile.hpp>

#include <Eigen/Dense>
#include <lcms2.h>

#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace orvo {

using Vector3 = Eigen::Vector3d;
using Matrix3 = Eigen::Matrix3d;

/// Empty if the rows are so nearly dependent that the inverse would be noise.
[[nodiscard]] inline std::optional<Matrix3> inverse(const Matrix3& m)
{
    constexpr double kSmallest = 1e-6; // of the determinant; that of ProPhoto, the widest in use, is 0.25; of sRGB 0.1
    Matrix3 result;
    bool isInvertible = false;
    m.computeInverseWithCheck(result, isInvertible, kSmallest);
    return isInvertible ? std::optional(result) : std::nullopt;
}

struct ColorProfile::Impl
{
    enum class Kind
    {
        kNone,
        kMatrix, ///< curves and primaries; gray too
        kTables, ///< anything else LittleCMS reads
    };

    Kind kind = Kind::kNone;
    int channels = 3;
    std::vector<unsigned char> icc;
    std::string hash;
    std::string description;
    Matrix3 xyzFromLinear = Matrix3::Zero(); ///< to D50; kMatrix only
    std::vector<TransferCurve> curves;       ///< three; kMatrix only
};

/// Our own LittleCMS context, which prints nothing.
[[nodiscard]] cmsContext lcmsContext();

struct LcmsCloser
{
    void operator()(void* profile) const { cmsCloseProfile(profile); }
};
struct LcmsDeleter
{
    void operator()(void* transform) const { cmsDeleteTransform(transform); }
    void operator()(cmsToneCurve* curve) const { cmsFreeToneCurve(curve); }
    void operator()(cmsMLU* text) const { cmsMLUfree(text); }
};
using LcmsProfile = std::unique_ptr<void, LcmsCloser>;
using LcmsTransform = std::unique_ptr<void, LcmsDeleter>;

/// Handles are not shared among threads: each user opens its own. Empty if the bytes are not a profile.
[[nodiscard]] LcmsProfile openLcmsProfile(const std::vector<unsigned char>& icc);

/// The LittleCMS format of `channels` interleaved floats.
[[nodiscard]] constexpr cmsUInt32Number lcmsFormat(int channels)
{
    return channels == 1 ? TYPE_GRAY_FLT : channels == 4 ? TYPE_CMYK_FLT : TYPE_RGB_FLT;
}

} // namespace orvo
