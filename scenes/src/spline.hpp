// The spline that turns painted grids into functions of position.
#pragma once

namespace orvo::scenes {

/// Weights of the uniform cubic B-spline at a fraction 0..1 between the second and the third of four points.
struct SplineWeights
{
    float w[4];
    explicit SplineWeights(float t)
    {
        constexpr float kSixth = 1.0f / 6.0f;
        const float s = 1.0f - t;
        w[0] = s * s * s * kSixth;
        w[1] = (4.0f + 3.0f * t * t * (t - 2.0f)) * kSixth;
        w[2] = (4.0f + 3.0f * s * s * (s - 2.0f)) * kSixth;
        w[3] = t * t * t * kSixth;
    }
};

} // namespace orvo::scenes
