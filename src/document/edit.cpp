#include <orvo_extensions/document/edit.hpp>
#include <orvo_extensions/effect_identifiers.hpp>

#include <algorithm>
#include <stdexcept>

namespace orvo {
namespace {

void requireEffect(const EditEffects& effects, const std::string& effectID)
{
    if (std::find(effects.order.begin(), effects.order.end(), effectID) == effects.order.end())
        throw std::invalid_argument("Edit: the tool has no effect \"" + effectID + "\"");
}

} // namespace

Edit::Edit(const ToolDescription& description, std::shared_ptr<const Identifier> identity, bool isPermanent,
           std::shared_ptr<const EffectParametersContext> context, bool isLocked, int personNumber, int layerIndex,
           bool isOfDevelopment)
    : tool(description), permanent(isPermanent), locked(isLocked), id(std::move(identity)),
      parametersContext(std::move(context)), person(personNumber), processorLayerIndex(layerIndex),
      developBase(isOfDevelopment)
{
    initParameters();
    initEffectMasks();
}

Edit::~Edit() = default;
Edit::Edit(const Edit&) = default;
Edit& Edit::operator=(const Edit&) = default;
Edit::Edit(Edit&&) noexcept = default;
Edit& Edit::operator=(Edit&&) noexcept = default;

void Edit::initParameters()
{
    effects.order = tool.getEffectIDs();
    effects.parameters.clear();
    for (const std::string& effectID : effects.order)
        effects.parameters.emplace(effectID, Parameters());
}

void Edit::initEffectMasks()
{
    effects.masks.clear();
    for (const std::string& effectID : effects.order)
        effects.masks.emplace(effectID, EffectMaskInfo());
}

void Edit::setEffectParameters(const std::string& effectID, const Parameters& parameters)
{
    requireEffect(effects, effectID);
    effects.parameters[effectID] = parameters;
}

void Edit::setEffectMask(const std::string& effectID, const EffectMaskInfo& info)
{
    requireEffect(effects, effectID);
    effects.masks[effectID] = info;
}

bool Edit::isCloneEdit() const { return tool.getToolName() == ToolNames::kClone; }

bool Edit::isEraseEdit() const { return tool.getToolName() == ToolNames::kErase; }

} // namespace orvo
