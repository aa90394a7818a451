#include <orvo_extensions/document/effect.hpp>

#include <algorithm>
#include <utility>

namespace orvo {

Effect::Effect(EffectProperties description)
    : properties(std::move(description)), currentParameters(properties.defaults)
{}

Effect::~Effect() = default;
Effect::Effect(const Effect&) = default;
Effect& Effect::operator=(const Effect&) = default;

void Effect::clearCache()
{
    cacheInfo.source.reset();
    cacheInfo.cache.reset();
}

void Effect::preProcess(std::shared_ptr<PreProcessInfo>&) {}

void Effect::preRemove(std::shared_ptr<PreReleaseInfo>&) {}

bool Effect::computeSuggestedParameters() { return false; }

std::shared_ptr<const MaskImage> Effect::getLastProcessMask() const { return {}; }

std::shared_ptr<const MaskImage> Effect::getLastProcessMaskThumbnail() const { return {}; }

std::shared_ptr<Effect> Effect::clone() const { return {}; }

void Effect::setParametersDefault() { currentParameters = properties.defaults; }

void Effect::removeMasks() { maskLayers.clear(); }

void Effect::setParameters(const std::vector<Parameter>& list)
{
    for (const Parameter& parameter : list)
        currentParameters.set(parameter);
}

void Effect::setParametersContext(const std::shared_ptr<const EffectParametersContext>& newContext)
{
    parametersContext = newContext;
}

std::vector<Parameter> Effect::scaleAmountParameters(float factor, std::vector<Parameter> list) const
{
    const std::vector<std::string> amounts = amountParameters();
    for (Parameter& parameter : list)
        if (std::find(amounts.begin(), amounts.end(), parameter.name) != amounts.end())
            parameter.value *= factor;
    return list;
}

bool Effect::isNeedProcessing() const { return true; }

void Effect::setAdditionalSettings(std::shared_ptr<const EffectAdditionalSettings> settings)
{
    moreSettings = std::move(settings);
}

_Rect<int> Effect::getInRectForOutRect(const GetRectParameters& part) const { return part.rect; }

_Rect<int> Effect::getOutRectForInRect(const GetRectParameters& part) const { return part.rect; }

void Effect::setContext(std::shared_ptr<EffectContext> newContext) { effectContext = std::move(newContext); }

std::vector<std::string> Effect::getMaskLayersIdentifiers() const
{
    std::vector<std::string> identifiers;
    for (const auto& [identifier, layer] : maskLayers)
        identifiers.push_back(identifier);
    return identifiers;
}

std::shared_ptr<EffectMaskLayer> Effect::makeMaskLayerForIdentifier(const std::string& identifier)
{
    return std::make_shared<EffectMaskLayer>(EffectMaskLayer{identifier, {}});
}

void Effect::setMaskLayerForIdentifier(const std::string& identifier, std::shared_ptr<EffectMaskLayer> layer)
{
    if (layer)
        maskLayers[identifier] = std::move(layer);
    else
        maskLayers.erase(identifier);
}

bool Effect::isDependOfEffectMaskLayerMaskVisibility(const std::string&) const { return false; }

const std::vector<std::string> Effect::amountParameters() const { return {}; }

void Effect::setEditInfo(EditCacheInfo info)
{
    cacheInfo.source = std::move(info.source);
    cacheInfo.cache = std::move(info.cache);
    cacheInfo.sourceChanged = std::move(info.sourceChanged);
}

bool Effect::checkAndSetEditInfoSource(std::shared_ptr<const _ImageData<PixelRGB<float>>> source)
{
    if (source == cacheInfo.source)
        return false;
    cacheInfo.source = std::move(source);
    cacheInfo.cache.reset();
    if (cacheInfo.sourceChanged)
        cacheInfo.sourceChanged();
    return true;
}

void Effect::freeEditInfoSource() { cacheInfo.source.reset(); }

Transforms Effect::getTransforms() const { return {}; }

void Effect::setSuggestedParameters(std::vector<Parameter> list) { suggestedParameters = std::move(list); }

std::shared_ptr<const EffectMaskLayer> Effect::maskLayer(const std::string& identifier) const
{
    const auto found = maskLayers.find(identifier);
    return found == maskLayers.end() ? nullptr : found->second;
}

} // namespace orvo
