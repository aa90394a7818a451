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

/// What a tool does to a picture. Libraries that are built separately call these operations by their slot in the
/// virtual function table: the order is part of the interface, and new operations are added at the end.
///
/// A new effect overrides processImage() and clone(), and every operation whose default does not fit. An effect belongs
/// to one thread at a time. Copies share mask layers, contexts and caches.
///
/// Example:
///   class Negative : public orvo::Effect { ... bool processImage(orvo::EffectCallContext& call) override; ... };
///   effect->setParameters({{"amount", 0.5f}});
///   orvo::EffectCallContext call(source, result, {}, {}, image, {}, nullptr, nullptr, effect.get(), {}, {});
///   if (effect->processImage(call))
///       show(call.result);
class ORVO_EXPORT Effect
{
public:
    virtual ~Effect();
    /// Drops the data of earlier runs. Here: the stored source and the cache.
    virtual void clearCache();
    /// Called before the picture is processed. Here: does nothing.
    virtual void preProcess(std::shared_ptr<PreProcessInfo>& info);
    /// Called before the effect is removed. Here: does nothing.
    virtual void preRemove(std::shared_ptr<PreReleaseInfo>& info);
    /// Computes parameters that suit the picture, for getSuggestedParameters(). Returns false if there are none. Here:
    /// false.
    virtual bool computeSuggestedParameters();
    /// The mask of the last run, and a small version of it. Here: empty.
    [[nodiscard]] virtual std::shared_ptr<const MaskImage> getLastProcessMask() const;
    [[nodiscard]] virtual std::shared_ptr<const MaskImage> getLastProcessMaskThumbnail() const;
    /// Writes `call.result`. Returns false if the call was cancelled or failed; the result is then invalid.
    virtual bool processImage(EffectCallContext& call) = 0;
    /// Returns a new effect of the same class and settings. Here: empty, for classes that cannot be copied.
    [[nodiscard]] virtual std::shared_ptr<Effect> clone() const;
    /// Resets all parameters to the defaults of getProperties().
    virtual void setParametersDefault();
    /// Removes all mask layers.
    virtual void removeMasks();
    /// Sets the listed parameters and keeps the others.
    virtual void setParameters(const std::vector<Parameter>& list);
    virtual void setParametersContext(const std::shared_ptr<const EffectParametersContext>& context);
    /// Returns the list with the values of amountParameters() multiplied by the factor.
    [[nodiscard]] virtual std::vector<Parameter> scaleAmountParameters(float factor, std::vector<Parameter> list) const;
    /// False if the effect would change nothing. Here: true.
    [[nodiscard]] virtual bool isNeedProcessing() const;
    virtual void setAdditionalSettings(std::shared_ptr<const EffectAdditionalSettings> settings);
    /// The part of the source that a part of the result depends on, and the reverse. Here: the same part.
    [[nodiscard]] virtual _Rect<int> getInRectForOutRect(const GetRectParameters& part) const;
    [[nodiscard]] virtual _Rect<int> getOutRectForInRect(const GetRectParameters& part) const;
    virtual void setContext(std::shared_ptr<EffectContext> context);
    /// Identifiers of the mask layers that are set, in ascending order.
    [[nodiscard]] virtual std::vector<std::string> getMaskLayersIdentifiers() const;
    /// Returns a new layer without a mask. setMaskLayerForIdentifier() puts it into use.
    [[nodiscard]] virtual std::shared_ptr<EffectMaskLayer> makeMaskLayerForIdentifier(const std::string& identifier);
    /// An empty pointer removes the layer.
    virtual void setMaskLayerForIdentifier(const std::string& identifier, std::shared_ptr<EffectMaskLayer> layer);
    /// Whether the result depends on the visibility of that layer's mask. Here: false.
    [[nodiscard]] virtual bool isDependOfEffectMaskLayerMaskVisibility(const std::string& identifier) const;

protected:
    /// Names of the parameters that set the strength of the effect. Here: none.
    [[nodiscard]] virtual const std::vector<std::string> amountParameters() const;

public:
    /// Moves the source, the cache and the callable into the effect.
    virtual void setEditInfo(EditCacheInfo info);
    /// Returns false if `source` is the stored one. Otherwise stores it, drops the cache, calls `sourceChanged` of the
    /// edit's info, and returns true.
    virtual bool checkAndSetEditInfoSource(std::shared_ptr<const _ImageData<PixelRGB<float>>> source);
    /// Releases the source.
    virtual void freeEditInfoSource();
    /// The geometric changes that the effect makes. Here: none.
    [[nodiscard]] virtual Transforms getTransforms() const;

    [[nodiscard]] const EffectProperties& getProperties() const { return properties; }
    /// Spelled as in the document libraries.
    [[nodiscard]] const std::shared_ptr<const EffectParametersContext>& getPrarmetersContext() const
    {
        return parametersContext;
    }
    [[nodiscard]] const std::vector<Parameter>& getSuggestedParameters() const { return suggestedParameters; }
    [[nodiscard]] const Parameters& parameters() const { return currentParameters; }
    void setPersonIndex(int index) { personIndex = index; }
    [[nodiscard]] int getPersonIndex() const { return personIndex; }
    /// Marks the effect as part of the picture's development.
    void markAsDevelopBase() { developBase = true; }
    [[nodiscard]] bool isDevelopBase() const { return developBase; }

protected:
    /// Initial parameters are the defaults.
    explicit Effect(EffectProperties properties);
    Effect(const Effect&);
    Effect& operator=(const Effect&);

    /// For computeSuggestedParameters().
    void setSuggestedParameters(std::vector<Parameter> list);
    /// The layer with this identifier; empty if there is none.
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
