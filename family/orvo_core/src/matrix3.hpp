/// Products of 3x3 matrices and colours, for the primaries of colour spaces.
#pragma once

#include <array>
#include <cmath>
#include <optional>

namespace orvo {

using Vector3 = std::array<double, 3>;
using Matrix3 = std::array<Vector3, 3>; ///< rows

[[nodiscard]] constexpr Vector3 operator*(const Matrix3& m, const Vector3& v)
{
    Vector3 result{};
    for (std::size_t i = 0; i < 3; ++i)
        result[i] = m[i][0] * v[0] + m[i][1] * v[1] + m[i][2] * v[2];
    return result;
}

[[nodiscard]] constexpr Matrix3 operator*(const Matrix3& a, const Matrix3& b)
{
    Matrix3 result{};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t k = 0; k < 3; ++k)
            result[i][k] = a[i][0] * b[0][k] + a[i][1] * b[1][k] + a[i][2] * b[2][k];
    return result;
}

[[nodiscard]] constexpr Matrix3 diagonal(const Vector3& v)
{
    return {{{v[0], 0.0, 0.0}, {0.0, v[1], 0.0}, {0.0, 0.0, v[2]}}};
}

/// Empty where the rows are so nearly dependent that an inverse would be noise.
[[nodiscard]] inline std::optional<Matrix3> inverse(const Matrix3& m)
{
    Matrix3 result{};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t k = 0; k < 3; ++k) {
            const std::size_t i1 = (i + 1) % 3, i2 = (i + 2) % 3, k1 = (k + 1) % 3, k2 = (k + 2) % 3;
            result[k][i] = m[i1][k1] * m[i2][k2] - m[i1][k2] * m[i2][k1];
        }
    const double determinant = m[0][0] * result[0][0] + m[0][1] * result[1][0] + m[0][2] * result[2][0];
    constexpr double kSmallest = 1e-6; // that of ProPhoto, the widest in use, is 0.25; of sRGB 0.1
    if (!(std::abs(determinant) > kSmallest))
        return std::nullopt;
    for (Vector3& row : result)
        for (double& value : row)
            value /= determinant;
    return result;
}

} // namespace orvo
