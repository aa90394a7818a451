/// Handles of presets and of document states. Both can be assigned, and nothing else is fixed here: a library that
/// fills them derives from them.
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
