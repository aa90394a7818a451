// The base of effects: default results, stored, shared and released data.

#include <orvo_extensions/document/effect.hpp>

#include <gmock/gmock.h>

namespace orvo {
// Only declared in this library: the tests only need an allocation of that type.
class EffectsCacheHelper
{};
} // namespace orvo

namespace {

using namespace orvo;
using testing::ElementsAre;
using testing::IsEmpty;

using Picture = _ImageData<PixelRGB<float>>;

std::shared_ptr<Picture> picture() { return std::make_shared<Picture>(_Size<int>(2, 2), nullptr); }

class PlainEffect : public Effect
{
public:
    PlainEffect() : Effect({"plain", Parameters({{"amount", 1.0f}, {"shift", 2.0f}})}) {}
    bool processImage(EffectCallContext& call) override
    {
        ++runs;
        return !call.canceled();
    }
    using Effect::additionalSettings;
    using Effect::amountParameters;
    using Effect::context;
    using Effect::editInfo;
    using Effect::maskLayer;
    using Effect::setSuggestedParameters;

    int runs = 0;
};

class StrongEffect : public PlainEffect
{
protected:
    const std::vector<std::string> amountParameters() const override { return {"amount", "missing"}; }
};

EffectCallContext callFor(Effect* effect, const std::atomic<bool>* run = nullptr,
                          const std::atomic<bool>* one = nullptr)
{
    std::shared_ptr<Image> image;
    return {picture(), picture(), {}, {}, image, {}, run, one, effect, {}, {}};
}

TEST(Effect, HasItsDefaultResults)
{
    PlainEffect effect;
    EXPECT_FALSE(effect.computeSuggestedParameters());
    EXPECT_EQ(effect.getLastProcessMask(), nullptr);
    EXPECT_EQ(effect.getLastProcessMaskThumbnail(), nullptr);
    EXPECT_EQ(effect.clone(), nullptr);
    EXPECT_TRUE(effect.isNeedProcessing());
    const GetRectParameters part{{1, 2, 3, 4}, {10, 10}};
    EXPECT_EQ(effect.getInRectForOutRect(part), part.rect);
    EXPECT_EQ(effect.getOutRectForInRect(part), part.rect);
    EXPECT_THAT(effect.getMaskLayersIdentifiers(), IsEmpty());
    EXPECT_FALSE(effect.isDependOfEffectMaskLayerMaskVisibility("sky"));
    EXPECT_THAT(effect.amountParameters(), IsEmpty());
    EXPECT_THAT(effect.getTransforms(), IsEmpty());
    EXPECT_THAT(effect.getSuggestedParameters(), IsEmpty());
    EXPECT_EQ(effect.getPrarmetersContext(), nullptr);
    EXPECT_EQ(effect.getPersonIndex(), 0);
    EXPECT_FALSE(effect.isDevelopBase());
    static_assert(std::is_abstract_v<Effect> && std::has_virtual_destructor_v<Effect>);
}

TEST(Effect, DoesNothingBeforeAndAfter)
{
    PlainEffect effect;
    auto before = std::make_shared<PreProcessInfo>();
    auto after = std::make_shared<PreReleaseInfo>();
    const auto sameBefore = before;
    const auto sameAfter = after;
    effect.preProcess(before);
    effect.preRemove(after);
    EXPECT_EQ(before, sameBefore);
    EXPECT_EQ(after, sameAfter);
}

TEST(Effect, ParametersStartFromTheirDefaultsAndReturnToThem)
{
    PlainEffect effect;
    EXPECT_EQ(effect.getProperties().effectID, "plain");
    EXPECT_EQ(effect.parameters(), effect.getProperties().defaults);
    effect.setParameters({{"amount", 0.5f}});
    EXPECT_THAT(effect.parameters().list(), ElementsAre(Parameter{"amount", 0.5f}, Parameter{"shift", 2.0f}));
    effect.setParametersDefault();
    EXPECT_EQ(effect.parameters(), effect.getProperties().defaults);
}

TEST(Effect, OnlyAmountsAreScaled)
{
    const std::vector<Parameter> list = {{"amount", 2.0f}, {"shift", 3.0f}};
    EXPECT_EQ(PlainEffect().scaleAmountParameters(0.5f, list), list);
    EXPECT_THAT(StrongEffect().scaleAmountParameters(0.5f, list),
                ElementsAre(Parameter{"amount", 1.0f}, Parameter{"shift", 3.0f}));
}

TEST(Effect, KeepsTheGivenValues)
{
    PlainEffect effect;
    const auto parametersContext = std::make_shared<const EffectParametersContext>();
    const auto settings = std::make_shared<const EffectAdditionalSettings>();
    const auto context = std::make_shared<EffectContext>();
    effect.setParametersContext(parametersContext);
    effect.setAdditionalSettings(settings);
    effect.setContext(context);
    effect.setSuggestedParameters({{"amount", 0.7f}});
    effect.setPersonIndex(2);
    effect.markAsDevelopBase();
    EXPECT_EQ(effect.getPrarmetersContext(), parametersContext);
    EXPECT_EQ(effect.additionalSettings(), settings);
    EXPECT_EQ(effect.context(), context);
    EXPECT_THAT(effect.getSuggestedParameters(), ElementsAre(Parameter{"amount", 0.7f}));
    EXPECT_EQ(effect.getPersonIndex(), 2);
    EXPECT_TRUE(effect.isDevelopBase());
}

TEST(Effect, MaskLayersAreUsedOnceTheyAreSet)
{
    PlainEffect effect;
    const auto sky = effect.makeMaskLayerForIdentifier("sky");
    ASSERT_NE(sky, nullptr);
    EXPECT_EQ(sky->identifier, "sky");
    EXPECT_EQ(sky->mask, nullptr);
    EXPECT_THAT(effect.getMaskLayersIdentifiers(), IsEmpty());
    effect.setMaskLayerForIdentifier("sky", sky);
    effect.setMaskLayerForIdentifier("person", effect.makeMaskLayerForIdentifier("person"));
    EXPECT_THAT(effect.getMaskLayersIdentifiers(), ElementsAre("person", "sky"));
    EXPECT_EQ(effect.maskLayer("sky"), sky);
    EXPECT_EQ(effect.maskLayer("sea"), nullptr);
    effect.setMaskLayerForIdentifier("person", nullptr);
    EXPECT_THAT(effect.getMaskLayersIdentifiers(), ElementsAre("sky"));
    effect.removeMasks();
    EXPECT_THAT(effect.getMaskLayersIdentifiers(), IsEmpty());
}

TEST(Effect, TakesOverTheEditInfo)
{
    PlainEffect effect;
    int changes = 0;
    EditCacheInfo info{picture(), std::make_shared<EffectsCacheHelper>(), [&changes] { ++changes; }};
    const std::weak_ptr<const Picture> source = info.source;
    const std::weak_ptr<EffectsCacheHelper> cache = info.cache;
    effect.setEditInfo(std::move(info));
    EXPECT_EQ(source.use_count(), 1) << "the pointers are moved";
    EXPECT_EQ(cache.use_count(), 1);
    ASSERT_TRUE(effect.editInfo().sourceChanged);

    EXPECT_FALSE(effect.checkAndSetEditInfoSource(source.lock()));
    EXPECT_EQ(changes, 0);
    EXPECT_FALSE(cache.expired());

    const auto other = picture();
    EXPECT_TRUE(effect.checkAndSetEditInfoSource(other));
    EXPECT_EQ(effect.editInfo().source, other);
    EXPECT_EQ(changes, 1);
    EXPECT_TRUE(source.expired());
    EXPECT_TRUE(cache.expired()) << "what was cached for another picture goes";

    effect.freeEditInfoSource();
    EXPECT_EQ(effect.editInfo().source, nullptr);
    EXPECT_TRUE(effect.editInfo().sourceChanged);
    EXPECT_EQ(changes, 1);
}

TEST(Effect, SourceMayChangeWithoutACallback)
{
    PlainEffect effect;
    EXPECT_TRUE(effect.checkAndSetEditInfoSource(picture()));
    EXPECT_TRUE(effect.checkAndSetEditInfoSource(nullptr));
    EXPECT_FALSE(effect.checkAndSetEditInfoSource(nullptr));
}

TEST(Effect, ClearCacheReleasesSourceAndCache)
{
    PlainEffect effect;
    effect.setEditInfo({picture(), std::make_shared<EffectsCacheHelper>(), [] {}});
    effect.clearCache();
    EXPECT_EQ(effect.editInfo().source, nullptr);
    EXPECT_EQ(effect.editInfo().cache, nullptr);
    EXPECT_TRUE(effect.editInfo().sourceChanged);
}

TEST(Effect, CopiesShareLayersAndContextsButNotParameters)
{
    PlainEffect effect;
    effect.setMaskLayerForIdentifier("sky", effect.makeMaskLayerForIdentifier("sky"));
    effect.setContext(std::make_shared<EffectContext>());
    PlainEffect copy = effect;
    copy.setParameters({{"amount", 9.0f}});
    copy.setMaskLayerForIdentifier("sea", copy.makeMaskLayerForIdentifier("sea"));
    EXPECT_EQ(effect.parameters().value("amount", 0.0f), 1.0f);
    EXPECT_THAT(effect.getMaskLayersIdentifiers(), ElementsAre("sky"));
    EXPECT_EQ(copy.maskLayer("sky"), effect.maskLayer("sky"));
    EXPECT_EQ(copy.context(), effect.context());
}

TEST(EffectCallContext, HoldsItsArgumentsInOrder)
{
    PlainEffect effect;
    const auto source = picture(), result = picture(), unedited = picture();
    auto image = CreateOrvoImage(picture());
    const auto sameImage = image;
    const std::atomic<bool> run{false}, one{false};
    const auto processed = std::make_shared<std::vector<EffectProcessInfo>>();
    const auto cache = std::make_shared<EffectsCacheHelper>();
    const EffectCallContext call(source, result, unedited, {1, 2, 3, 4}, image, {0.5f, BlendModeType::Normal}, &run,
                                 &one, &effect, processed, {cache});
    EXPECT_EQ(call.source, source);
    EXPECT_EQ(call.result, result);
    EXPECT_EQ(call.unedited, unedited);
    EXPECT_EQ(call.rect, (_Rect<int>(1, 2, 3, 4)));
    EXPECT_EQ(call.image, sameImage);
    EXPECT_EQ(image, sameImage) << "the caller keeps its own";
    EXPECT_EQ(call.blend.opacity, 0.5f);
    EXPECT_EQ(call.cancelRun, &run);
    EXPECT_EQ(call.cancelEffect, &one);
    EXPECT_EQ(call.effect, &effect);
    EXPECT_EQ(call.processed, processed);
    EXPECT_EQ(call.cache.cache, cache);
}

TEST(EffectCallContext, CopiesShareAndMovesTakeOver)
{
    PlainEffect effect;
    EffectCallContext call = callFor(&effect);
    const EffectCallContext copy = call;
    EXPECT_EQ(copy.source, call.source);
    EXPECT_EQ(copy.result, call.result);
    const EffectCallContext moved = std::move(call);
    EXPECT_EQ(moved.source, copy.source);
    EXPECT_EQ(moved.effect, &effect);
    EffectCallContext assigned = callFor(nullptr);
    assigned = copy;
    EXPECT_EQ(assigned.result, copy.result);
}

TEST(EffectCallContext, EitherFlagCancels)
{
    PlainEffect effect;
    const std::atomic<bool> yes{true}, no{false};
    EXPECT_FALSE(callFor(&effect).canceled());
    EXPECT_FALSE(callFor(&effect, &no, &no).canceled());
    EXPECT_TRUE(callFor(&effect, &yes, &no).canceled());
    EXPECT_TRUE(callFor(&effect, &no, &yes).canceled());
    EffectCallContext call = callFor(&effect, &yes);
    Effect& base = effect;
    EXPECT_FALSE(base.processImage(call));
    EXPECT_EQ(effect.runs, 1);
}

TEST(EffectRecords, StartFromTheirDefaults)
{
    EXPECT_EQ(EffectsBlendData().opacity, 1.0f);
    EXPECT_EQ(EffectsBlendData().mode, BlendModeType::Normal);
    EXPECT_FALSE(EffectProcessInfo().processed);
    EXPECT_EQ(CacheEnvironment().cache, nullptr);
    EXPECT_EQ(EditCacheInfo().source, nullptr);
    EXPECT_FALSE(EditCacheInfo().sourceChanged);
    EXPECT_EQ(GetRectParameters().rect, _Rect<int>());
}

} // namespace
