/// Planes of single bits, filled by many threads.
#pragma once

#include <orvo_core/parallel.hpp>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace orvo {

/// Sets the bit `i` of `bits` wherever `isSet(i)`, and no others. Parallel. Setting a bit reads and writes its word,
/// and a word may hold the end of one row and the start of the next, so threads get blocks of whole words instead of
/// rows.
template <typename IsSet>
void setBits(std::vector<bool>& bits, const IsSet& isSet)
{
    constexpr std::size_t kBlock = std::size_t{1} << 16; // bits; a multiple of any word
    const std::size_t blocks = (bits.size() + kBlock - 1) / kBlock;
    forEachRow(static_cast<int>(blocks), [&](int block) {
        const std::size_t first = static_cast<std::size_t>(block) * kBlock;
        const std::size_t last = std::min(bits.size(), first + kBlock);
        for (std::size_t i = first; i < last; ++i)
            if (isSet(i))
                bits[i] = true;
    });
}

} // namespace orvo
