#include "frame/image_bridge.hpp"
#include "support/matrices.hpp"
#include "support/pictures.hpp"

#include <orvo_common/memory_manager.hpp>
#include <orvo_core/parallel.hpp>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <bit>
#include <cstdint>
#include <random>

using namespace orvo;
using namespace orvo::test;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
const std::vector<_Size<int>> kSizes = {{1, 1}, {1, 7}, {7, 1}, {641, 3}, {64, 64}, {1025, 5}};

std::shared_ptr<Picture> noise(int width, int height, std::shared_ptr<ColorProfile> profile, float low = -0.2f,
                               float high = 1.2f)
{
    auto picture = std::make_shared<Picture>(_Size<int>(width, height), std::move(profile));
    std::mt19937 random(11);
    std::uniform_real_distribution<float> values(low, high);
    for (std::size_t i = 0; i < picture->pixelCount(); ++i)
        picture->data()[i] = {values(random), values(random), values(random)};
    return picture;
}

std::shared_ptr<Picture> onePixel(PixelRGB<float> pixel)
{
    return std::make_shared<Picture>(_Size<int>(1, 1), pixel, ColorProfileType::sRGB());
}

cv::Mat working(int width, int height)
{
    cv::Mat mat(height, width, CV_16SC3);
    cv::RNG random(5);
    random.fill(mat, cv::RNG::UNIFORM, -500, 17000);
    return mat;
}

// The definition of copyPart(), sample by sample.
template <typename Sample>
Sample sampleOfPart(const cv::Mat& source, int channel, int x, int y, const cv::Rect2f& rect, cv::Size size)
{
    const float sx = rect.width / static_cast<float>(size.width);
    const float sy = rect.height / static_cast<float>(size.height);
    float column = 0;
    float row = 0;
    const float fx = modff(static_cast<float>(x) * sx + rect.x, &column);
    const float fy = modff(static_cast<float>(y) * sy + rect.y, &row);
    const int c = static_cast<int>(column);
    const int r = static_cast<int>(row);
    const int c2 = std::min(source.cols - 1, c + 1);
    const int r2 = std::min(source.rows - 1, r + 1);
    const auto in = [&](int v, int u) {
        return static_cast<float>(source.ptr<Sample>(v)[u * source.channels() + channel]);
    };
    const float value = in(r, c) * ((1 - fx) * (1 - fy)) + in(r, c2) * (fx * (1 - fy)) + in(r2, c2) * (fx * fy) +
                        in(r2, c) * ((1 - fx) * fy);
    return static_cast<Sample>(static_cast<int>(value));
}

template <typename Sample>
void expectDefinition(const cv::Mat& source, const cv::Rect2f& rect, cv::Size size)
{
    cv::Mat part;
    copyPart(source, part, rect, size);
    ASSERT_EQ(part.size(), size);
    ASSERT_EQ(part.type(), source.type());
    for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x)
            for (int c = 0; c < source.channels(); ++c)
                ASSERT_EQ(part.ptr<Sample>(y)[x * source.channels() + c],
                          sampleOfPart<Sample>(source, c, x, y, rect, size))
                    << "(" << x << ", " << y << ") channel " << c;
}

// What cvMatThroughWorkingSpace() promises.
cv::Mat convertedTwice(const Picture& picture)
{
    std::shared_ptr<Picture> converted;
    picture.colorTransform(converted, ColorProfileType::melissaRGB(), false);
    return cvMatFromImageData(converted);
}

} // namespace

TEST(CvMatFromImageData, PutsBlueFirstAndFullScaleAt16383)
{
    const cv::Mat mat = cvMatFromImageData(onePixel({1.0f, 0.5f, 0.25f}));
    ASSERT_EQ(mat.type(), CV_16SC3);
    ASSERT_EQ(mat.size(), cv::Size(1, 1));
    EXPECT_EQ(mat.at<cv::Vec3s>(0, 0), cv::Vec3s(4095, 8191, 16383)) << "truncated, not rounded";
}

TEST(CvMatFromImageData, LimitsValuesOutOfRange)
{
    EXPECT_EQ(cvMatFromImageData(onePixel({2.0f, -1.0f, kNaN})).at<cv::Vec3s>(0, 0), cv::Vec3s(0, 0, 16383));
    EXPECT_EQ(cvMatFromImageData(onePixel({kInfinity, -kInfinity, -0.0f})).at<cv::Vec3s>(0, 0), cv::Vec3s(0, 0, 16383));
    EXPECT_EQ(cvMatFromImageData(onePixel({-kNaN, 1.0001f, 1e-9f})).at<cv::Vec3s>(0, 0), cv::Vec3s(0, 16383, 0));
}

TEST(CvMatFromImageData, AgreesWithItsDefinitionAtAllSizes)
{
    for (const auto& size : kSizes) {
        const auto picture = noise(size.width, size.height, ColorProfileType::sRGB());
        picture->data()[0].g = kNaN;
        const cv::Mat mat = cvMatFromImageData(picture);
        ASSERT_EQ(mat.size(), cv::Size(size.width, size.height));
        for (int y = 0; y < size.height; ++y) {
            for (int x = 0; x < size.width; ++x) {
                const PixelRGB<float> p = clampValue(picture->row(y)[x]);
                const cv::Vec3s expected(static_cast<std::int16_t>(p.b * 16383.0f),
                                         static_cast<std::int16_t>(p.g * 16383.0f),
                                         static_cast<std::int16_t>(p.r * 16383.0f));
                ASSERT_EQ(mat.at<cv::Vec3s>(y, x), expected) << x << ", " << y;
            }
        }
    }
}

TEST(CvMatFromImageData, ConvertsOtherProfilesAndLeavesThePictureAlone)
{
    for (const auto& profile : {ColorProfileType::melissaRGB(), ColorProfileType::linearSRGB()}) {
        for (const auto& size : kSizes) {
            const std::shared_ptr<const Picture> picture = noise(size.width, size.height, profile, 0.0f, 1.0f);
            const auto before = picture->copy({});
            std::shared_ptr<Picture> converted;
            picture->colorTransform(converted, ColorProfileType::sRGB(), false);
            const cv::Mat mat = cvMatFromImageData(picture);
            EXPECT_TRUE(sameBytes(mat, cvMatFromImageData(converted))) << size.width << "x" << size.height;
            EXPECT_TRUE(sameBytes(*picture, *before));
            EXPECT_EQ(*picture->colorProfile(), *profile);
        }
    }
    // Linear light of 0.5 is far brighter once encoded.
    auto linear =
        std::make_shared<Picture>(_Size<int>(1, 1), PixelRGB<float>{0.5f, 0.5f, 0.5f}, ColorProfileType::linearSRGB());
    EXPECT_NEAR(cvMatFromImageData(linear).at<cv::Vec3s>(0, 0)[0], 0.7354 * 16383, 3);
}

TEST(CvMatFromImageData, UsesAPictureWithoutAProfileUnchanged)
{
    const auto named = noise(33, 9, ColorProfileType::sRGB());
    for (const auto& profile : {ColorProfileType::None(), std::shared_ptr<ColorProfile>()})
        EXPECT_TRUE(sameBytes(cvMatFromImageData(named), cvMatFromImageData(noise(33, 9, profile))));
}

TEST(CvMatFromImageData, NothingGivesAnEmptyMatrix)
{
    EXPECT_TRUE(cvMatFromImageData(nullptr).empty());
    EXPECT_TRUE(cvMatFromImageData(std::make_shared<Picture>(_Size<int>(0, 0), ColorProfileType::sRGB())).empty());
    EXPECT_TRUE(
        cvMatFromImageData(std::make_shared<Picture>(_Size<int>(0, 0), ColorProfileType::melissaRGB())).empty());
}

TEST(CvMatFromImageData, CreatesNoSecondPicture)
{
    for (const auto& profile : {ColorProfileType::sRGB(), ColorProfileType::melissaRGB()}) {
        const auto picture = noise(300, 200, profile);
        MemoryManager::instance().resetPeak();
        const std::size_t before = MemoryManager::instance().liveBytes();
        (void)cvMatFromImageData(picture);
        EXPECT_GE(MemoryManager::instance().peakBytes(), before + 300 * 200 * 6);
        EXPECT_LT(MemoryManager::instance().peakBytes(), before + 300 * 200 * 6 + 4096) << "the result alone";
        EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
    }
}

TEST(CvMatThroughWorkingSpace, AgreesForAllTriplesOfBytes)
{
    constexpr float kByteStep = static_cast<float>(1.0 / 255.0); // as the reader scales
    const auto picture = std::make_shared<Picture>(_Size<int>(256, 256), ColorProfileType::sRGB());
    for (int red = 0; red < 256; ++red) {
        for (int green = 0; green < 256; ++green)
            for (int blue = 0; blue < 256; ++blue)
                picture->row(green)[blue] = {static_cast<float>(red) * kByteStep, static_cast<float>(green) * kByteStep,
                                             static_cast<float>(blue) * kByteStep};
        ASSERT_TRUE(sameBytes(cvMatThroughWorkingSpace(picture), convertedTwice(*picture))) << "red " << red;
    }
}

TEST(CvMatThroughWorkingSpace, AgreesForOtherSamplesAndProfiles)
{
    // Samples of 16 bits; dark ones, which the conversions change most, beside bright ones.
    std::mt19937 random(7);
    for (const unsigned range : {65536u, 2048u, 64u}) {
        const auto picture = std::make_shared<Picture>(_Size<int>(1025, 640), ColorProfileType::sRGB());
        const auto sample = [&](unsigned most) { return static_cast<float>(random() % most) / 65535.0f; };
        for (std::size_t i = 0; i < picture->pixelCount(); ++i)
            picture->data()[i] = {sample(range), sample(65536), sample(range)};
        EXPECT_TRUE(sameBytes(cvMatThroughWorkingSpace(picture), convertedTwice(*picture))) << range;
    }
    for (const auto& size : kSizes) {
        const auto picture = noise(size.width, size.height, ColorProfileType::sRGB());
        picture->data()[0].g = kInfinity;
        EXPECT_TRUE(sameBytes(cvMatThroughWorkingSpace(picture), convertedTwice(*picture)));
        const auto working = noise(size.width, size.height, ColorProfileType::melissaRGB());
        EXPECT_TRUE(sameBytes(cvMatThroughWorkingSpace(working), cvMatFromImageData(working)));
    }
    EXPECT_TRUE(cvMatThroughWorkingSpace(nullptr).empty());
}

TEST(ImageDataFromCVMat, UndoesCvMatFromImageDataWithinAStep)
{
    const auto picture = noise(123, 45, ColorProfileType::sRGB(), 0.0f, 1.0f);
    const auto back = imageDataFromCVMat(cvMatFromImageData(picture));
    ASSERT_EQ(back->size(), picture->size());
    EXPECT_EQ(*back->colorProfile(), *ColorProfileType::sRGB());
    // Truncation takes up to one step of 1/16383; full scale 16383.5 in the inverse adds up to half a step.
    EXPECT_THAT(*picture, PixelsNear(*back, 1.5f / 16383.0f));
    for (std::size_t i = 0; i < picture->pixelCount(); ++i) {
        const PixelRGB<float>& p = picture->data()[i];
        const PixelRGB<float>& q = back->data()[i];
        for (const auto& [before, after] : {std::pair(p.r, q.r), std::pair(p.g, q.g), std::pair(p.b, q.b)})
            ASSERT_LE(before * (16383.0f / 16383.5f) - after, 1.0f / 16383.0f) << "one step on the scale of the matrix";
    }
}

TEST(ImageDataFromCVMat, IsUndoneByCvMatFromImageDataWithinAStep)
{
    cv::Mat mat(1, 16384, CV_16SC3);
    for (int v = 0; v < 16384; ++v)
        mat.at<cv::Vec3s>(0, v) = cv::Vec3s::all(static_cast<std::int16_t>(v));
    const cv::Mat back = cvMatFromImageData(imageDataFromCVMat(mat));
    EXPECT_LE(cv::norm(mat, back, cv::NORM_INF), 1.0);
}

TEST(ImageDataFromCVMat, ScalesWorkingSamplesToTheBit)
{
    const float step = std::bit_cast<float>(0x38800100u);
    cv::Mat mat(1, 3, CV_16SC3);
    mat.at<cv::Vec3s>(0, 0) = {1, 2, 16383};
    mat.at<cv::Vec3s>(0, 1) = {-1, -32768, 0};
    mat.at<cv::Vec3s>(0, 2) = {32767, 16384, 8000};
    const auto image = imageDataFromCVMat(mat);
    EXPECT_EQ(image->row(0)[0], (PixelRGB<float>{16383.0f * step, 2.0f * step, step}));
    EXPECT_EQ(image->row(0)[1], (PixelRGB<float>{0.0f, 0.0f, 0.0f})) << "negative values that the blender leaves";
    EXPECT_EQ(image->row(0)[2], (PixelRGB<float>{8000.0f * step, 1.0f, 1.0f}));
}

TEST(ImageDataFromCVMat, ScalesBytesToTheBit)
{
    cv::Mat gray(1, 256, CV_8UC1);
    cv::Mat colour(1, 256, CV_8UC3);
    for (int v = 0; v < 256; ++v) {
        gray.at<std::uint8_t>(0, v) = static_cast<std::uint8_t>(v);
        colour.at<cv::Vec3b>(0, v) = cv::Vec3b(static_cast<std::uint8_t>(v), static_cast<std::uint8_t>(255 - v), 7);
    }
    const auto fromGray = imageDataFromCVMat(gray);
    const auto fromColour = imageDataFromCVMat(colour);
    for (int v = 0; v < 256; ++v) {
        const float scaled = static_cast<float>(v) * 0.003921569f;
        EXPECT_EQ(fromGray->row(0)[v], (PixelRGB<float>{scaled, scaled, scaled}));
        EXPECT_EQ(fromColour->row(0)[v],
                  (PixelRGB<float>{7.0f * 0.003921569f, static_cast<float>(255 - v) * 0.003921569f, scaled}));
    }
    EXPECT_EQ(fromGray->row(0)[255].r, 1.0f);
    EXPECT_EQ(*fromGray->colorProfile(), *ColorProfileType::sRGB());
    EXPECT_EQ(*fromColour->colorProfile(), *ColorProfileType::sRGB());
}

TEST(ImageDataFromCVMat, ReadsPartsOfLargerMatrices)
{
    const cv::Mat whole = working(40, 30);
    const cv::Mat part = whole(cv::Rect(3, 5, 21, 11));
    ASSERT_FALSE(part.isContinuous());
    EXPECT_TRUE(sameBytes(*imageDataFromCVMat(part), *imageDataFromCVMat(part.clone())));
    const auto image = imageDataFromCVMat(part);
    EXPECT_EQ(
        image->row(2)[4].r,
        std::clamp(static_cast<float>(whole.at<cv::Vec3s>(7, 7)[2]) * std::bit_cast<float>(0x38800100u), 0.0f, 1.0f));
}

TEST(ImageDataFromCVMat, RefusesAllOtherTypes)
{
    for (const int type : {CV_32FC3, CV_32FC1, CV_16SC1, CV_16SC2, CV_16UC3, CV_8UC2, CV_8UC4, CV_8SC1, CV_64FC3})
        EXPECT_EQ(imageDataFromCVMat(cv::Mat(4, 4, type, cv::Scalar::all(0))), nullptr) << type;
}

TEST(ImageDataFromCVMat, NoRowsGiveAnImageWithoutRows)
{
    for (const int type : {CV_8UC1, CV_8UC3, CV_16SC3}) {
        const auto image = imageDataFromCVMat(cv::Mat(0, 5, type));
        ASSERT_NE(image, nullptr);
        EXPECT_EQ(image->size(), _Size<int>(5, 0));
    }
}

TEST(ImageDataGrayFromCVMat, ScalesBytesAndCopiesFloats)
{
    cv::Mat bytes(2, 2, CV_8UC1);
    bytes.at<std::uint8_t>(0, 0) = 0;
    bytes.at<std::uint8_t>(0, 1) = 255;
    bytes.at<std::uint8_t>(1, 0) = 128;
    bytes.at<std::uint8_t>(1, 1) = 1;
    const auto mask = ImageDataGrayFromCVMat(bytes);
    EXPECT_EQ(mask->row(0)[0], 0.0f);
    EXPECT_EQ(mask->row(0)[1], 1.0f);
    EXPECT_EQ(mask->row(1)[0], 128.0f * 0.003921569f);
    EXPECT_EQ(mask->row(1)[1], 0.003921569f);

    const cv::Mat floats = (cv::Mat_<float>(1, 4) << -1.5f, 0.25f, 7.0f, kInfinity);
    const auto plane = ImageDataGrayFromCVMat(floats);
    EXPECT_EQ(plane->row(0)[0], -1.5f) << "not limited";
    EXPECT_EQ(plane->row(0)[1], 0.25f);
    EXPECT_EQ(plane->row(0)[2], 7.0f);
    EXPECT_EQ(plane->row(0)[3], kInfinity);
}

TEST(ImageDataGrayFromCVMat, RefusesAllOtherTypes)
{
    for (const int type : {CV_16SC3, CV_8UC3, CV_32FC3, CV_16SC1, CV_64FC1, CV_8SC1})
        EXPECT_EQ(ImageDataGrayFromCVMat(cv::Mat(4, 4, type, cv::Scalar::all(0))), nullptr) << type;
    EXPECT_EQ(ImageDataGrayFromCVMat(cv::Mat(0, 3, CV_32FC1))->size(), _Size<int>(3, 0));
}

TEST(ImageDataGrayFromCVMat, ReadsPartsOfLargerMatrices)
{
    cv::Mat whole(20, 20, CV_32FC1);
    cv::randu(whole, 0.0, 1.0);
    const auto plane = ImageDataGrayFromCVMat(whole(cv::Rect(2, 3, 9, 8)));
    ASSERT_EQ(plane->size(), _Size<int>(9, 8));
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 9; ++x)
            EXPECT_EQ(plane->row(y)[x], whole.at<float>(y + 3, x + 2));
}

TEST(CopyPart, AgreesWithItsDefinition)
{
    const cv::Mat colour = working(37, 23);
    cv::Mat mask(23, 37, CV_8UC1);
    cv::randu(mask, 0, 256);
    const std::vector<cv::Rect2f> rects = {
        {0, 0, 37, 23}, {2.25f, 3.75f, 20.5f, 11.3f}, {30.4f, 20.1f, 6.6f, 2.9f}, {36, 22, 1, 1}};
    for (const auto& rect : rects) {
        for (const cv::Size size : {cv::Size(37, 23), cv::Size(100, 61), cv::Size(5, 4), cv::Size(1, 1)}) {
            expectDefinition<std::int16_t>(colour, rect, size);
            expectDefinition<std::uint8_t>(mask, rect, size);
        }
    }
}

TEST(CopyPart, WholePixelsAreCopied)
{
    const cv::Mat source = working(30, 20);
    cv::Mat part;
    copyPart(source, part, cv::Rect2f(4, 5, 10, 8), cv::Size(10, 8));
    EXPECT_TRUE(sameBytes(part, source(cv::Rect(4, 5, 10, 8)).clone()));
}

TEST(CopyPart, TruncatesTowardZeroOnBothSides)
{
    cv::Mat source(1, 2, CV_16SC3);
    source.at<cv::Vec3s>(0, 0) = {0, 0, -3};
    source.at<cv::Vec3s>(0, 1) = {3, -3, -4};
    cv::Mat part;
    copyPart(source, part, cv::Rect2f(0.5f, 0, 1, 1), cv::Size(1, 1));
    EXPECT_EQ(part.at<cv::Vec3s>(0, 0), cv::Vec3s(1, -1, -3));
}

TEST(CopyPart, RepeatsTheLastColumnAndRow)
{
    cv::Mat source(3, 3, CV_8UC1, cv::Scalar(10));
    source.col(2).setTo(200);
    source.row(2).setTo(100);
    source.at<std::uint8_t>(2, 2) = 77;
    cv::Mat part;
    copyPart(source, part, cv::Rect2f(2.5f, 2.5f, 0.5f, 0.5f), cv::Size(1, 1));
    EXPECT_EQ(part.at<std::uint8_t>(0, 0), 77);
    copyPart(source, part, cv::Rect2f(2.5f, 0, 0.5f, 1), cv::Size(1, 1));
    EXPECT_EQ(part.at<std::uint8_t>(0, 0), 200);
    copyPart(source, part, cv::Rect2f(0, 2.5f, 1, 0.5f), cv::Size(1, 1));
    EXPECT_EQ(part.at<std::uint8_t>(0, 0), 100);
}

TEST(CopyPart, APositionThatRoundsOntoTheEndReadsTheLastSample)
{
    // The step, 2/32000, is less than half the spacing of floats near 4096.
    cv::Mat source(1, 4096, CV_8UC1, cv::Scalar(0));
    source.at<std::uint8_t>(0, 4095) = 50;
    cv::Mat part;
    copyPart(source, part, cv::Rect2f(4094, 0, 2, 1), cv::Size(32000, 1));
    EXPECT_EQ(part.at<std::uint8_t>(0, 31999), 50);
}

TEST(CopyPart, LeavesTheTargetAloneForOtherTypes)
{
    for (const int type : {CV_8UC3, CV_32FC1, CV_32FC3, CV_16SC1, CV_16UC3}) {
        cv::Mat part(2, 2, CV_8UC1, cv::Scalar(9));
        const uchar* const samples = part.data;
        copyPart(cv::Mat(8, 8, type, cv::Scalar::all(1)), part, cv::Rect2f(0, 0, 8, 8), cv::Size(4, 4));
        EXPECT_EQ(part.data, samples);
        EXPECT_EQ(part.size(), cv::Size(2, 2));
        EXPECT_EQ(cv::countNonZero(part == 9), 4);
    }
    cv::Mat part;
    copyPart(cv::Mat(), part, cv::Rect2f(), cv::Size(4, 4));
    EXPECT_TRUE(part.empty());
}

TEST(CopyPart, WorksOnDeviceMatrices)
{
    const cv::Mat source = working(30, 20);
    cv::Mat expected;
    copyPart(source, expected, cv::Rect2f(1.5f, 2.5f, 20, 10), cv::Size(25, 15));
    cv::UMat part;
    copyPart(source.getUMat(cv::ACCESS_READ), part, cv::Rect2f(1.5f, 2.5f, 20, 10), cv::Size(25, 15));
    EXPECT_TRUE(sameBytes(part.getMat(cv::ACCESS_READ), expected));
}

TEST(ImageBridge, DoesNotDependOnThreads)
{
    const auto run = [](int workers) {
        const WorkerLimit limit(workers);
        const cv::Mat mat = cvMatFromImageData(noise(1333, 222, ColorProfileType::melissaRGB()));
        cv::Mat part;
        copyPart(mat, part, cv::Rect2f(3.3f, 7.7f, 1000, 200), cv::Size(777, 333));
        cv::Mat bytes;
        part.convertTo(bytes, CV_8UC3, 255.0 / 16383.5);
        cv::Mat gray;
        cv::extractChannel(bytes, gray, 1);
        return std::tuple(mat, part, imageDataFromCVMat(mat), imageDataFromCVMat(bytes), ImageDataGrayFromCVMat(gray));
    };
    const auto one = run(1);
    const auto two = run(2);
    EXPECT_TRUE(sameBytes(std::get<0>(one), std::get<0>(two)));
    EXPECT_TRUE(sameBytes(std::get<1>(one), std::get<1>(two)));
    EXPECT_TRUE(sameBytes(*std::get<2>(one), *std::get<2>(two)));
    EXPECT_TRUE(sameBytes(*std::get<3>(one), *std::get<3>(two)));
    EXPECT_EQ(std::memcmp(std::get<4>(one)->data(), std::get<4>(two)->data(), 777 * 333 * sizeof(float)), 0);
}
