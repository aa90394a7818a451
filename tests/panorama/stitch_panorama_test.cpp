// Stitching in one call.
#include "hall_scene.hpp"
#include "panorama_truth.hpp"
#include "support/pictures.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_extensions/panorama.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>
#include <orvo_logger/log_capture.hpp>
#include <scenes/sphere_view_files.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

using namespace orvo;
using namespace orvo::test;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr WarpType kAllProjections[] = {WarpType::Plane,   WarpType::Cylindrical,   WarpType::Spherical,
                                        WarpType::Fisheye, WarpType::Stereographic, WarpType::Mercator};

std::shared_ptr<const Picture> pixelsOf(const StitchedPanorama& panorama)
{
    return panorama.image->developedOriginalImageData({});
}

bool isWhite(const PixelRGB<float>& pixel) { return pixel.r == 1.0f && pixel.g == 1.0f && pixel.b == 1.0f; }

/// The number of pixels of a row or column that are not white.
int contentInRow(const Picture& picture, int y)
{
    return static_cast<int>(std::count_if(picture.row(y), picture.row(y) + picture.width(),
                                          [](const auto& pixel) { return !isWhite(pixel); }));
}

int contentInColumn(const Picture& picture, int x)
{
    int count = 0;
    for (int y = 0; y < picture.height(); ++y)
        count += isWhite(picture.row(y)[x]) ? 0 : 1;
    return count;
}

class StitchPanorama : public testing::Test
{
protected:
    /// Files named a to d, each exposed a little longer than the one before.
    StitchPanorama()
    {
        for (std::size_t i = 0; i < views.size(); ++i) {
            views[i].ev = 0.1 * static_cast<double>(i);
            source.files.push_back(write(std::string(1, static_cast<char>('a' + i)) + ".tif", views[i], i + 1));
        }
    }

    std::filesystem::path write(const std::string& name, const scenes::SphereView& view, std::uint64_t seed,
                                std::uint64_t scene = 1) const
    {
        scenes::writeSphereView(scenes::SphereScene(scene), view, folder / name, {.noiseSeed = seed});
        return folder / name;
    }

    [[nodiscard]] StitchedPanorama stitched(const PanoramaOutput& output = {}) const
    {
        return stitchPanorama(source, output, {}, {});
    }

    TemporaryFolder folder;
    std::vector<scenes::SphereView> views = smallRow();
    PanoSource source;
};

} // namespace

TEST_F(StitchPanorama, DrawsAllContentOfThePictures)
{
    const StitchedPanorama panorama = stitched();
    ASSERT_TRUE(panorama.image);
    EXPECT_TRUE(panorama.isRead);
    EXPECT_EQ(panorama.projection, WarpType::Spherical);
    EXPECT_NEAR(panorama.focalLength, 400.0f, 8.0f);
    // Three steps of 21 degrees and half a view on each side, at 400 pixels per radian, plus hand shake.
    EXPECT_NEAR(panorama.image->size().width, 811, 25);
    EXPECT_NEAR(panorama.image->size().height, 310, 40);
    EXPECT_EQ(panorama.image->metadata()->size, panorama.image->size());
}

TEST_F(StitchPanorama, PixelsShowTheSceneInTheirDirection)
{
    for (std::size_t i = 0; i < views.size(); ++i) {
        views[i].ev = 0.0;
        (void)write(source.files[i].filename().string(), views[i], i + 1);
    }
    const StitchedPanorama panorama = stitched();
    ASSERT_TRUE(panorama.image);
    const auto picture = pixelsOf(panorama);
    const auto warper = makeWarper(panorama.focalLength, kSphericalKind);

    // From the panorama's directions to the scene's, by the places of the pictures; and the corner of their content.
    cv::Matx33d sum = cv::Matx33d::zeros();
    cv::Point2d corner(1e9, 1e9);
    for (std::size_t i = 0; i < views.size(); ++i) {
        ASSERT_TRUE(panorama.places[i].placed);
        const cv::Matx33f panoramaFromCamera(panorama.places[i].rotation.data());
        sum += cv::Matx33d(views[i].rotation.data()) * cv::Matx33d(panoramaFromCamera).t();
        for (int y = 0; y < views[i].size.height; ++y)
            for (const int x : {0, views[i].size.width - 1}) {
                const cv::Vec3d ahead(x - 0.5 * views[i].size.width, y - 0.5 * views[i].size.height, views[i].focal);
                const cv::Vec3d seen = cv::normalize(cv::Matx33d(panoramaFromCamera) * ahead);
                corner.x = std::min(corner.x, std::atan2(seen[0], seen[2]));
            }
        for (int x = 0; x < views[i].size.width; ++x) {
            const cv::Vec3d ahead(x - 0.5 * views[i].size.width, -0.5 * views[i].size.height, views[i].focal);
            const cv::Vec3d seen = cv::normalize(cv::Matx33d(panoramaFromCamera) * ahead);
            corner.y = std::min(corner.y, std::numbers::pi - std::acos(seen[1]));
        }
    }
    cv::Matx31d w;
    cv::Matx33d u;
    cv::Matx33d vt;
    cv::SVD::compute(sum, w, u, vt);
    const cv::Matx33d sceneFromPanorama = u * vt;

    constexpr int kReach = 6; // pixels in which the corner is searched: the rim of the content is cut off
    const cv::Point start(cvRound(corner.x * panorama.focalLength) - kReach,
                          cvRound(corner.y * panorama.focalLength) - kReach);
    const scenes::SphereScene scene;
    const double finest = 3.0 * std::atan(1.0 / views[0].focal) * 180.0 / std::numbers::pi;
    cv::Mat truth(picture->height() + 2 * kReach, picture->width() + 2 * kReach, CV_32FC3);
    forEachRow(truth.rows, [&](int y) {
        for (int x = 0; x < truth.cols; ++x) {
            cv::Vec3f seen;
            warper->mapBackward(static_cast<float>(start.x + x), static_cast<float>(start.y + y), seen[0], seen[1],
                                seen[2]);
            const cv::Vec3d direction = sceneFromPanorama * cv::normalize(cv::Vec3d(seen));
            const auto light = scene.light(direction[0], direction[1], direction[2], finest);
            truth.at<cv::Vec3f>(y, x) = {srgbCurveFromLinear(light.r), srgbCurveFromLinear(light.g),
                                         srgbCurveFromLinear(light.b)};
        }
    });
    const cv::Mat found = matrixOf(*picture);
    cv::Mat content;
    cv::inRange(found, cv::Scalar::all(1.0), cv::Scalar::all(1.0), content);
    content = 255 - content;
    Agreement best;
    for (int y = 0; y <= 2 * kReach; ++y)
        for (int x = 0; x <= 2 * kReach; ++x) {
            const auto here = agreementOf(found, content, truth({x, y, found.cols, found.rows}), 4);
            if (here.psnr > best.psnr)
                best = here;
        }
    std::cout << best.psnr << " dB, worst mean " << best.worstMean << "\n";
    EXPECT_GT(best.pixels, found.rows * found.cols / 2);
    EXPECT_GT(best.psnr, 38.0);
    EXPECT_LT(best.worstMean, 0.05);
}

TEST_F(StitchPanorama, RotationsAreThoseOfTheViewsInTheOrderOfTheSource)
{
    std::reverse(source.files.begin(), source.files.end());
    std::reverse(views.begin(), views.end());
    const StitchedPanorama panorama = stitched({WarpType::Spherical, 200});
    ASSERT_THAT(panorama.places, SizeIs(4));
    const auto rotation = [&](std::size_t i) {
        scenes::Rotation out{};
        std::copy(panorama.places[i].rotation.begin(), panorama.places[i].rotation.end(), out.begin());
        return out;
    };
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(panorama.places[i].path, source.files[i]);
        EXPECT_TRUE(panorama.places[i].placed);
        const auto found = scenes::relative(rotation(0), rotation(i));
        const auto truth = scenes::relative(views[0].rotation, views[i].rotation);
        EXPECT_LT(scenes::angleBetween(found, truth), 0.5) << i;
    }
}

TEST_F(StitchPanorama, OrderOfTheFilesChangesOnlyTheMetadata)
{
    const StitchedPanorama before = stitched({WarpType::Spherical, 300});
    std::swap(source.files[0], source.files[2]);
    const StitchedPanorama after = stitched({WarpType::Spherical, 300});
    ASSERT_TRUE(before.image && after.image);
    EXPECT_TRUE(sameBytes(*pixelsOf(before), *pixelsOf(after)));
    const auto shutter = [&](std::size_t i) { return ImageReader::readMetadata(source.files[i])->shutterSeconds; };
    EXPECT_EQ(before.image->metadata()->shutterSeconds, shutter(2));
    EXPECT_EQ(after.image->metadata()->shutterSeconds, shutter(0));
    EXPECT_NE(shutter(0), shutter(2));
}

TEST_F(StitchPanorama, EveryProjectionGivesAPictureCutToItsContent)
{
    for (const WarpType projection : kAllProjections) {
        SCOPED_TRACE(static_cast<int>(projection));
        const StitchedPanorama panorama = stitched({projection, 400});
        ASSERT_TRUE(panorama.image);
        EXPECT_EQ(panorama.projection, projection);
        const auto pixels = pixelsOf(panorama);
        EXPECT_LE(std::max(pixels->width(), pixels->height()), 400);
        EXPECT_GE(std::max(pixels->width(), pixels->height()), 380) << "the limit is used";
        EXPECT_GT(contentInRow(*pixels, 0), 0);
        EXPECT_GT(contentInRow(*pixels, pixels->height() - 1), 0);
        EXPECT_GT(contentInColumn(*pixels, 0), 0);
        EXPECT_GT(contentInColumn(*pixels, pixels->width() - 1), 0);
        EXPECT_GT(contentInRow(*pixels, pixels->height() / 2), pixels->width() / 4);
    }
}

TEST_F(StitchPanorama, ThereIsNoDarkRimBetweenContentAndWhite)
{
    // Bright pictures, so that dark pixels are not part of them.
    for (std::size_t i = 0; i < views.size(); ++i) {
        views[i].ev = 4.0;
        views[i].noise = 0.0;
        (void)write(source.files[i].filename().string(), views[i], 1);
    }
    float darkest = 1.0f;
    for (const auto& view : views) {
        const auto seen = scenes::SphereScene().see(view);
        for (int y = 0; y < seen->height(); ++y)
            for (int x = 0; x < seen->width(); ++x)
                darkest = std::min(darkest, seen->row(y)[x].g);
    }
    ASSERT_GT(darkest, 0.3f);
    for (const WarpType projection : kAllProjections) {
        const StitchedPanorama panorama = stitched({projection, 0});
        ASSERT_TRUE(panorama.image) << static_cast<int>(projection);
        const auto pixels = pixelsOf(panorama);
        int dark = 0;
        for (int y = 0; y < pixels->height(); ++y)
            for (int x = 0; x < pixels->width(); ++x)
                dark += pixels->row(y)[x].g < darkest - 0.2f ? 1 : 0;
        EXPECT_EQ(dark, 0) << static_cast<int>(projection);
    }
}

TEST_F(StitchPanorama, PlanetOfAFullTurnIsClosed)
{
    source.files.clear();
    scenes::SphereView view = smallView();
    view.focal = 250.0; // 77 degrees wide
    for (int i = 0; i < 9; ++i) {
        view.rotation = scenes::rotationOf(40.0 * i, 0.0, 0.0);
        source.files.push_back(write("turn" + std::to_string(i) + ".tif", view, static_cast<std::uint64_t>(i + 1)));
    }
    const StitchedPanorama panorama = stitched({WarpType::Stereographic, 500});
    ASSERT_TRUE(panorama.image);
    const auto pixels = pixelsOf(panorama);
    EXPECT_NEAR(pixels->width(), pixels->height(), 50);
    // The whole circle of the horizon is content: radius 1. The sides of the picture are at tan(60.5 degrees) and more,
    // since the middle of a view reaches 31 degrees up.
    const double x0 = 0.5 * pixels->width();
    const double y0 = 0.5 * pixels->height();
    const double horizon = 0.5 * pixels->width() / 1.77;
    int white = 0;
    for (int degree = 0; degree < 3600; ++degree) {
        const double angle = degree * std::numbers::pi / 1800.0;
        const auto x = static_cast<int>(x0 + horizon * std::cos(angle));
        const auto y = static_cast<int>(y0 + horizon * std::sin(angle));
        white += isWhite(pixels->row(y)[x]) ? 1 : 0;
    }
    EXPECT_EQ(white, 0);
}

TEST_F(StitchPanorama, SizeLimit)
{
    const _Size<int> whole = stitched().image->size();
    EXPECT_EQ(stitched({WarpType::Spherical, 32000}).image->size(), whole) << "never finer than the pictures";
    for (const int limit : {90, 333}) {
        const _Size<int> size = stitched({WarpType::Spherical, limit}).image->size();
        EXPECT_LE(size.width, limit);
        EXPECT_NEAR(size.width, limit, 0.04 * limit);
        EXPECT_NEAR(size.width * 1.0 / size.height, whole.width * 1.0 / whole.height, 0.2);
    }
}

TEST_F(StitchPanorama, AReducedPanoramaIsAveraged)
{
    for (std::size_t i = 0; i < views.size(); ++i) {
        views[i].noise = 0.1;
        (void)write(source.files[i].filename().string(), views[i], i + 1);
    }
    const StitchedPanorama small = stitched({WarpType::Spherical, 200});
    const StitchedPanorama whole = stitched();
    ASSERT_TRUE(small.image && whole.image);
    const auto found = pixelsOf(small);
    const auto expected = pixelsOf(whole)->resize(found->size(), {}, true);
    const cv::Rect inner(20, 20, found->width() - 40, found->height() - 40);
    const double root = std::sqrt(inner.area() * 3.0);
    const double error = cv::norm(matrixOf(*found)(inner), matrixOf(*expected)(inner), cv::NORM_L2) / root;
    EXPECT_LT(error, 0.03) << "single pixels differ by their noise, 0.1";
}

TEST_F(StitchPanorama, ContentBeyondTheRangeOfTheProjectionIsAWarning)
{
    EXPECT_TRUE(stitched({WarpType::Plane, 200}).image);
    EXPECT_THAT(lastWarnings(), IsEmpty());
    scenes::SphereView view = smallView();
    view.focal = 250.0;
    source.files.clear();
    for (int i = 0; i < 5; ++i) { // 237 degrees wide
        view.rotation = scenes::rotationOf(40.0 * i, 0.0, 0.0);
        source.files.push_back(write("wide" + std::to_string(i) + ".tif", view, static_cast<std::uint64_t>(i + 1)));
    }
    EXPECT_TRUE(stitched({WarpType::Plane, 200}).image);
    EXPECT_THAT(lastWarnings(), testing::ElementsAre(HasSubstr("cut off")));
    for (const WarpType projection :
         {WarpType::Spherical, WarpType::Cylindrical, WarpType::Mercator, WarpType::Fisheye, WarpType::Stereographic}) {
        EXPECT_TRUE(stitched({projection, 200}).image);
        EXPECT_THAT(lastWarnings(), IsEmpty()) << static_cast<int>(projection);
    }
}

TEST_F(StitchPanorama, SameBytesForAnyNumberOfThreads)
{
    for (const WarpType projection : {WarpType::Spherical, WarpType::Plane, WarpType::Stereographic}) {
        std::vector<std::shared_ptr<const Picture>> pictures;
        for (const int threads : {1, 2}) {
            const WorkerLimit limit(threads);
            pictures.push_back(pixelsOf(stitched({projection, 300})));
        }
        EXPECT_TRUE(sameBytes(*pictures[0], *pictures[1])) << static_cast<int>(projection);
    }
}

TEST_F(StitchPanorama, ProgressRisesToItsEnd)
{
    std::vector<float> shares;
    ASSERT_TRUE(
        stitchPanorama(source, {WarpType::Spherical, 200}, [&](float share) { shares.push_back(share); }, {}).image);
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
    EXPECT_GE(shares.size(), 4u + 3u) << "after each file, and after each step";
    float longest = 0.0f;
    for (std::size_t i = 1; i < shares.size(); ++i)
        longest = std::max(longest, shares[i] - shares[i - 1]);
    // Steps of a small panorama differ from the shares that large ones take, and loops on several threads report from
    // one of them only.
    EXPECT_LT(longest, 0.25f) << "it stands still in no step";
    EXPECT_GE(shares.front(), 0.0f);
    EXPECT_EQ(shares.back(), 1.0f);
}

TEST_F(StitchPanorama, CancelAtAnyPollGivesNoImage)
{
    source.files.resize(2);
    int polls = 0;
    const auto stitchedUntil =
        [&](int last) { // the plane is drawn from the sphere, so it polls wherever the sphere does
            polls = 0;
            return stitchPanorama(source, {WarpType::Plane, 200}, {}, CancelAt{last, &polls});
        };
    ASSERT_TRUE(stitchedUntil(1'000'000).image);
    const int all = polls;
    EXPECT_GT(all, 6);
    const LogCapture log;
    for (int last = 1; last <= all; ++last) {
        EXPECT_FALSE(stitchedUntil(last).image) << last << " of " << all;
        EXPECT_LE(polls, last + 2) << "it went on";
    }
    EXPECT_THAT(log.texts(LogMessageType::Error), IsEmpty());
}

TEST_F(StitchPanorama, AHallOfEqualDoorsIsPlaced)
{
    const HallScene hall(0.2);
    views = hallViews();
    source.files.clear();
    for (std::size_t i = 0; i < views.size(); ++i) {
        const auto picture = hall.see(views[i]);
        source.files.push_back(folder / ("hall" + std::to_string(10 + i) + ".tif"));
        ASSERT_TRUE(writeImage(source.files.back(), *picture, writeSettingsForPath(source.files.back())));
    }
    const LogCapture log;
    const StitchedPanorama panorama = stitched({WarpType::Spherical, 400});
    EXPECT_THAT(log.texts(LogMessageType::Error), Contains("failed to make more accurate focals prediction"));
    ASSERT_TRUE(panorama.image);
    EXPECT_FALSE(lastFailure());
    EXPECT_THAT(lastWarnings(), Contains(HasSubstr("look alike")));
    EXPECT_NEAR(panorama.focalLength, views[0].focal, 0.01 * views[0].focal);
    for (std::size_t i = 0; i < views.size(); ++i) {
        ASSERT_TRUE(panorama.places[i].placed) << i;
        const auto& next = panorama.places[(i + 1) % views.size()];
        const auto rotation = [](const PanoramaPlace& place) {
            scenes::Rotation out{};
            std::copy(place.rotation.begin(), place.rotation.end(), out.begin());
            return out;
        };
        const auto found = scenes::relative(rotation(panorama.places[i]), rotation(next));
        const auto truth = scenes::relative(views[i].rotation, views[(i + 1) % views.size()].rotation);
        EXPECT_LT(scenes::angleBetween(found, truth), 0.5) << i;
    }
}

TEST_F(StitchPanorama, PicturesOfAHallThatAreWornLittleAreNeverPlacedWrongly)
{
    const HallScene hall(0.1);
    views = hallViews();
    std::vector<cv::Mat> pictures;
    for (const auto& view : views)
        pictures.push_back(cvMatFromImageData(hall.see(view)));
    PanoramaStitcher engine{PanoSource()};
    EXPECT_FALSE(engine.registerWithoutContradictions({})) << "nothing has failed yet";
    ASSERT_FALSE(engine.estimateCameras(pictures));
    EXPECT_EQ(engine.getStatus(), 2);
    EXPECT_TRUE(engine.hasContradictions());
    ASSERT_TRUE(engine.registerWithoutContradictions({}));
    EXPECT_EQ(engine.getStatus(), 1);
    EXPECT_FALSE(engine.hasContradictions());
    EXPECT_GE(engine.usedCameras().size(), 3u);
    EXPECT_EQ(engine.usedMasks().size(), engine.usedCameras().size());
    EXPECT_LT(medianRotationError(engine, views), 1.0);
}

TEST_F(StitchPanorama, NoFiles)
{
    source.files.clear();
    const LogCapture log;
    const StitchedPanorama panorama = stitched();
    EXPECT_FALSE(panorama.image);
    EXPECT_THAT(panorama.places, IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(StitchPanorama, OneFile)
{
    source.files.resize(1);
    const StitchedPanorama panorama = stitched();
    EXPECT_FALSE(panorama.image);
    EXPECT_TRUE(panorama.isRead);
    ASSERT_THAT(panorama.places, SizeIs(1));
    EXPECT_FALSE(panorama.places[0].placed);
}

TEST_F(StitchPanorama, UnrelatedPictureIsLeftOut)
{
    source.files.insert(source.files.begin(), write("z.tif", smallView(), 1, 99));
    const StitchedPanorama panorama = stitched({WarpType::Spherical, 200});
    ASSERT_TRUE(panorama.image);
    ASSERT_THAT(panorama.places, SizeIs(5));
    for (std::size_t i = 0; i < 5; ++i)
        EXPECT_EQ(panorama.places[i].placed, i != 0) << i;
    EXPECT_EQ(panorama.places[0].rotation, (std::array<float, 9>{}));
    EXPECT_EQ(panorama.image->metadata()->shutterSeconds, ImageReader::readMetadata(source.files[1])->shutterSeconds);
}

TEST_F(StitchPanorama, PicturesThatDoNotFitTogether)
{
    source.files = {source.files[0], write("z.tif", smallView(), 1, 99)};
    const StitchedPanorama panorama = stitched();
    EXPECT_FALSE(panorama.image);
    EXPECT_TRUE(panorama.isRead);
    EXPECT_EQ(panorama.focalLength, 0.0f);
    for (const PanoramaPlace& place : panorama.places)
        EXPECT_FALSE(place.placed);
}

TEST_F(StitchPanorama, UnreadableFileIsLogged)
{
    std::ofstream(folder / "b.tif") << "no picture";
    const LogCapture log;
    testing::internal::CaptureStderr(); // the provider also reports it there
    const StitchedPanorama panorama = stitched();
    (void)testing::internal::GetCapturedStderr();
    EXPECT_FALSE(panorama.image);
    EXPECT_FALSE(panorama.isRead);
    EXPECT_THAT(panorama.places, SizeIs(4));
    EXPECT_THAT(log.texts(LogMessageType::Warning), Contains(HasSubstr("b.tif")));
}

TEST_F(StitchPanorama, ExceptionOfACallbackIsLogged)
{
    const LogCapture log;
    const auto broken = [](float) { throw std::runtime_error("the window was closed"); };
    const StitchedPanorama panorama = stitchPanorama(source, {}, broken, {});
    EXPECT_FALSE(panorama.image);
    EXPECT_THAT(panorama.places, IsEmpty());
    EXPECT_THAT(log.texts(LogMessageType::Error), testing::ElementsAre(HasSubstr("the window was closed")));
}
