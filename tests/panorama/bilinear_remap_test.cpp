#include "panorama/bilinear_remap.hpp"

#include <orvo_core/parallel.hpp>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <limits>
#include <random>
#include <utility>

using namespace orvo;

namespace {

constexpr int kColumns = 700;
constexpr int kRows = 40;

cv::Mat noise(int columns, int rows, int type)
{
    cv::Mat picture(rows, columns, type);
    cv::RNG random(3);
    random.fill(picture, cv::RNG::UNIFORM, -40000, 40000); // both ends of 16 bits too
    return picture;
}

// Places inside, at phases and halves of them, beyond the edges, and far away.
void fillMaps(const cv::Mat& source, cv::Mat& x, cv::Mat& y)
{
    std::minstd_rand random(5);
    const auto placeWithin = [&](int size) {
        const float inside = static_cast<float>(random() % 64000) / 64000.0f * static_cast<float>(size + 4) - 2.0f;
        switch (random() % 40) {
        case 0:
            return random() % 2 == 0 ? 6e7f : -6e7f;
        case 1:
            return random() % 2 == 0 ? 5e4f : -5e4f;
        case 2:
            return static_cast<float>(static_cast<int>(inside * 64.0f)) / 64.0f; // half of a phase
        default:
            return inside;
        }
    };
    x.create(kRows, kColumns, CV_32F);
    y.create(kRows, kColumns, CV_32F);
    for (int row = 0; row < kRows; ++row)
        for (int column = 0; column < kColumns; ++column) {
            x.at<float>(row, column) = placeWithin(source.cols);
            y.at<float>(row, column) = placeWithin(source.rows);
        }
}

bool sameBytes(const cv::Mat& a, const cv::Mat& b)
{
    return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

} // namespace

TEST(BilinearRemap, GivesTheBitsOfOpenCV)
{
    for (const int type : {CV_16SC3, CV_8UC3})
        for (const auto& [columns, rows] : {std::pair{320, 200}, {2, 2}, {3, 1}, {1, 5}, {1, 1}}) {
            const cv::Mat source = noise(columns, rows, type);
            cv::Mat x;
            cv::Mat y;
            fillMaps(source, x, y);
            cv::Mat expected;
            cv::remap(source, expected, x, y, cv::INTER_LINEAR, cv::BORDER_REFLECT);
            cv::Mat found(x.size(), type);
            remapBilinear(source, found, x, y);
            EXPECT_TRUE(sameBytes(found, expected)) << columns << " x " << rows << ", type " << type;
        }
}

TEST(BilinearRemap, WritesOnlyItsRowsForAnyNumberOfThreads)
{
    const cv::Mat source = noise(320, 200, CV_16SC3);
    cv::Mat x;
    cv::Mat y;
    fillMaps(source, x, y);
    cv::Mat expected;
    cv::remap(source, expected, x, y, cv::INTER_LINEAR, cv::BORDER_REFLECT);
    for (const int threads : {1, 2, 5}) {
        const WorkerLimit limit(threads);
        cv::Mat whole(kRows + 2, kColumns + 1, CV_16SC3, cv::Scalar::all(77));
        const cv::Rect inner(0, 1, kColumns, kRows);
        remapBilinear(source, whole(inner), x, y);
        EXPECT_TRUE(sameBytes(whole(inner), expected)) << threads;
        whole(inner).setTo(cv::Scalar::all(77));
        EXPECT_TRUE(sameBytes(whole, cv::Mat(whole.size(), whole.type(), cv::Scalar::all(77)))) << threads;
    }
}

TEST(BilinearRemap, PlacesThatAreNoneGiveAPixelOfTheSource)
{
    const cv::Mat source(20, 30, CV_16SC3, cv::Scalar::all(1234));
    for (const float place :
         {std::numeric_limits<float>::quiet_NaN(), 1e12f, -1e30f, std::numeric_limits<float>::infinity()}) {
        const cv::Mat x(3, 40, CV_32F, cv::Scalar::all(static_cast<double>(place)));
        cv::Mat found(x.size(), source.type());
        remapBilinear(source, found, x, x);
        EXPECT_TRUE(sameBytes(found, cv::Mat(x.size(), source.type(), cv::Scalar::all(1234)))) << place;
    }
}
