#include <orvo_extensions/document/tool_description.hpp>

namespace orvo {

ToolDescription::ToolDescription(const std::vector<std::string>& ids, const std::string& name)
    : effectIDs(ids), toolName(name)
{}

ToolDescription::~ToolDescription() = default;
ToolDescription::ToolDescription(const ToolDescription&) = default;
ToolDescription& ToolDescription::operator=(const ToolDescription&) = default;
ToolDescription::ToolDescription(ToolDescription&&) noexcept = default;
ToolDescription& ToolDescription::operator=(ToolDescription&&) noexcept = default;

} // namespace orvo
