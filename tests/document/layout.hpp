// Positions of fields in memory and of virtual operations in their table. For the Itanium C++ ABI, which GCC and Clang
// follow: there a pointer to a field is its offset, and a pointer to a virtual operation holds the offset of its entry.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <functional>
#include <optional>

namespace test {

// Index of the entry in the table of virtual functions; the destructor has the entries 0 and 1. Nothing if `operation`
// is not virtual.
template <typename Operation>
std::optional<std::ptrdiff_t> entryOf(Operation operation)
{
    struct Parts
    {
        std::ptrdiff_t pointer;
        std::ptrdiff_t adjustment; // its lowest bit marks virtual operations on ARM, that of `pointer` elsewhere
    };
    const Parts parts = std::bit_cast<Parts>(operation);
#if defined(__arm__) || defined(__aarch64__)
    const bool isVirtual = (parts.adjustment & 1) != 0;
    const std::ptrdiff_t offset = parts.pointer;
#else
    const bool isVirtual = (parts.pointer & 1) != 0;
    const std::ptrdiff_t offset = parts.pointer - 1;
#endif
    if (!isVirtual)
        return std::nullopt;
    return offset / static_cast<std::ptrdiff_t>(sizeof(void*));
}

template <typename Class>
std::optional<bool>& fieldOrderOf()
{
    static std::optional<bool> inOrder;
    return inOrder;
}

// Records whether the fields of a class are in this order. Instantiate it explicitly, since access rules do not apply
// to its arguments there: template struct test::FieldOrder<Class, &Class::first, &Class::second>;
template <typename Class, auto... Fields>
struct FieldOrder
{
    static bool ascending()
    {
        const std::array<std::ptrdiff_t, sizeof...(Fields)> offsets = {std::bit_cast<std::ptrdiff_t>(Fields)...};
        return std::adjacent_find(offsets.begin(), offsets.end(), std::greater_equal<>()) == offsets.end();
    }
    static inline const bool noted = (fieldOrderOf<Class>() = ascending(), true);
};

} // namespace test
