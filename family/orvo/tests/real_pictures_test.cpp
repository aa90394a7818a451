// On photographs; needs the folder ORVO_TEST_DATA.

#include "orvo_test_pictures.hpp"

#include <orvo/finishing.hpp>
#include <orvo/lens_correction.hpp>
#include <orvo_io/image_reader.hpp>

#include <gmock/gmock.h>

#include <algorithm>

namespace {

using orvo::PicturePointer;
using test::Pixel;

struct Photograph
{
    PicturePointer pixels;
    std::shared_ptr<const orvo::ImageMetadata> metadata;
    std::shared_ptr<orvo::AdditionalRawMetadata> rawMetadata;
};

class Photographs : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!test::dataFolder())
            GTEST_SKIP() << "ORVO_TEST_DATA does not name the folder of test pictures";
    }

    static Photograph read(const char* name)
    {
        const auto image = orvo::ImageReader::instance().open({*test::dataFolder() / name, ""}, {},
                                                              orvo::ImageReaderOpenFlag::Bracket, nullptr, "", -1);
        if (!image)
            return {};
        return {image->imageData({}, {}, true), image->metadata(), image->getAdditionalRawMetadata()};
    }
};

// Linear level and colour (log2 of red and blue over green) of the brightest hundredth of a picture.
struct Lights
{
    double level = 0.0;
    double red = 0.0;
    double blue = 0.0;
};

Lights lightsOf(const orvo::_ImageData<Pixel>& picture)
{
    std::vector<Pixel> pixels(picture.data(), picture.data() + picture.pixelCount());
    const auto split = pixels.begin() + static_cast<std::ptrdiff_t>(pixels.size() / 100);
    std::nth_element(pixels.begin(), split, pixels.end(), [](const Pixel& a, const Pixel& b) { return a.g > b.g; });
    double r = 0.0, g = 0.0, b = 0.0;
    for (auto p = pixels.begin(); p != split; ++p) {
        r += static_cast<double>(orvo::linearFromSRGBCurve(p->r));
        g += static_cast<double>(orvo::linearFromSRGBCurve(p->g));
        b += static_cast<double>(orvo::linearFromSRGBCurve(p->b));
    }
    return {g / static_cast<double>(split - pixels.begin()), std::log2(r / g), std::log2(b / g)};
}

TEST_F(Photographs, RawFramesDevelopWithWhiteHighlights)
{
    // The longest exposure of a bracket, with a clipped sky.
    const Photograph frame = read("raw/building_ev/building_3.dng");
    ASSERT_NE(frame.pixels, nullptr);
    for (const float exposure : {-3.0f, 0.0f, 2.0f}) {
        PicturePointer picture = test::copyOf(frame.pixels);
        orvo::develop_for_hdr(picture, frame.metadata, frame.rawMetadata, exposure, false);
        EXPECT_TRUE(test::finite(*picture));
        const Lights lights = lightsOf(*picture);
        EXPECT_NEAR(lights.red, 0.0, 0.1) << exposure;
        EXPECT_NEAR(lights.blue, 0.0, 0.1) << exposure;
        EXPECT_GT(lights.level, 0.75) << exposure;
    }
}

// A rung made from one frame looks like the frame that was actually taken with that exposure.
TEST_F(Photographs, RungsOfARawBracketFitEachOther)
{
    const Photograph dark = read("raw/building_ev/building_1.dng");
    const Photograph middle = read("raw/building_ev/building_2.dng");
    ASSERT_NE(dark.pixels, nullptr);
    ASSERT_NE(middle.pixels, nullptr);
    ASSERT_EQ(dark.pixels->size(), middle.pixels->size());
    PicturePointer lifted = test::copyOf(dark.pixels);
    PicturePointer taken = test::copyOf(middle.pixels);
    orvo::develop_for_hdr(lifted, dark.metadata, dark.rawMetadata, 2.0f, false);
    orvo::develop_for_hdr(taken, middle.metadata, middle.rawMetadata, 0.0f, false);
    double sumLifted = 0.0;
    double sumTaken = 0.0;
    for (std::size_t i = 0; i < taken->pixelCount(); ++i) {
        const float g = orvo::linearFromSRGBCurve(taken->data()[i].g);
        if (g < 0.1f || g > 0.5f)
            continue;
        sumTaken += static_cast<double>(g);
        sumLifted += static_cast<double>(orvo::linearFromSRGBCurve(lifted->data()[i].g));
    }
    EXPECT_NEAR(sumLifted / sumTaken, 1.0, 0.03);
}

TEST_F(Photographs, ACompactCameraIsCorrectedByItsName)
{
    const Photograph photograph = read("single/skiers/skiers.jpg");
    ASSERT_NE(photograph.pixels, nullptr);
    const PicturePointer corrected =
        orvo::applyAutoLensCorrection(photograph.pixels, photograph.metadata, photograph.rawMetadata);
    ASSERT_NE(corrected, photograph.pixels) << "is lensfun's database installed?";
    EXPECT_EQ(corrected->size(), photograph.pixels->size());
    EXPECT_TRUE(test::finite(*corrected));
}

TEST_F(Photographs, FinishingStaysInBounds)
{
    for (const char* name : {"single/faces_cafe/faces_cafe.jpg", "single/lake_horizon/lake_horizon.jpg"}) {
        Photograph photograph = read(name);
        ASSERT_NE(photograph.pixels, nullptr) << name;
        const PicturePointer before = test::copyOf(photograph.pixels);
        orvo::normalize_for_hdr(photograph.pixels->data(), photograph.pixels->width(), photograph.pixels->height());
        EXPECT_LT(test::largestChange(*photograph.pixels, *before), 0.35f) << name;
        orvo::applyWB(photograph.pixels, 0.5f);
        orvo::applyDetails(photograph.pixels->data(), photograph.pixels->width(), photograph.pixels->height(), 0.5f);
        EXPECT_TRUE(test::finite(*photograph.pixels)) << name;
    }
}

} // namespace
