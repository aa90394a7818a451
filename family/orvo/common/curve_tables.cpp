#include "common/curve_tables.hpp"

namespace orvo::details {

const CurveTables& CurveTables::instance()
{
    static const CurveTables tables;
    return tables;
}

CurveTables::CurveTables()
{
    for (std::size_t i = 0; i <= kEncodePieces; ++i) {
        const std::uint32_t bits = kEncodeStartBits + (static_cast<std::uint32_t>(i) << kEncodeShift);
        encoded[i] = srgbCurveFromLinear(std::bit_cast<float>(bits));
    }
    for (std::size_t i = 0; i <= kDecodePieces; ++i)
        decoded[i] = linearFromSRGBCurve(static_cast<float>(i) / static_cast<float>(kDecodePieces));
}

} // namespace orvo::details
