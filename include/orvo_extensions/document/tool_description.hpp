/// A tool: a name and its effects.
#pragma once

#include <orvo_common/export.hpp>

#include <string>
#include <vector>

namespace orvo {

/// A value. Copies are deep.
class ORVO_EXPORT ToolDescription
{
public:
    /// `effectIDs`: identifiers of effects (effect_identifiers.hpp), in the order of application.
    ToolDescription(const std::vector<std::string>& effectIDs, const std::string& toolName);
    virtual ~ToolDescription();
    ToolDescription(const ToolDescription&);
    ToolDescription& operator=(const ToolDescription&);
    ToolDescription(ToolDescription&&) noexcept;
    ToolDescription& operator=(ToolDescription&&) noexcept;

    [[nodiscard]] std::vector<std::string> getEffectIDs() const { return effectIDs; }
    [[nodiscard]] std::string getToolName() const { return toolName; }

private:
    std::vector<std::string> effectIDs;
    std::string toolName;
};

} // namespace orvo
