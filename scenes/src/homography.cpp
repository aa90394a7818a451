#include <scenes/homography.hpp>

#include <cmath>
#include <stdexcept>

namespace orvo::scenes {

Homography compose(const Homography& outer, const Homography& inner)
{
    Homography product{};
    for (std::size_t row = 0; row < 3; ++row)
        for (std::size_t column = 0; column < 3; ++column)
            for (std::size_t k = 0; k < 3; ++k)
                product[row * 3 + column] += outer[row * 3 + k] * inner[k * 3 + column];
    return product;
}

Homography inverse(const Homography& m)
{
    const Homography adjugate = {m[4] * m[8] - m[5] * m[7], m[2] * m[7] - m[1] * m[8], m[1] * m[5] - m[2] * m[4],
                                 m[5] * m[6] - m[3] * m[8], m[0] * m[8] - m[2] * m[6], m[2] * m[3] - m[0] * m[5],
                                 m[3] * m[7] - m[4] * m[6], m[1] * m[6] - m[0] * m[7], m[0] * m[4] - m[1] * m[3]};
    const double determinant = m[0] * adjugate[0] + m[1] * adjugate[3] + m[2] * adjugate[6];
    if (!(std::abs(determinant) > 0.0))
        throw std::invalid_argument("homography: the matrix has no inverse");
    Homography result = adjugate;
    for (double& value : result)
        value /= determinant;
    return result;
}

_Point<double> mapPoint(const Homography& m, _Point<double> point)
{
    const double scale = 1.0 / (m[6] * point.x + m[7] * point.y + m[8]);
    return {(m[0] * point.x + m[1] * point.y + m[2]) * scale, (m[3] * point.x + m[4] * point.y + m[5]) * scale};
}

} // namespace orvo::scenes
