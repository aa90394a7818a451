/// Rays, and their rotation by 3x3 matrices (row after row).
#pragma once

#include <orvo_core/detail/vector_code.hpp>

namespace orvo {

struct Ray
{
    float x, y, z;
};

ORVO_INLINE Ray turned(const float* m, float x, float y, float z)
{
    return {m[0] * x + m[1] * y + m[2] * z, m[3] * x + m[4] * y + m[5] * z, m[6] * x + m[7] * y + m[8] * z};
}

} // namespace orvo
