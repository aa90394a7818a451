/// Handles of presets and of document states. Both are assignable and contain nothing here: libraries that fill them
/// derive from them.
#pragma once

#include <orvo_common/export.hpp>

namespace orvo {

class ORVO_EXPORT PresetUtil
{
public:
    PresetUtil() = default;
    PresetUtil(const PresetUtil&) = default;
    PresetUtil& operator=(const PresetUtil&);
    PresetUtil& operator=(PresetUtil&&) noexcept;
};

class ORVO_EXPORT StatesConverter
{
public:
    StatesConverter() = default;
    StatesConverter(const StatesConverter&) = default;
    StatesConverter& operator=(const StatesConverter&);
    StatesConverter& operator=(StatesConverter&&) noexcept;
};

} // namespace orvo
