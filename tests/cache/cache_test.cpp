#include "cache/cache.hpp"
#include "cache/effects_cache_helper.hpp"
#include "cache/image_cache_key.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

namespace orvo {
namespace {

using Numbers = Cache<int, int, 5>;

// A producer that counts its runs.
struct Counted
{
    int value;
    int* runs;
    int operator()() const
    {
        ++*runs;
        return value;
    }
};

TEST(Cache, ProducesOnceAndOnlyWhenAsked)
{
    Numbers cache;
    int runs = 0;
    const auto first = cache.get(1, Counted{10, &runs});
    EXPECT_EQ(runs, 0);
    const auto second = cache.get(1, Counted{99, &runs});
    EXPECT_EQ(first.get(), 10);
    EXPECT_EQ(second.get(), 10);
    EXPECT_EQ(cache.get(1, Counted{99, &runs}).get(), 10);
    EXPECT_EQ(runs, 1);
}

TEST(Cache, TheSixthKeyPushesTheLeastRecentlyUsedOut)
{
    Numbers cache;
    int runs = 0;
    const auto held = cache.get(2, Counted{20, &runs});
    for (const int key : {1, 3, 4, 5})
        (void)cache.get(key, Counted{key * 10, &runs}).get();
    EXPECT_EQ(held.get(), 20);
    (void)cache.get(2, Counted{0, &runs}); // used, so 1 is the oldest
    (void)cache.get(6, Counted{60, &runs}).get();
    runs = 0;
    for (const int key : {2, 3, 4, 5, 6})
        EXPECT_EQ(cache.get(key, Counted{0, &runs}).get(), key * 10);
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(cache.get(1, Counted{11, &runs}).get(), 11);
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(held.get(), 20); // kept alive by its future
    (void)cache.get(7, Counted{70, &runs});
    EXPECT_EQ(held.get(), 20);
}

TEST(Cache, AListOfOneStaysAsItIs)
{
    Numbers cache;
    int runs = 0;
    EXPECT_EQ(cache.get(1, Counted{10, &runs}).get(), 10);
    EXPECT_EQ(cache.get(1, Counted{11, &runs}).get(), 10);
    EXPECT_EQ(runs, 1);
}

TEST(Cache, WithoutBeingEnabledNothingIsKept)
{
    Numbers cache;
    int runs = 0;
    (void)cache.get(1, Counted{10, &runs}).get();
    cache.setEnabled(false);
    cache.setEnabled(true);
    EXPECT_EQ(cache.get(1, Counted{11, &runs}).get(), 10); // entries stay until the next get
    cache.setEnabled(false);
    EXPECT_EQ(cache.get(1, Counted{11, &runs}).get(), 11);
    EXPECT_EQ(cache.get(1, Counted{12, &runs}).get(), 12);
    cache.setEnabled(true);
    EXPECT_EQ(cache.get(1, Counted{13, &runs}).get(), 13);
    EXPECT_EQ(runs, 4);
}

TEST(Cache, ClearingForgets)
{
    Numbers cache;
    int runs = 0;
    (void)cache.get(1, Counted{10, &runs}).get();
    cache.clear();
    EXPECT_EQ(cache.get(1, Counted{11, &runs}).get(), 11);
}

TEST(Cache, AnExceptionIsRaisedInEachWaiter)
{
    Numbers cache;
    const auto failing = []() -> int { throw std::runtime_error("no picture"); };
    const auto first = cache.get(1, failing);
    const auto second = cache.get(1, failing);
    EXPECT_THROW((void)first.get(), std::runtime_error);
    EXPECT_THROW((void)second.get(), std::runtime_error);
}

TEST(Cache, AProducerMayUseTheCache)
{
    Numbers cache;
    const auto outer = cache.get(1, [&cache] { return cache.get(2, [] { return 5; }).get() + 1; });
    EXPECT_EQ(outer.get(), 6);
}

TEST(Cache, WaitersOfOneValueShareItsProduction)
{
    Numbers cache;
    std::atomic<int> runs = 0;
    std::vector<int> values(4);
    {
        std::vector<std::jthread> threads;
        for (auto& value : values)
            threads.emplace_back([&] {
                value = cache
                            .get(1,
                                 [&runs] {
                                     std::this_thread::sleep_for(std::chrono::milliseconds(20));
                                     return ++runs;
                                 })
                            .get();
            });
    }
    EXPECT_EQ(values, std::vector<int>(4, 1));
}

TEST(CacheRegistry, HoldsTheCachesThatLive)
{
    const auto count = [] {
        int caches = 0;
        forEachCache([&](ICache&) { ++caches; });
        return caches;
    };
    const int before = count();
    {
        Numbers first;
        std::vector<Cache<int, ImageCacheKey, 2>> others(2);
        EXPECT_EQ(count(), before + 3);
        int runs = 0;
        (void)first.get(1, Counted{10, &runs}).get();
        forEachCache([](ICache& cache) { cache.clear(); });
        (void)first.get(1, Counted{10, &runs}).get();
        EXPECT_EQ(runs, 2);
        forEachCache([](ICache& cache) { cache.setEnabled(false); });
        (void)first.get(1, Counted{10, &runs}).get();
        EXPECT_EQ(runs, 3);
    }
    EXPECT_EQ(count(), before);
}

TEST(CacheRegistry, TakesCachesFromManyThreads)
{
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int k = 0; k < 200; ++k) {
                Numbers cache;
                (void)cache.get(1, [] { return 1; });
                forEachCache([](ICache& any) { any.clear(); });
            }
        });
}

TEST(ImageCacheKey, ComparesRectangleSizeAndText)
{
    const ImageCacheKey key({1, 2, 3, 4}, {5, 6}, "id");
    EXPECT_TRUE(key == ImageCacheKey({1, 2, 3, 4}, {5, 6}, "id"));
    for (const auto& other : {ImageCacheKey({0, 2, 3, 4}, {5, 6}, "id"), ImageCacheKey({1, 0, 3, 4}, {5, 6}, "id"),
                              ImageCacheKey({1, 2, 0, 4}, {5, 6}, "id"), ImageCacheKey({1, 2, 3, 0}, {5, 6}, "id"),
                              ImageCacheKey({1, 2, 3, 4}, {0, 6}, "id"), ImageCacheKey({1, 2, 3, 4}, {5, 0}, "id"),
                              ImageCacheKey({1, 2, 3, 4}, {5, 6}, "ie"), ImageCacheKey({1, 2, 3, 4}, {5, 6}, "id ")})
        EXPECT_FALSE(key == other);
}

TEST(EffectsCacheHelper, CopiesShareTheirMap)
{
    EffectsCacheHelper first;
    ASSERT_TRUE(first.map());
    EXPECT_TRUE(first.map()->empty());
    EffectsCacheHelper copy = first;
    (*first.map())[static_cast<CacheKeyIndex>(3)] = {"id", nullptr};
    EXPECT_EQ(copy.map()->at(static_cast<CacheKeyIndex>(3)).id, "id");
    EffectsCacheHelper other;
    EXPECT_NE(other.map(), first.map());
    other = copy;
    EXPECT_EQ(other.map(), first.map());
    const EffectsCacheHelper moved = std::move(other);
    EXPECT_EQ(moved.map(), first.map());
    EffectsCacheHelper assigned;
    assigned = std::move(copy);
    EXPECT_EQ(assigned.map(), first.map());
}

} // namespace
} // namespace orvo
