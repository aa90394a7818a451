#include "grouping/bracket_pieces.hpp"

#include <gmock/gmock.h>

namespace orvo {
namespace {

using testing::ElementsAre;

struct Pictures
{
    std::vector<PictureFacts> facts;

    Pictures& add(double ev, double seconds = -1.0)
    {
        PictureFacts each;
        each.ev = ev;
        each.hasExposure = true;
        if (seconds >= 0.0)
            each.capture.seconds = seconds;
        facts.push_back(each);
        return *this;
    }
    Pictures& addAll(const std::vector<double>& evs)
    {
        for (const double ev : evs)
            add(ev);
        return *this;
    }
    Pictures& measured()
    {
        for (PictureFacts& each : facts)
            each.hasExposure = false;
        return *this;
    }
    /// Lengths of the pieces, those of brackets; a single picture is 1.
    [[nodiscard]] std::vector<std::size_t> lengths() const
    {
        std::vector<std::size_t> result;
        for (const BracketPiece& piece : bracketPieces(facts)) {
            EXPECT_EQ(piece.isBracket, piece.run.size() > 1);
            result.push_back(piece.run.size());
        }
        return result;
    }
};

TEST(BracketPieces, AnyOrderOfExposures)
{
    EXPECT_THAT(Pictures().addAll({0, -2, 2}).lengths(), ElementsAre(3));
    EXPECT_THAT(Pictures().addAll({-2, 2, 0, -1, 1}).lengths(), ElementsAre(5));
    EXPECT_THAT(Pictures().addAll({3, 2, 1, 0, -1, -2, -3}).lengths(), ElementsAre(7));
}

TEST(BracketPieces, OneAfterTheOther)
{
    EXPECT_THAT(Pictures().addAll({0, -2, 2, 0, -2, 2}).lengths(), ElementsAre(3, 3));
    EXPECT_THAT(Pictures().addAll({0, -1, 1, -2, 2, 0, -2, 2}).lengths(), ElementsAre(5, 3));
    EXPECT_THAT(Pictures().addAll({0, -2, 2, 2, 0, -2, -2, 2, 0}).lengths(), ElementsAre(3, 3, 3));
}

TEST(BracketPieces, OneWithinABurst)
{
    EXPECT_THAT(Pictures().addAll({0, 0, 0, -2, 0, 2}).lengths(), ElementsAre(1, 1, 1, 3));
    EXPECT_THAT(Pictures().addAll({0, 0.1, 0, 0.05}).lengths(), ElementsAre(1, 1, 1, 1));
}

TEST(BracketPieces, ThirdsOfAStop)
{
    EXPECT_THAT(Pictures().addAll({0, -0.33, 0.33}).lengths(), ElementsAre(3));
    EXPECT_THAT(Pictures().addAll({0, 0.33}).lengths(), ElementsAre(1, 1));
}

TEST(BracketPieces, BiasesRepeatWhereTheLightChanges)
{
    Pictures pictures;
    pictures.addAll({-2, 0, 2, -1.6, 0.4, 2.4});
    for (std::size_t i = 0; i < pictures.facts.size(); ++i)
        pictures.facts[i].capture.exposureBias = 2.0 * (static_cast<double>(i % 3) - 1.0);
    EXPECT_THAT(pictures.lengths(), ElementsAre(3, 3));
}

TEST(BracketPieces, StepsAreEven)
{
    EXPECT_THAT(Pictures().addAll({-2, 0, 2, -1.6, 0.4, 2.4}).lengths(), ElementsAre(3, 3));
}

TEST(BracketPieces, NoLongPauseInside)
{
    Pictures pictures;
    for (const double ev : {-3.0, -1.0, 1.0})
        pictures.add(ev, 10.0 + ev);
    for (const double ev : {-2.0, 0.0, 2.0})
        pictures.add(ev, 60.0 + ev);
    EXPECT_THAT(pictures.lengths(), ElementsAre(3, 3));
}

TEST(BracketPieces, WhatAMeterChoosesIsNone)
{
    Pictures pictures;
    pictures.addAll({0, 0.3, 0.7});
    for (PictureFacts& each : pictures.facts) {
        each.capture.exposureMode = ExposureMode::Auto;
        each.capture.exposureBias = 0.0;
    }
    EXPECT_THAT(pictures.lengths(), ElementsAre(1, 1, 1));
    for (PictureFacts& each : pictures.facts)
        each.capture.exposureMode = ExposureMode::AutoBracket;
    EXPECT_THAT(pictures.lengths(), ElementsAre(3));
}

TEST(BracketPieces, MeasuredExposuresMayCoincide)
{
    const std::vector<double> evs{-2.0, -2.0, -1.2, -4.0, -0.6, -2.0, -4.8};
    EXPECT_THAT(Pictures().addAll(evs).measured().lengths(), ElementsAre(7));
    EXPECT_THAT(Pictures().addAll({0, -2, 2, 0, -2, 2}).measured().lengths(), ElementsAre(3, 3));
    EXPECT_THAT(Pictures().addAll({0, 0, 0, 0, 2}).measured().lengths(), testing::Not(ElementsAre(5)));
}

TEST(BracketPieces, NothingOfNothing) { EXPECT_THAT(bracketPieces({}), testing::IsEmpty()); }

} // namespace
} // namespace orvo
