// Includes every exported header (run.sh writes the list) and links symbols of the libraries behind them.
#include "all_headers.hpp"

#include <cstdio>

namespace {

class NoEffect : public orvo::Effect
{
public:
    NoEffect() : Effect({"NoEffect", {}}) {}
    bool processImage(orvo::EffectCallContext&) override { return true; }
};

} // namespace

int main()
{
    orvo::AdjustmentLayer layer(0);
    layer.addEffect(std::make_shared<NoEffect>());
    layer.addEffect(std::make_shared<orvo::DeblurAIEffect>());
    layer.edits().append(orvo::Edit(orvo::ToolDescription({"NoEffect"}, "ERASE"), orvo::UUIDGenerator()(), false,
                                    nullptr, false, 0, 0, false));
    orvo::ImageProcessor processor;
    processor.setDumper(std::make_unique<orvo::ResourceManager>());
    const orvo::ResourceHandler handler{L"first", L"second", {}};
    orvo::PresetUtil preset;
    preset = orvo::PresetUtil();
    MaskedImageExt image(4, 4);
    image.setMask(1, 1, pixel_t::kMasked);
    image.commit_changes();
    const orvo::HDRSettings hdr;
    const bool sound = layer.edits().at(0).isEraseEdit() && layer.getEffects().size() == 2 &&
                       image.getRuns().size() == 1 && handler.resources.saves.empty() &&
                       processor.getCurrentLayerIndex() == 0;
    std::puts(sound ? "sound" : "broken");
    return sound && !hdr.canceled() ? 0 : 1;
}
