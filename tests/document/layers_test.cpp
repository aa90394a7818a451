// Layers and the adaptor that connects them to their processor.

#include <orvo_extensions/document/adjustment_layer.hpp>
#include <orvo_extensions/document/image_layer.hpp>
#include <orvo_extensions/document/processor_adaptor.hpp>

#include <gmock/gmock.h>

#include <stdexcept>

namespace orvo {
// Only declared in this library: the tests only need allocations of these types.
class BrushController
{};
class BrushQueue
{};
} // namespace orvo

namespace {

using namespace orvo;
using testing::ElementsAre;
using testing::IsEmpty;

class PlainEffect : public Effect
{
public:
    explicit PlainEffect(const std::string& name) : Effect({name, {}}) {}
    bool processImage(EffectCallContext&) override { return true; }
    void clearCache() override { ++clears; }
    int clears = 0;
};

class OpenAdaptor : public ProcessorAdaptor
{
public:
    using ProcessorAdaptor::getMaskPreview;
    using ProcessorAdaptor::ProcessorAdaptor;
};

TEST(BaseLayer, HasItsDefaultResults)
{
    BaseLayer layer;
    EXPECT_EQ(layer.defaultMaskValue(), 1.0f);
    EXPECT_EQ(layer.getBaseImage(), nullptr);
    layer.setBaseImage(std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(1, 1), nullptr));
    EXPECT_EQ(layer.getBaseImage(), nullptr);
    EXPECT_EQ(layer.getBrushController(), nullptr);
    EXPECT_EQ(layer.getBrushQueue(), nullptr);
    EXPECT_FALSE(layer.isLensPreviewEffectAmountChanged());
    static_assert(std::has_virtual_destructor_v<BaseLayer>);
}

TEST(BaseLayer, PreparationDoesNothing)
{
    BaseLayer layer;
    auto info = std::make_shared<PreProcessInfo>();
    const auto sameInfo = info;
    PlainEffect effect("a");
    std::vector<Effect*> effects = {&effect};
    layer.preProcess(info, effects);
    layer.preProcessReset(info);
    layer.cleanEditsCache();
    EXPECT_EQ(info, sameInfo);
    EXPECT_THAT(effects, ElementsAre(&effect));
    EXPECT_EQ(effect.clears, 0);
}

TEST(BaseLayer, ReplacesItsQueueAndSharesItWithCopies)
{
    BaseLayer layer;
    const auto first = std::make_shared<BrushQueue>();
    const auto second = std::make_shared<BrushQueue>();
    layer.setBrushQueue(first);
    layer.setBrushQueue(second);
    EXPECT_EQ(layer.getBrushQueue(), second);
    EXPECT_EQ(first.use_count(), 1);
    const auto controller = std::make_shared<BrushController>();
    layer.setBrushController(controller);
    layer.setLensPreviewEffectAmountChanged(true);
    const BaseLayer copy = layer;
    EXPECT_EQ(copy.getBrushQueue(), second);
    EXPECT_EQ(copy.getBrushController(), controller);
    EXPECT_TRUE(copy.isLensPreviewEffectAmountChanged());
}

TEST(Layer, ForwardsToItsAdaptor)
{
    Layer layer(ProcessConfig{});
    EXPECT_EQ(layer.getBaseUUID(), nullptr);
    layer.setClearCache(true); // no processor: nothing happens

    const auto id = UUIDGenerator()();
    ProcessorAdaptor adaptor(id);
    layer.setProcessorAdaptor(&adaptor);
    EXPECT_EQ(layer.getBaseUUID(), id);
    EXPECT_FALSE(adaptor.isClearCache());
    layer.setClearCache(true);
    EXPECT_TRUE(adaptor.isClearCache());
    layer.setClearCache(false);
    EXPECT_FALSE(adaptor.isClearCache());

    const Layer copy = layer;
    EXPECT_EQ(copy.getProcessorAdaptor(), &adaptor);
    layer.setProcessorAdaptor(nullptr);
    EXPECT_EQ(layer.getBaseUUID(), nullptr);
    EXPECT_EQ(copy.getBaseUUID(), id);
}

TEST(Layer, KeepsItsConfiguration)
{
    const Layer layer(ProcessConfig{4, 5, 6});
    EXPECT_EQ(layer.getProcessConfig().mode, 4);
    EXPECT_EQ(layer.getProcessConfig().first, 5U);
    EXPECT_EQ(layer.getProcessConfig().second, 6U);
}

TEST(ImageLayer, LensCorrectionNeedsBothHalves)
{
    const auto some = std::make_shared<const AffineTransformation>();
    const auto other = std::make_shared<const AffineTransformation>();
    ImageLayer layer(ProcessConfig{});
    EXPECT_TRUE(layer.emptyLC());
    EXPECT_THAT(layer.getLensCorrectionOperations(), IsEmpty());
    layer.setLensCorrection({some, nullptr});
    EXPECT_TRUE(layer.emptyLC());
    EXPECT_THAT(layer.getLensCorrectionOperations(), ElementsAre(some));
    layer.setLensCorrection({nullptr, other});
    EXPECT_TRUE(layer.emptyLC());
    EXPECT_THAT(layer.getLensCorrectionOperations(), ElementsAre(other));
    layer.setLensCorrection({some, other});
    EXPECT_FALSE(layer.emptyLC());
    EXPECT_THAT(layer.getLensCorrectionOperations(), ElementsAre(some, other));
}

TEST(ImageLayer, AssignmentSharesTransformations)
{
    const auto some = std::make_shared<const AffineTransformation>();
    ImageLayer layer(ProcessConfig{});
    layer.setFaceSculptOperations({some});
    layer.setLensCorrection({some, some});
    ImageLayer assigned(ProcessConfig{7, 0, 0});
    assigned = layer;
    EXPECT_THAT(assigned.getFaceSculptOperations(), ElementsAre(some));
    EXPECT_FALSE(assigned.emptyLC());
    EXPECT_EQ(assigned.getProcessConfig().mode, 1);
    assigned.setFaceSculptOperations({});
    EXPECT_THAT(layer.getFaceSculptOperations(), ElementsAre(some));
}

TEST(AdjustmentLayer, ListsItsEffectsInOrder)
{
    AdjustmentLayer layer(3);
    EXPECT_EQ(layer.getIndex(), 3U);
    EXPECT_THAT(layer.getEffects(), IsEmpty());
    const auto first = std::make_shared<PlainEffect>("first");
    const auto second = std::make_shared<PlainEffect>("second");
    layer.addEffect(first);
    layer.addEffect(second);
    layer.addEffect(second);
    EXPECT_THAT(layer.getEffects(), ElementsAre(first, second, second));
    EXPECT_THROW(layer.addEffect(nullptr), std::invalid_argument);
    static_assert(std::is_same_v<decltype(layer.getEffects()), std::vector<std::shared_ptr<Effect>>>);
    EXPECT_EQ(layer.defaultMaskValue(), 1.0f);
}

TEST(AdjustmentLayer, CleansTheCachesOfItsEffects)
{
    AdjustmentLayer layer(0);
    const auto effect = std::make_shared<PlainEffect>("a");
    layer.addEffect(effect);
    static_cast<BaseLayer&>(layer).cleanEditsCache();
    EXPECT_EQ(effect->clears, 1);
}

TEST(AdjustmentLayer, CopiesHaveTheirOwnEditsAndShareEffects)
{
    AdjustmentLayer layer(0);
    layer.addEffect(std::make_shared<PlainEffect>("a"));
    layer.edits().append(Edit(ToolDescription({"a"}, "TOOL"), nullptr, false, nullptr, false, 0, 0, false));
    AdjustmentLayer copy = layer;
    copy.edits().at(0).setName(L"copy");
    copy.addEffect(std::make_shared<PlainEffect>("b"));
    EXPECT_EQ(layer.edits().at(0).getName(), L"");
    EXPECT_EQ(layer.getEffects().size(), 1U);
    EXPECT_EQ(copy.getEffects()[0], layer.getEffects()[0]);
}

TEST(ProcessorAdaptor, ReturnsACopyOfItsMasks)
{
    OpenAdaptor adaptor(nullptr);
    EXPECT_EQ(adaptor.getBaseUUID(), nullptr);
    EXPECT_FALSE(adaptor.isClearCache());
    EXPECT_EQ(adaptor.getMaskPreview({}), nullptr);
    const auto mask = std::make_shared<const MaskImage>(_Size<int>(1, 1), 0.5f);
    adaptor.setEraseMask("wire", mask);
    auto masks = adaptor.getEraseMasks();
    EXPECT_THAT(masks, ElementsAre(testing::Pair("wire", mask)));
    masks.clear();
    EXPECT_EQ(adaptor.getEraseMasks().size(), 1U);
    OpenAdaptor copy = adaptor;
    copy.setEraseMask("dust", mask);
    EXPECT_EQ(adaptor.getEraseMasks().size(), 1U);
    EXPECT_EQ(copy.getEraseMasks().at("wire"), mask);
    static_assert(std::has_virtual_destructor_v<ProcessorAdaptor>);
}

} // namespace
