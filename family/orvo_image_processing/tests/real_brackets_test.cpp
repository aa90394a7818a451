// Exposure matching on photographed brackets of static scenes; needs the folder ORVO_TEST_DATA.
#include "test_planes.hpp"

#include <orvo_image_processing/auto_exposure.hpp>

#include <gtest/gtest.h>
#include <jpeglib.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <string>

namespace {

struct Picture
{
    int width = 0;
    int height = 0;
    std::vector<float> samples; // RGB, 0..1
};

/// Reads a good JPEG file at half size; on any other libjpeg ends the test program.
Picture readHalfSize(const std::string& path)
{
    Picture picture;
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    if (file == nullptr)
        return picture;
    jpeg_decompress_struct decoder{};
    jpeg_error_mgr errors{};
    decoder.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&decoder);
    jpeg_stdio_src(&decoder, file);
    jpeg_read_header(&decoder, TRUE);
    decoder.scale_denom = 2;
    decoder.out_color_space = JCS_RGB;
    jpeg_start_decompress(&decoder);
    picture.width = static_cast<int>(decoder.output_width);
    picture.height = static_cast<int>(decoder.output_height);
    std::vector<JSAMPLE> row(3 * std::size_t{decoder.output_width});
    while (decoder.output_scanline < decoder.output_height) {
        JSAMPROW rows[] = {row.data()};
        jpeg_read_scanlines(&decoder, rows, 1);
        for (const JSAMPLE v : row)
            picture.samples.push_back(static_cast<float>(v) / 255.0f);
    }
    jpeg_finish_decompress(&decoder);
    jpeg_destroy_decompress(&decoder);
    std::fclose(file);
    return picture;
}

/// Mean distance of the samples that are neither clipped nor black in both frames.
double distance(const Picture& a, const Picture& b, const std::vector<float>& mapped)
{
    double sum = 0.0;
    double count = 0.0;
    for (std::size_t i = 0; i < a.samples.size(); ++i)
        if (a.samples[i] > 0.02f && a.samples[i] < 0.95f && b.samples[i] > 0.02f && b.samples[i] < 0.95f) {
            sum += static_cast<double>(std::abs(mapped[i] - a.samples[i]));
            ++count;
        }
    return sum / count;
}

struct Pair
{
    const char* first;
    const char* second;
    double most; ///< mean distance explained by noise, fine texture and hand movement
};

// Names the test; GoogleTest would print the bytes of the pointers, which differ in every run.
void PrintTo(const Pair& pair, std::ostream* out) { *out << pair.first << " and " << pair.second; }

class RealBracket : public testing::TestWithParam<Pair>
{};

} // namespace

TEST_P(RealBracket, NeighboursMeetMuchBetterThanByAGainAlone)
{
    const char* const folder = std::getenv("ORVO_TEST_DATA");
    if (folder == nullptr)
        GTEST_SKIP() << "ORVO_TEST_DATA names no folder of test pictures";
    const std::string root = std::string(folder) + "/brackets/";
    std::array<Picture, 2> frames{readHalfSize(root + GetParam().first), readHalfSize(root + GetParam().second)};
    if (frames[0].samples.empty() || frames[1].samples.empty())
        GTEST_SKIP() << "no " << root << GetParam().first << " and its neighbour";
    for (std::size_t k = 0; k < 2; ++k) {
        const Picture& a = frames[k];
        const Picture& b = frames[1 - k];
        orvo::auto_exposure_data_t data;
        orvo::autoExposureEstimateRGB(a.samples.data(), b.samples.data(), a.width, a.height, data, 7);
        std::vector<float> byCurve = b.samples;
        orvo::autoExposureApplyRGB(nullptr, byCurve.data(), a.width, a.height, data);
        for (auto& curve : data.curves) { // same exposures, with straight splines
            curve.knots = 1;
            curve.from[0] = curve.to[0] = 1.0f;
        }
        std::vector<float> byGain = b.samples;
        orvo::autoExposureApplyRGB(nullptr, byGain.data(), a.width, a.height, data);
        const double curveDistance = distance(a, b, byCurve);
        EXPECT_LT(curveDistance, GetParam().most) << k;
        EXPECT_LT(curveDistance, 0.75 * distance(a, b, byGain)) << k;
    }
}

INSTANTIATE_TEST_SUITE_P(StillScenes, RealBracket,
                         testing::Values(Pair{"church_film/church_03.jpg", "church_film/church_05.jpg", 0.02},
                                         Pair{"church_film/church_06.jpg", "church_film/church_07.jpg", 0.02},
                                         Pair{"living_room/room_03.jpg", "living_room/room_05.jpg", 0.02},
                                         Pair{"building_iso/20240401_175720.JPG", "building_iso/20240401_175728.JPG",
                                              0.04}));
