/// What an effect can be set to.
#pragma once

#include <orvo_common/export.hpp>

#include <string>
#include <vector>

namespace orvo {

/// One control of an effect. Range and unit are the effect's.
struct ORVO_EXPORT Parameter
{
    std::string name;
    float value = 0.0f;

    bool operator==(const Parameter&) const = default;
};

/// Parameters in the order in which they were first set, one for each name. A value; copies are deep.
class ORVO_EXPORT Parameters
{
public:
    Parameters();
    /// As set() one after the other: of several with one name the last one counts.
    explicit Parameters(const std::vector<Parameter>& list);

    [[nodiscard]] const std::vector<Parameter>& list() const { return entries; }
    /// The value of `name`, `otherwise` if it has none.
    [[nodiscard]] float value(const std::string& name, float otherwise) const;
    /// Replaces the value of that name, or appends it.
    void set(const Parameter& parameter);

    bool operator==(const Parameters&) const = default;

private:
    std::vector<Parameter> entries;
};

/// Of an effect: its identifier and what its parameters start from.
struct ORVO_EXPORT EffectProperties
{
    std::string effectID;
    Parameters defaults;
};

/// What parameters refer to, such as the picture that they were found for. Only passed on here: whoever knows more
/// derives from it.
class ORVO_EXPORT EffectParametersContext
{
public:
    EffectParametersContext() = default;
    virtual ~EffectParametersContext();
    EffectParametersContext(const EffectParametersContext&) = default;
    EffectParametersContext& operator=(const EffectParametersContext&) = default;
};

} // namespace orvo
