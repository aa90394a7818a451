/// Vectors of GCC and Clang that hold the channels of a pixel at once, and the next pixel's first.
#pragma once

#include <orvo_core/detail/vector_code.hpp>

#include <cstdint>
#include <cstring>

namespace orvo {

using Samples4 = std::int16_t __attribute__((vector_size(8)));
using Floats4 = float __attribute__((vector_size(16)));
using Integers4 = std::int32_t __attribute__((vector_size(16)));

ORVO_INLINE Floats4 floatsAt(const float* samples)
{
    Floats4 four;
    std::memcpy(&four, samples, sizeof four);
    return four;
}

ORVO_INLINE Floats4 floatsAt(const std::int16_t* samples)
{
    Samples4 four;
    std::memcpy(&four, samples, sizeof four);
    return __builtin_convertvector(__builtin_convertvector(four, Integers4), Floats4); // each step is one instruction
}

} // namespace orvo
