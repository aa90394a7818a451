#include <orvo_extensions/document/preset_util.hpp>

namespace orvo {

PresetUtil& PresetUtil::operator=(const PresetUtil&) = default;
PresetUtil& PresetUtil::operator=(PresetUtil&&) noexcept = default;

StatesConverter& StatesConverter::operator=(const StatesConverter&) = default;
StatesConverter& StatesConverter::operator=(StatesConverter&&) noexcept = default;

} // namespace orvo
