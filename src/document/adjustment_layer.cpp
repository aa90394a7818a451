#include <orvo_extensions/document/adjustment_layer.hpp>

#include <stdexcept>
#include <utility>

namespace orvo {

AdjustmentLayer::AdjustmentLayer(unsigned long long place) : index(place) {}
AdjustmentLayer::~AdjustmentLayer() = default;
AdjustmentLayer::AdjustmentLayer(const AdjustmentLayer&) = default;
AdjustmentLayer& AdjustmentLayer::operator=(const AdjustmentLayer&) = default;

std::vector<std::shared_ptr<Effect>> AdjustmentLayer::getEffects() const { return {effects.begin(), effects.end()}; }

void AdjustmentLayer::addEffect(std::shared_ptr<Effect> effect)
{
    if (!effect)
        throw std::invalid_argument("AdjustmentLayer::addEffect: the pointer is empty");
    effects.push_back(std::move(effect));
}

void AdjustmentLayer::cleanEditsCache()
{
    for (const std::shared_ptr<Effect>& effect : effects)
        effect->clearCache();
}

} // namespace orvo
