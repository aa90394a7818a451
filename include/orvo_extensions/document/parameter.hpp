/// The parameters of effects.
#pragma once

#include <orvo_common/export.hpp>

#include <string>
#include <vector>

namespace orvo {

/// One control of an effect. The effect defines range and unit.
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
    /// Equivalent to set() for each in turn: the last of several with one name wins.
    explicit Parameters(const std::vector<Parameter>& list);

    [[nodiscard]] const std::vector<Parameter>& list() const { return entries; }
    /// The value of `name`, or `otherwise` if there is no such parameter.
    [[nodiscard]] float value(const std::string& name, float otherwise) const;
    /// Replaces the value of this name, or appends it.
    void set(const Parameter& parameter);

    bool operator==(const Parameters&) const = default;

private:
    std::vector<Parameter> entries;
};

/// An effect's identifier and the initial values of its parameters.
struct ORVO_EXPORT EffectProperties
{
    std::string effectID;
    Parameters defaults;
};

/// The context of parameters, such as the picture that they were computed for. Only passed on here; libraries that need
/// more derive from it.
class ORVO_EXPORT EffectParametersContext
{
public:
    EffectParametersContext() = default;
    virtual ~EffectParametersContext();
    EffectParametersContext(const EffectParametersContext&) = default;
    EffectParametersContext& operator=(const EffectParametersContext&) = default;
};

} // namespace orvo
