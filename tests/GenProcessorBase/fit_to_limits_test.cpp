#include "GenProcessorBase/fit_to_limits.hpp"
#include "support/pictures.hpp"

#include <gtest/gtest.h>

#include <set>
#include <utility>

namespace orvo {
namespace {

// A candidate whose text length is a function of its size.
struct Candidate
{
    using Length = std::function<std::size_t(_Size<int>)>;

    Candidate(_Size<int> size, Length length_, std::set<std::pair<int, int>>* encoded_)
        : image(std::make_shared<_ImageData<float>>(size, nullptr)), length(std::move(length_)), encoded(encoded_)
    {
        EXPECT_GE(size.width, 1);
        EXPECT_GE(size.height, 1);
        EXPECT_TRUE(encoded->emplace(size.width, size.height).second) << "encoded twice: " << size.width;
    }
    [[nodiscard]] std::shared_ptr<const Candidate> resized(_Size<int> size) const
    {
        return std::make_shared<const Candidate>(size, length, encoded);
    }

    std::shared_ptr<const _ImageData<float>> image;
    Length length;
    std::set<std::pair<int, int>>* encoded;
};

struct Fitted
{
    _Size<int> size;
    std::size_t total;
    std::size_t encodings;
};

Fitted fit(_Size<int> size, std::int32_t maxSize, float aspect, const Candidate::Length& length)
{
    std::set<std::pair<int, int>> encoded;
    const auto total = [](const Candidate& c) { return c.length(c.image->size()); };
    const auto fitted =
        fitToLimits<Candidate>(std::make_shared<const Candidate>(size, length, &encoded), maxSize, aspect, total);
    return {fitted->image->size(), total(*fitted), encoded.size()};
}

std::size_t area(_Size<int> size)
{
    return static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
}

TEST(FitToLimits, WhatFitsStaysAsItIs)
{
    const auto fitted = fit({300, 200}, 60000, 2.45f, area);
    EXPECT_EQ(fitted.size, _Size<int>(300, 200));
    EXPECT_EQ(fitted.encodings, 1u);
}

TEST(FitToLimits, TheAspectIsClampedFirst)
{
    EXPECT_EQ(fit({4000, 1000}, 1 << 30, 2.45f, area).size, _Size<int>(2450, 1000));
    EXPECT_EQ(fit({1000, 4000}, 1 << 30, 2.45f, area).size, _Size<int>(1000, 2450));
    EXPECT_EQ(fit({4000, 1000}, 1 << 30, -1.0f, area).size, _Size<int>(4000, 1000)); // no limit
    EXPECT_EQ(fit({4000, 1}, 1 << 30, 2.45f, area).size, _Size<int>(2, 1));
}

TEST(FitToLimits, OneStepIsEnoughWhereTheTextFollowsTheArea)
{
    const auto fitted = fit({1000, 1000}, 250000, 2.45f, area);
    EXPECT_EQ(fitted.size, _Size<int>(500, 500));
    EXPECT_EQ(fitted.encodings, 2u);
}

TEST(FitToLimits, BisectsWhereTheTextShrinksMoreSlowly)
{
    // As long as the circumference, so the first step overshoots by far.
    const auto length = [](_Size<int> size) { return static_cast<std::size_t>(size.width + size.height); };
    const auto fitted = fit({2000, 1500}, 700, 2.45f, length);
    EXPECT_LE(fitted.total, 700u);
    EXPECT_GT(fitted.total, 650u); // within a hundredth of the scale
    EXPECT_LT(fitted.encodings, 10u);
    EXPECT_NEAR(static_cast<double>(fitted.size.width) / fitted.size.height, 4.0 / 3.0, 0.01);
}

TEST(FitToLimits, WhatNeverFitsEndsAtTheSmallestTried)
{
    for (const std::int32_t maxSize : {1, 0, -5}) {
        const auto fitted = fit({640, 480}, maxSize, 2.45f, [](_Size<int>) { return std::size_t{1000}; });
        EXPECT_GE(fitted.size.width, 1);
        EXPECT_LE(fitted.size.width, 20);
    }
    EXPECT_EQ(fit({1, 1}, 1, 2.45f, [](_Size<int>) { return std::size_t{2}; }).size, _Size<int>(1, 1));
}

TEST(FitToLimits, SmallPicturesOfAnyShapeEnd)
{
    for (int width = 1; width <= 12; ++width)
        for (int height = 1; height <= 12; ++height)
            for (const std::int32_t maxSize : {1, 3, 10, 40}) {
                const auto fitted = fit({width, height}, maxSize, 2.45f, area);
                EXPECT_TRUE(fitted.total <= static_cast<std::size_t>(maxSize) || area(fitted.size) <= 4u);
            }
}

TEST(FitToLimits, AnEmptyCandidateGivesAnEmptyResult)
{
    EXPECT_FALSE(fitToLimits<Candidate>(nullptr, 5, 2.0f, [](const Candidate&) { return 1; }));
}

} // namespace
} // namespace orvo
