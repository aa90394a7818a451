// Photographs that the upscaler's filters were not trained on, halved and enlarged again.
#include "orvo_test_pictures.hpp"

#include <orvo/upscaling.hpp>
#include <orvo_io/image_reader.hpp>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

namespace {

using test::Picture;
using test::Pixel;

// The same as HELD_OUT of scripts/train_upscaler/train.py.
constexpr const char* kHeldOut[] = {
    "single/faces_cafe/faces_cafe.jpg",        "single/skiers/skiers.jpg",
    "single/lake_horizon/lake_horizon.jpg",    "single/waterfall_orientation6/waterfall_orientation6.jpg",
    "single/p3_vs_srgb/iceland_srgb.jpg",      "brackets/street_tree/street_03.jpg",
    "brackets/canal_boat/grandcanal_mean.jpg", "panorama/weir/weir_2.jpg",
    "panorama/tower_library/IMG_8725.JPG",     "focus/pcb_usb/pcb_004.jpg"};
constexpr int kSide = 800; // of the tested part in the middle

double meanSquare(const Picture& a, const Picture& b)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < a.pixelCount(); ++i) {
        const Pixel p = orvo::clampValue(a.data()[i]);
        const Pixel q = orvo::clampValue(b.data()[i]);
        for (const double d : {p.r - q.r, p.g - q.g, p.b - q.b})
            sum += d * d;
    }
    return sum / (3.0 * static_cast<double>(a.pixelCount()));
}

orvo::PicturePointer middle(const std::filesystem::path& path)
{
    const auto image =
        orvo::ImageReader::instance().open({path, {}}, {}, orvo::ImageReaderOpenFlag::Bracket, nullptr, {}, -1);
    if (!image)
        return nullptr;
    const int width = std::min(image->width() / 4 * 4, kSide);
    const int height = std::min(image->height() / 4 * 4, kSide);
    return image->imageData({}, {}, true)
        ->copy({(image->width() - width) / 2, (image->height() - height) / 2, width, height});
}

orvo::PicturePointer cubicOfOpenCV(const Picture& small, orvo::_Size<int> size)
{
    auto result = std::make_shared<Picture>(size, small.colorProfile());
    const cv::Mat from(small.height(), small.width(), CV_32FC3, const_cast<Pixel*>(small.data()));
    cv::Mat to(size.height, size.width, CV_32FC3, result->data());
    cv::resize(from, to, to.size(), 0, 0, cv::INTER_CUBIC);
    return result;
}

TEST(UpscalingOfPhotographs, BeatsCubic)
{
    const auto folder = test::dataFolder();
    if (!folder)
        GTEST_SKIP() << "ORVO_TEST_DATA names no folder of test pictures";
    for (const int passes : {1, 2}) {
        double catmullRom = 0.0;
        double openCV = 0.0;
        for (const char* const name : kHeldOut) {
            const auto truth = middle(*folder / name);
            ASSERT_TRUE(truth) << name;
            const auto small = truth->resize({truth->width() >> passes, truth->height() >> passes}, {}, true);
            orvo::UpscaleAISettings settings;
            settings.passes = passes;
            const auto found = orvo::upscaleX(small, settings, nullptr, nullptr, {});
            ASSERT_TRUE(found);
            const double error = meanSquare(*found, *truth);
            const double plain = 10.0 * std::log10(meanSquare(*small->resize(truth->size(), {}, true), *truth) / error);
            const double other = 10.0 * std::log10(meanSquare(*cubicOfOpenCV(*small, truth->size()), *truth) / error);
            EXPECT_GT(plain, 0.05) << name << ", passes " << passes;
            EXPECT_GT(other, 0.0) << name << ", passes " << passes;
            catmullRom += plain / std::size(kHeldOut);
            openCV += other / std::size(kHeldOut);
        }
        std::printf("%d times: %.2f dB over Catmull-Rom, %.2f dB over OpenCV's cubic\n", 1 << passes, catmullRom,
                    openCV);
        EXPECT_GT(catmullRom, passes == 1 ? 0.85 : 0.4);
        EXPECT_GT(openCV, passes == 1 ? 0.65 : 0.3);
    }
}

} // namespace
