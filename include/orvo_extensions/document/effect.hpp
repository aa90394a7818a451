/// The base of all effects.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_extensions/document/effect_call_context.hpp>
#include <orvo_extensions/document/effect_records.hpp>
#include <orvo_extensions/document/parameter.hpp>
#include <orvo_extensions/document/transformation.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace orvo {

/// What a tool does to a picture. Libraries that were built apart call these operations by their place in the table of
/// virtual functions: their order is part of the interface, and new ones go to the end.
///
/// Whoever writes an effect overrides processImage(), clone(), and whatever departs from the plain answers given here.
/// An effect belongs to one thread at a time. Copying one shares mask layers, contexts and caches.
///
/// Example:
///   class Negative : public orvo::Effect { ... bool processImage(orvo::EffectCallContext& call) override; ... };
///   effect->setParameters({{"amount", 0.5f}});
///   orvo::EffectCallContext call(source, result, {}, {}, image, {}, nullptr, nullptr, effect.get(), {}, {});
///   if (!effect->processImage(call)) ... // cancelled or impossible; the result is not to be used
class ORVO_EXPORT Effect
{
public:
    virtual ~Effect();
    /// Drops what was kept from earlier runs. Here: the held source and cache.
    virtual void clearCache();
    /// Before the picture is processed. Here: nothing.
    virtual void preProcess(std::shared_ptr<PreProcessInfo>& info);
    /// Before the effect is removed. Here: nothing.
    virtual void preRemove(std::shared_ptr<PreReleaseInfo>& info);
    /// Finds parameters that suit the picture, for getSuggestedParameters(); false if there are none. Here: false.
    virtual bool computeSuggestedParameters();
    /// The mask of the last run, and a small one of it. Here: empty.
    [[nodiscard]] virtual std::shared_ptr<const MaskImage> getLastProcessMask() const;
    [[nodiscard]] virtual std::shared_ptr<const MaskImage> getLastProcessMaskThumbnail() const;
    /// Writes `call.result`. False if it was cancelled or cannot be done; the result is then not to be used.
    virtual bool processImage(EffectCallContext& call) = 0;
    /// A new effect of the same class and settings. Here: empty, for classes that cannot be copied.
    [[nodiscard]] virtual std::shared_ptr<Effect> clone() const;
    /// All parameters become those of getProperties().
    virtual void setParametersDefault();
    /// All mask layers go.
    virtual void removeMasks();
    /// Sets the ones that are named and keeps the others.
    virtual void setParameters(const std::vector<Parameter>& list);
    virtual void setParametersContext(const std::shared_ptr<const EffectParametersContext>& context);
    /// The list, with the values of amountParameters() multiplied by the factor.
    [[nodiscard]] virtual std::vector<Parameter> scaleAmountParameters(float factor, std::vector<Parameter> list) const;
    /// False if the effect would change nothing. Here: true.
    [[nodiscard]] virtual bool isNeedProcessing() const;
    virtual void setAdditionalSettings(std::shared_ptr<const EffectAdditionalSettings> settings);
    /// The part of the source that a part of the result depends on, and the other way round. Here: the same part.
    [[nodiscard]] virtual _Rect<int> getInRectForOutRect(const GetRectParameters& part) const;
    [[nodiscard]] virtual _Rect<int> getOutRectForInRect(const GetRectParameters& part) const;
    virtual void setContext(std::shared_ptr<EffectContext> context);
    /// Identifiers of the mask layers that are set, in order.
    [[nodiscard]] virtual std::vector<std::string> getMaskLayersIdentifiers() const;
    /// A new layer without a mask; setMaskLayerForIdentifier() makes it count.
    [[nodiscard]] virtual std::shared_ptr<EffectMaskLayer> makeMaskLayerForIdentifier(const std::string& identifier);
    /// An empty pointer takes the layer away.
    virtual void setMaskLayerForIdentifier(const std::string& identifier, std::shared_ptr<EffectMaskLayer> layer);
    /// Whether the result changes with what is shown of that layer. Here: false.
    [[nodiscard]] virtual bool isDependOfEffectMaskLayerMaskVisibility(const std::string& identifier) const;

protected:
    /// Names of the parameters that say how strong the effect is. Here: none.
    [[nodiscard]] virtual const std::vector<std::string> amountParameters() const;

public:
    /// Takes source, cache and callable over.
    virtual void setEditInfo(EditCacheInfo info);
    /// Holds `source` from now on. False if it is held already; else what was cached is dropped, `sourceChanged` of the
    /// edit's info is called, and the answer is true.
    virtual bool checkAndSetEditInfoSource(std::shared_ptr<const _ImageData<PixelRGB<float>>> source);
    /// Lets go of the source.
    virtual void freeEditInfoSource();
    /// The geometric changes that the effect makes. Here: none.
    [[nodiscard]] virtual Transforms getTransforms() const;

    [[nodiscard]] const EffectProperties& getProperties() const { return properties; }
    /// Spelled as the document libraries have it.
    [[nodiscard]] const std::shared_ptr<const EffectParametersContext>& getPrarmetersContext() const
    {
        return parametersContext;
    }
    [[nodiscard]] const std::vector<Parameter>& getSuggestedParameters() const { return suggestedParameters; }
    [[nodiscard]] const Parameters& parameters() const { return currentParameters; }
    void setPersonIndex(int index) { personIndex = index; }
    [[nodiscard]] int getPersonIndex() const { return personIndex; }
    /// The effect belongs to the development of the picture.
    void markAsDevelopBase() { developBase = true; }
    [[nodiscard]] bool isDevelopBase() const { return developBase; }

protected:
    /// Parameters start from the defaults.
    explicit Effect(EffectProperties properties);
    Effect(const Effect&);
    Effect& operator=(const Effect&);

    /// For computeSuggestedParameters().
    void setSuggestedParameters(std::vector<Parameter> list);
    /// The layer of that identifier; empty if there is none.
    [[nodiscard]] std::shared_ptr<const EffectMaskLayer> maskLayer(const std::string& identifier) const;
    [[nodiscard]] const EditCacheInfo& editInfo() const { return cacheInfo; }
    [[nodiscard]] const std::shared_ptr<EffectContext>& context() const { return effectContext; }
    [[nodiscard]] const std::shared_ptr<const EffectAdditionalSettings>& additionalSettings() const
    {
        return moreSettings;
    }

private:
    EffectProperties properties;
    Parameters currentParameters;
    std::vector<Parameter> suggestedParameters;
    std::shared_ptr<const EffectParametersContext> parametersContext;
    std::shared_ptr<const EffectAdditionalSettings> moreSettings;
    std::shared_ptr<EffectContext> effectContext;
    std::map<std::string, std::shared_ptr<EffectMaskLayer>> maskLayers;
    EditCacheInfo cacheInfo;
    std::int32_t personIndex = 0;
    bool developBase = false;
};

} // namespace orvo
