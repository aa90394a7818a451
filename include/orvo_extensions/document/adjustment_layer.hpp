/// A layer of effects.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_extensions/document/base_layer.hpp>
#include <orvo_extensions/document/edit_collection.hpp>
#include <orvo_extensions/document/effect.hpp>

#include <list>
#include <memory>
#include <vector>

namespace orvo {

/// Copies have their own edits and their own list, and share the effects in it.
///
/// Example:
///   orvo::AdjustmentLayer layer(0);
///   layer.edits().append(edit);
///   layer.addEffect(effect); // configured by the edit
///   for (const auto& next : layer.getEffects())
///       next->processImage(call);
class ORVO_EXPORT AdjustmentLayer : public BaseLayer
{
public:
    /// `index`: the position among the layers of the document.
    explicit AdjustmentLayer(unsigned long long index);
    ~AdjustmentLayer() override;
    AdjustmentLayer(const AdjustmentLayer&);
    AdjustmentLayer& operator=(const AdjustmentLayer&);

    [[nodiscard]] unsigned long long getIndex() const { return index; }
    /// In the order in which they are applied.
    [[nodiscard]] std::vector<std::shared_ptr<Effect>> getEffects() const;
    /// Appends. Throws std::invalid_argument for an empty pointer.
    void addEffect(std::shared_ptr<Effect> effect);
    [[nodiscard]] EditCollection& edits() { return collection; }
    [[nodiscard]] const EditCollection& edits() const { return collection; }
    /// Clears the caches of the effects.
    void cleanEditsCache() override;

private:
    unsigned long long index;
    EditCollection collection;
    std::list<std::shared_ptr<Effect>> effects;
};

} // namespace orvo
