#include <orvo_extensions/document/parameter.hpp>

#include <algorithm>

namespace orvo {

Parameters::Parameters() = default;

Parameters::Parameters(const std::vector<Parameter>& parameters)
{
    for (const Parameter& parameter : parameters)
        set(parameter);
}

float Parameters::value(const std::string& name, float otherwise) const
{
    const auto found =
        std::find_if(entries.begin(), entries.end(), [&](const Parameter& entry) { return entry.name == name; });
    return found == entries.end() ? otherwise : found->value;
}

void Parameters::set(const Parameter& parameter)
{
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [&](const Parameter& entry) { return entry.name == parameter.name; });
    if (found == entries.end())
        entries.push_back(parameter);
    else
        found->value = parameter.value;
}

EffectParametersContext::~EffectParametersContext() = default;

} // namespace orvo
