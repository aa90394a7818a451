#include "panorama/band_blender.hpp"
#include "support/matrices.hpp"

#include <orvo_core/parallel.hpp>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <opencv2/stitching/detail/blenders.hpp>

#include <vector>

using namespace orvo;
using namespace orvo::test;

namespace {

struct Piece
{
    cv::Mat picture;
    cv::Mat mask;
    cv::Point corner;
};

cv::Mat smoothNoise(const cv::Size& size, int seed)
{
    cv::Mat picture(size, CV_16SC3);
    cv::RNG random(static_cast<std::uint64_t>(seed));
    random.fill(picture, cv::RNG::UNIFORM, 0, 16384);
    cv::GaussianBlur(picture, picture, {}, 1.5);
    return picture;
}

// Pictures side by side with overlaps, of sizes that are no multiples of anything. Masks have slanted borders, holes,
// and parts in which they are empty.
std::vector<Piece> row(int count, const cv::Size& size)
{
    std::vector<Piece> pieces;
    for (int i = 0; i < count; ++i) {
        Piece piece;
        const cv::Size own(size.width + 3 * i, size.height - 5 * i);
        piece.picture = smoothNoise(own, i + 1);
        piece.mask = cv::Mat::zeros(own, CV_8UC1);
        const std::vector<cv::Point> outline = {{own.width / 8, 0},
                                                {own.width - 1, own.height / 9},
                                                {own.width * 7 / 8, own.height - 1},
                                                {0, own.height * 3 / 4}};
        cv::fillConvexPoly(piece.mask, outline, cv::Scalar(255));
        cv::circle(piece.mask, {own.width / 2, own.height / 2}, own.height / 10, cv::Scalar(0), cv::FILLED);
        piece.mask.at<std::uint8_t>(own.height / 2, own.width / 2) = 1; // as seams leave it
        piece.corner = cv::Point(-37 + i * size.width * 2 / 3, 11 + 7 * i);
        pieces.push_back(piece);
    }
    return pieces;
}

struct Blended
{
    cv::Mat picture;
    cv::Mat mask;
};

template <typename Feed>
void feedAll(const std::vector<Piece>& pieces, const Feed& feed)
{
    for (const Piece& piece : pieces)
        feed(piece.picture, piece.mask, piece.corner);
}

std::vector<cv::Point> cornersOf(const std::vector<Piece>& pieces)
{
    std::vector<cv::Point> corners;
    for (const Piece& piece : pieces)
        corners.push_back(piece.corner);
    return corners;
}

std::vector<cv::Size> sizesOf(const std::vector<Piece>& pieces)
{
    std::vector<cv::Size> sizes;
    for (const Piece& piece : pieces)
        sizes.push_back(piece.picture.size());
    return sizes;
}

Blended blended(const std::vector<Piece>& pieces, int bands)
{
    BandBlender blender(cornersOf(pieces), sizesOf(pieces), bands);
    feedAll(pieces, [&](const cv::Mat& picture, const cv::Mat& mask, cv::Point corner) {
        blender.feed(picture.getUMat(cv::ACCESS_READ), mask, corner);
    });
    Blended result;
    blender.blend(result.picture, result.mask);
    return result;
}

Blended blendedByOpenCV(const std::vector<Piece>& pieces, int bands)
{
    cv::detail::MultiBandBlender blender(false, bands);
    static_cast<cv::detail::Blender&>(blender).prepare(cornersOf(pieces), sizesOf(pieces));
    feedAll(pieces, [&](const cv::Mat& picture, const cv::Mat& mask, cv::Point corner) {
        blender.feed(picture, mask, corner);
    });
    Blended result;
    blender.blend(result.picture, result.mask);
    return result;
}

void expectSame(const Blended& a, const Blended& b)
{
    ASSERT_EQ(a.picture.type(), CV_16SC3);
    ASSERT_EQ(a.mask.type(), CV_8UC1);
    EXPECT_TRUE(sameBytes(a.picture, b.picture));
    EXPECT_TRUE(sameBytes(a.mask, b.mask));
}

} // namespace

TEST(BandBlender, AgreesWithOpenCVForAnyNumberOfBands)
{
    for (const int bands : {0, 1, 2, 5, 9})
        for (const cv::Size size : {cv::Size(211, 157), cv::Size(64, 64), cv::Size(533, 97)}) {
            SCOPED_TRACE(testing::Message() << bands << " bands, " << size);
            const std::vector<Piece> pieces = row(3, size);
            expectSame(blended(pieces, bands), blendedByOpenCV(pieces, bands));
        }
}

TEST(BandBlender, TakesTheBorderFromAroundASubmatrix)
{
    std::vector<Piece> pieces = row(2, {180, 130});
    for (Piece& piece : pieces) {
        const cv::Rect part(13, 9, piece.picture.cols - 40, piece.picture.rows - 17);
        piece.picture = piece.picture(part);
        piece.mask = piece.mask(part);
    }
    const Blended result = blended(pieces, 4);
    expectSame(result, blendedByOpenCV(pieces, 4));
    for (Piece& piece : pieces)
        piece.picture = piece.picture.clone();
    EXPECT_FALSE(sameBytes(result.picture, blended(pieces, 4).picture)) << "the border does not count";
}

TEST(BandBlender, ExtremeSamplesAgreeToo)
{
    std::vector<Piece> pieces = row(3, {150, 120});
    for (Piece& piece : pieces) {
        cv::RNG random(3);
        random.fill(piece.picture, cv::RNG::UNIFORM, -32768, 32767);
    }
    expectSame(blended(pieces, 3), blendedByOpenCV(pieces, 3));
}

TEST(BandBlender, AnyNumberOfThreadsGivesTheSameBytes)
{
    const std::vector<Piece> pieces = row(4, {640, 480});
    const Blended expected = [&] {
        const WorkerLimit limit(1);
        return blended(pieces, 6);
    }();
    for (const int threads : {2, 3, 7}) {
        const WorkerLimit limit(threads);
        expectSame(blended(pieces, 6), expected);
    }
}
