// Panoramas by way of the composer: brackets, videos, turned, straightened and cropped.
#include "support/temporary_folder.hpp"

#include <jobs/pano_job.hpp>
#include <orvo_extensions/panorama_preview_composer.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>
#include <scenes/pan_file.hpp>
#include <scenes/sphere_view_files.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <future>
#include <numbers>
#include <string>

namespace orvo::jobs {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Picture = _ImageData<PixelRGB<float>>;

constexpr double kDegree = std::numbers::pi / 180.0;

scenes::SphereView smallView()
{
    scenes::SphereView view;
    view.size = {400, 300};
    view.focal = 400.0;
    return view;
}

class ComposedPanorama : public testing::Test
{
protected:
    ComposedPanorama()
    {
        const auto views = scenes::rowOfViews(3, 22.0, 3.0, smallView(), 1.0, 7);
        for (std::size_t i = 0; i < views.size(); ++i) {
            request.files.push_back(folder / (std::to_string(i) + ".tif"));
            scenes::writeSphereView(scenes::SphereScene(), views[i], request.files.back(), {.noiseSeed = i + 1});
        }
        request.output = folder / "out.tif";
    }

    [[nodiscard]] std::shared_ptr<Picture> made(const PanoJobRequest& job) const
    {
        const PanoJobResult result = panoJob(job);
        EXPECT_TRUE(result.done()) << result.message;
        return read(job.output);
    }
    [[nodiscard]] static std::shared_ptr<Picture> read(const std::filesystem::path& path)
    {
        const auto image = ImageReader::instance().open({path, {}}, {}, ImageReaderOpenFlag::Upright, nullptr, {}, -1);
        return image ? image->imageData({}, {}, true) : nullptr;
    }
    [[nodiscard]] std::ptrdiff_t filesInFolder() const
    {
        return std::distance(std::filesystem::directory_iterator(folder.path()), std::filesystem::directory_iterator());
    }
    /// Nothing is left behind, and the line is about the cause.
    std::string failure(const PanoJobRequest& job, JobOutcome outcome) const
    {
        const auto before = filesInFolder();
        const PanoJobResult result = panoJob(job);
        EXPECT_EQ(result.outcome, outcome) << result.message;
        EXPECT_EQ(filesInFolder(), before) << "something was left behind";
        EXPECT_EQ(result.message.find('\n'), std::string::npos);
        return result.message;
    }

    test::TemporaryFolder folder;
    PanoJobRequest request;
};

bool isWhite(const PixelRGB<float>& pixel) { return pixel.r > 0.999f && pixel.g > 0.999f && pixel.b > 0.999f; }

double whiteShare(const Picture& picture)
{
    std::size_t white = 0;
    for (std::size_t i = 0; i < picture.pixelCount(); ++i)
        white += isWhite(picture.data()[i]) ? 1 : 0;
    return static_cast<double>(white) / static_cast<double>(picture.pixelCount());
}

double meanDifference(const Picture& a, const Picture& b)
{
    EXPECT_EQ(a.size(), b.size());
    double sum = 0.0;
    for (std::size_t i = 0; i < std::min(a.pixelCount(), b.pixelCount()); ++i)
        sum += static_cast<double>(std::abs(a.data()[i].g - b.data()[i].g));
    return sum / static_cast<double>(a.pixelCount());
}

/// Compares a picture over white with the same one over black: what differs is the share that is not covered, alike in
/// all colours. Returns how many pixels are uncovered, and how many partly.
std::pair<int, int> uncovered(const Picture& overWhite, const Picture& overBlack)
{
    constexpr float kRounding = 3.0f / 65535.0f;
    EXPECT_EQ(overWhite.size(), overBlack.size());
    int none = 0;
    int partly = 0;
    int wrong = 0;
    for (std::size_t i = 0; i < overWhite.pixelCount(); ++i) {
        const auto& w = overWhite.data()[i];
        const auto& b = overBlack.data()[i];
        const float missing = w.r - b.r;
        wrong += std::abs(w.g - b.g - missing) > kRounding || std::abs(w.b - b.b - missing) > kRounding ||
                         missing < -kRounding
                     ? 1
                     : 0;
        none += missing > 1.0f - kRounding ? 1 : 0;
        partly += missing > kRounding && missing < 1.0f - kRounding ? 1 : 0;
    }
    EXPECT_EQ(wrong, 0);
    return {none, partly};
}

// A sphere with a sea below the horizon, and a lighthouse or two: level and plumb can be seen.
void writeSeaView(const scenes::SphereView& view, const std::filesystem::path& path)
{
    const auto picture = scenes::SphereScene(4).see(view);
    for (int y = 0; y < picture->height(); ++y)
        for (int x = 0; x < picture->width(); ++x) {
            const double cx = (x + 0.5 - view.size.width / 2.0) / view.focal;
            const double cy = (y + 0.5 - view.size.height / 2.0) / view.focal;
            const auto& r = view.rotation;
            const double wx = r[0] * cx + r[1] * cy + r[2];
            const double wy = r[3] * cx + r[4] * cy + r[5];
            const double wz = r[6] * cx + r[7] * cy + r[8];
            const double down = std::atan2(wy, std::hypot(wx, wz));
            const double yaw = std::atan2(wx, wz);
            const double sea = std::clamp(down * view.focal + 0.5, 0.0, 1.0); // a soft edge, one pixel wide
            const bool isTower = std::abs(std::remainder(yaw, 14.0 * kDegree)) < 0.7 * kDegree && down > -0.22;
            const auto shade = static_cast<float>((isTower ? 0.45 : 1.0) * (1.0 - 0.55 * sea));
            auto& pixel = picture->row(y)[x];
            pixel = {(0.4f + 0.6f * pixel.r) * shade, (0.4f + 0.6f * pixel.g) * shade, (0.5f + 0.5f * pixel.b) * shade};
        }
    ImageWriteSettings settings = writeSettingsForPath(path);
    settings.profile = ColorProfileType::sRGB();
    writeImage(path, *picture, settings);
}

} // namespace

TEST_F(ComposedPanorama, AnAutomaticCropIsFullOfPicture)
{
    const auto whole = made(request);
    EXPECT_GT(whiteShare(*whole), 0.005);
    request.crop = PanoCrop::Auto;
    for (const WarpType type :
         {WarpType::Spherical, WarpType::Cylindrical, WarpType::Plane, WarpType::Fisheye, WarpType::Mercator}) {
        request.projection = type;
        const auto cropped = made(request);
        EXPECT_EQ(whiteShare(*cropped), 0.0) << static_cast<int>(type);
        EXPECT_GT(cropped->width(), whole->width() / 2);
        EXPECT_GT(cropped->height(), whole->height() / 2);
    }
}

TEST_F(ComposedPanorama, ARectangleIsCutOutOfTheWhole)
{
    request.straighten = false;
    request.turnDegrees = 1e-9; // by way of the composer, without a turn
    const auto whole = made(request);
    request.crop = PanoCrop::Rectangle;
    request.cropRect = {100, 60, 200, 120};
    EXPECT_LT(meanDifference(*made(request), *whole->copy(request.cropRect)), 1e-6);
    request.cropRect = {0, 0, whole->width() + 1, 10};
    EXPECT_THAT(failure(request, JobOutcome::Failed), HasSubstr("the crop does not lie inside"));
}

TEST_F(ComposedPanorama, TurnAndShiftBothTakeEffect)
{
    // A quarter turn makes an upright panorama of a level one.
    request.turnDegrees = 90.0;
    const auto turned = made(request);
    EXPECT_GT(turned->height(), turned->width());
    request.turnDegrees = 0.0;
    request.projection = WarpType::Plane;
    const auto straight = made(request);
    request.shift = {0.05f, 0.0f};
    const auto shifted = made(request);
    EXPECT_GT(shifted->height(), straight->height()) << "farther from the middle the plane is larger";
    request.turnDegrees = 90.0;
    const auto both = made(request);
    EXPECT_GT(both->height(), both->width());
    EXPECT_GT(both->width(), turned->width());
}

TEST_F(ComposedPanorama, AQuarterTurnGoesClockwise)
{
    request.projection = WarpType::Plane;
    request.crop = PanoCrop::Auto;
    const auto level = made(request);
    request.turnDegrees = 90.0;
    const auto turned = made(request);
    // The middle of the one, turned, against that of the other.
    constexpr int kHalf = 80;
    double clockwise = 0.0;
    double counterClockwise = 0.0;
    const auto at = [](const Picture& p, int x, int y) {
        return static_cast<double>(p.row(p.height() / 2 + y)[p.width() / 2 + x].g);
    };
    for (int y = -kHalf; y < kHalf; ++y)
        for (int x = -kHalf; x < kHalf; ++x) {
            clockwise += std::abs(at(*turned, -y, x) - at(*level, x, y));
            counterClockwise += std::abs(at(*turned, y, -x) - at(*level, x, y));
        }
    EXPECT_LT(clockwise, counterClockwise);
}

TEST_F(ComposedPanorama, TheHorizonIsLevelledFromFifteenDegreesEachWay)
{
    auto view = smallView();
    view.size = {480, 360};
    const auto views = scenes::rowOfViews(3, 20.0, 0.0, view, 0.5, 3);
    request.files.clear();
    for (std::size_t i = 0; i < views.size(); ++i) {
        request.files.push_back(folder / ("sea_" + std::to_string(i) + ".png"));
        writeSeaView(views[i], request.files.back());
    }
    request.output = folder / "out.png";
    request.projection = WarpType::Plane;
    request.crop = PanoCrop::Auto;
    request.straighten = true;
    PanoramaPreviewComposer detector{PanoSource()};
    const auto tiltOf = [&](const Picture& picture) {
        return static_cast<double>(detector.getHorizonAngle(picture.copy({}))) / kDegree;
    };
    for (const double degrees : {-15.0, -7.0, 0.0, 3.0, 11.0, 15.0}) {
        request.turnDegrees = degrees;
        EXPECT_NEAR(tiltOf(*made(request)), 0.0, 0.5) << degrees;
    }
    request.straighten = false;
    request.turnDegrees = 7.0;
    EXPECT_NEAR(tiltOf(*made(request)), 7.0, 1.5) << "without it the view stays turned, clockwise";
}

TEST_F(ComposedPanorama, ContentBeyondTheRangeOfTheProjectionIsANote)
{
    request.projection = WarpType::Plane;
    request.shift = {0.02f, 0.0f}; // 5 degrees; the pictures reach 49 to each side
    request.maxSize = 300;
    EXPECT_THAT(panoJob(request).warnings, IsEmpty());
    request.shift = {0.1f, 0.0f}; // 23 degrees: beyond 64
    const PanoJobResult result = panoJob(request);
    EXPECT_TRUE(result.done()) << result.message;
    EXPECT_THAT(result.warnings, ElementsAre(HasSubstr("cut off")));
}

TEST_F(ComposedPanorama, BracketsAreMergedFirst)
{
    const auto views = scenes::rowOfViews(3, 22.0, 3.0, smallView(), 1.0, 7);
    request.files.clear();
    for (std::size_t i = 0; i < views.size(); ++i)
        for (const double ev : {0.0, -2.0, 2.0}) {
            auto view = views[i];
            view.ev = ev;
            request.files.push_back(folder / ("shot_" + std::to_string(request.files.size()) + ".jpg"));
            scenes::writeSphereView(scenes::SphereScene(), view, request.files.back());
        }
    request.brackets = true;
    const PanoJobResult result = panoJob(request);
    ASSERT_TRUE(result.done()) << result.message;
    EXPECT_EQ(result.brackets, 3u);
    ASSERT_EQ(result.places.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(result.places[i].path, request.files[3 * i]);
        EXPECT_TRUE(result.places[i].placed);
    }
    EXPECT_NEAR(read(request.output)->width(), 679, 30);
    request.files.erase(request.files.begin() + 4);
    std::filesystem::remove(request.output);
    EXPECT_THAT(failure(request, JobOutcome::Failed), AllOf(HasSubstr("shot_3.jpg"), HasSubstr("2 frames")));
}

TEST_F(ComposedPanorama, TheOrderWithinBracketsDoesNotMatter)
{
    const auto views = scenes::rowOfViews(2, 22.0, 3.0, smallView(), 1.0, 7);
    const auto orderedAs = [&](const std::vector<double>& evs) {
        request.files.clear();
        for (std::size_t i = 0; i < views.size(); ++i)
            for (const double ev : evs) {
                auto view = views[i];
                view.ev = ev;
                request.files.push_back(folder / (std::to_string(i) + "_" + std::to_string(ev + 10.0) + ".jpg"));
                scenes::writeSphereView(scenes::SphereScene(), view, request.files.back());
            }
        request.brackets = true;
        request.bracketSize = 3;
        return made(request);
    };
    const auto darkFirst = orderedAs({-6.0, 0.0, 3.0});
    EXPECT_EQ(meanDifference(*darkFirst, *orderedAs({0.0, 3.0, -6.0})), 0.0);
}

TEST_F(ComposedPanorama, AVideoIsAPan)
{
    request.files.clear();
    request.video = scenes::writePan(folder / "pan.mkv", 30);
    const auto all = made(request);
    EXPECT_NEAR(all->width(), 29 * 1.5 * kDegree * 160 + 148, 25);
    request.to = 15;
    EXPECT_LT(made(request)->width(), all->width() - 30);
    request.to.reset();
    request.frames = {{10, {40, 30, 60, 50}}};
    EXPECT_NEAR(made(request)->width(), all->width(), 8);
    request.projection = WarpType::Stereographic;
    EXPECT_GT(made(request)->width(), 50);
}

TEST_F(ComposedPanorama, VideosThatShowNoPan)
{
    request.files.clear();
    request.video = scenes::writePan(folder / "one.mkv", 1);
    EXPECT_THAT(failure(request, JobOutcome::Failed), HasSubstr("one.mkv"));
    request.video = folder / "sound.mkv";
    scenes::writeSound(request.video);
    EXPECT_THAT(failure(request, JobOutcome::Failed), HasSubstr("sound.mkv"));
    request.video = folder / "text.mp4";
    std::ofstream(request.video) << "no video";
    EXPECT_THAT(failure(request, JobOutcome::Failed), HasSubstr("text.mp4"));
    request.video = folder / "missing.mp4";
    EXPECT_THAT(failure(request, JobOutcome::Failed), HasSubstr("missing.mp4"));
    request.video = folder / "one.mkv";
    request.from = 5;
    request.to = 5;
    EXPECT_THAT(failure(request, JobOutcome::Refused), HasSubstr("end at frame 5"));
    request.files = {folder / "0.tif"};
    EXPECT_THAT(failure(request, JobOutcome::Refused), HasSubstr("not of both"));
}

TEST_F(ComposedPanorama, PicturesThatGiveNone)
{
    request.crop = PanoCrop::Auto;
    scenes::writeSphereView(scenes::SphereScene(99), smallView(), folder / "stranger.tif");
    request.files = {folder / "0.tif", folder / "stranger.tif"};
    EXPECT_THAT(failure(request, JobOutcome::Failed), HasSubstr("do not fit together"));
    request.files = {folder / "0.tif"};
    EXPECT_THAT(failure(request, JobOutcome::Refused), HasSubstr("two pictures"));
    request.files = {folder / "0.tif", folder / "1.tif", folder / "cut.tif"};
    const std::string bytes(2000, 'I');
    std::ofstream(folder / "cut.tif", std::ios::binary) << bytes;
    EXPECT_THAT(failure(request, JobOutcome::Failed), HasSubstr("cut.tif"));
}

TEST_F(ComposedPanorama, ProgressGoesFromLoadingThroughRegistrationToDrawing)
{
    request.crop = PanoCrop::Auto;
    std::vector<JobStep> steps;
    std::vector<double> fractions;
    const PanoJobResult result = panoJob(request, {[&](const JobProgress& progress) {
                                                       if (steps.empty() || steps.back() != progress.step)
                                                           steps.push_back(progress.step);
                                                       fractions.push_back(progress.fraction);
                                                   },
                                                   {}});
    ASSERT_TRUE(result.done()) << result.message;
    EXPECT_EQ(steps.front(), JobStep::Check);
    EXPECT_EQ(steps.back(), JobStep::Write);
    EXPECT_NE(std::find(steps.begin(), steps.end(), JobStep::Stitch), steps.end());
    EXPECT_TRUE(std::is_sorted(steps.begin(), steps.end()));
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_EQ(fractions.back(), 1.0);
    // Between the shares of reading and of registering; finding the content and drawing come after it.
    const auto isRegistering = [](double fraction) { return fraction > 0.46 && fraction < 0.62; };
    EXPECT_TRUE(std::any_of(fractions.begin(), fractions.end(), isRegistering));
    EXPECT_EQ(result.places.size(), 3u);
}

// The worker's own reports, of which the job shows those that it meets.
TEST_F(ComposedPanorama, RegistrationAndEveryDrawingMove)
{
    std::vector<float> shares;
    std::size_t registration = 0;
    std::promise<_Rect<int>> loaded;
    std::promise<void> drawn;
    PanoramaPreviewComposer composer(PanoSource{request.files, {}});
    composer.setWorkCallback([&](float share) { shares.push_back(share); });
    composer.loadWithCompletion([&](bool, _Rect<int> extent) {
        registration = shares.size();
        loaded.set_value(extent);
    });
    const _Rect<int> extent = loaded.get_future().get();
    composer.finalize({{}, {{}, extent}, {}}, [&](const RenderedData&) { drawn.set_value(); });
    drawn.get_future().wait();
    ASSERT_GE(registration, 6u) << "at least each picture and each pair";
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.begin() + static_cast<std::ptrdiff_t>(registration)));
    EXPECT_GT(shares[registration - 1], 0.8f);
    ASSERT_GE(shares.size(), registration + 3) << "the drawings";
    EXPECT_LT(shares[registration], 1.0f);
    EXPECT_EQ(shares.back(), 1.0f);
}

TEST_F(ComposedPanorama, TheRimIsNotDark)
{
    for (const WarpType type : {WarpType::Spherical, WarpType::Plane, WarpType::Mercator}) {
        request.projection = type;
        request.turnDegrees = 4.0;
        const auto picture = made(request);
        // From the white into the content: the first pixel against one that resampling has not mixed.
        constexpr int kInner = 4;
        int dark = 0;
        int rims = 0;
        for (int x = 0; x < picture->width(); ++x)
            for (int y = 1; y + kInner < picture->height() / 2; ++y)
                if (isWhite(picture->row(y - 1)[x]) && !isWhite(picture->row(y)[x])) {
                    ++rims;
                    dark += picture->row(y)[x].g < 0.6f * picture->row(y + kInner)[x].g ? 1 : 0;
                }
        EXPECT_GT(rims, picture->width() / 2);
        EXPECT_LT(dark, rims / 20) << static_cast<int>(type);
    }
}

TEST_F(ComposedPanorama, PlacesAreReportedAsWithoutTheComposer)
{
    const auto stranger = folder / "stranger.tif";
    scenes::writeSphereView(scenes::SphereScene(99), smallView(), stranger);
    request.files = {request.files[2], stranger, request.files[0], request.files[1]};
    const PanoJobResult straight = panoJob(request);
    request.crop = PanoCrop::Auto;
    request.turnDegrees = 3.0;
    const PanoJobResult result = panoJob(request);
    ASSERT_TRUE(result.done()) << result.message;
    ASSERT_EQ(result.places.size(), 4u);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(result.places[i].path, request.files[i]);
        EXPECT_EQ(result.places[i].placed, i != 1);
        EXPECT_EQ(result.places[i].rotation, straight.places[i].rotation) << i;
    }
    EXPECT_NEAR(result.focalLength, straight.focalLength, 0.5);
    EXPECT_THAT(result.warnings, ElementsAre(stranger.string() + ": left out, because it matches no other picture"));
}

TEST_F(ComposedPanorama, ProgressOfAVideoWithoutAnEndMoves)
{
    request.files.clear();
    for (const char* const name : {"pan.mkv", "pan.mp4"}) {
        request.video = scenes::writePan(folder / name, 60);
        std::vector<double> loading;
        const PanoJobResult result = panoJob(request, {[&](const JobProgress& progress) {
                                                           if (progress.step == JobStep::Load)
                                                               loading.push_back(progress.fraction);
                                                       },
                                                       {}});
        ASSERT_TRUE(result.done()) << result.message;
        ASSERT_FALSE(loading.empty());
        EXPECT_GT(loading.back(), 0.25) << name << ": reading takes half of the progress, registering included";
        EXPECT_TRUE(std::is_sorted(loading.begin(), loading.end()));
    }
}

TEST_F(ComposedPanorama, ACancelAtAnyReportLeavesNothing)
{
    request.crop = PanoCrop::Auto;
    request.straighten = true;
    const auto before = filesInFolder();
    for (int last = 1; last <= 6; ++last) {
        const auto flag = std::make_shared<std::atomic<unsigned char>>(static_cast<unsigned char>(0));
        int count = 0;
        const PanoJobResult cancelled = panoJob(request, {[&](const JobProgress&) {
                                                              if (++count == last)
                                                                  *flag = 1;
                                                          },
                                                          flag});
        if (count < last)
            break;
        EXPECT_EQ(cancelled.outcome, JobOutcome::Cancelled) << last;
        EXPECT_EQ(cancelled.message, "cancelled");
        EXPECT_EQ(filesInFolder(), before);
    }
}

TEST_F(ComposedPanorama, TheLargestSizeCountsForWhatIsLeft)
{
    request.crop = PanoCrop::Auto;
    request.maxSize = 150;
    EXPECT_EQ(made(request)->width(), 150);
}

TEST_F(ComposedPanorama, APlanetIsCroppedToItsInsideThoughNothingCoversItsFoot)
{
    request.files.clear();
    scenes::SphereView view = smallView();
    view.focal = 250.0; // 77 degrees wide
    for (int i = 0; i < 9; ++i) {
        view.rotation = scenes::rotationOf(40.0 * i, 0.0, 0.0);
        request.files.push_back(folder / ("turn" + std::to_string(i) + ".tif"));
        scenes::writeSphereView(scenes::SphereScene(), view, request.files.back(),
                                {.noiseSeed = static_cast<std::uint64_t>(i + 1)});
    }
    request.projection = WarpType::Stereographic;
    request.turnDegrees = 1e-9; // the way of the crop
    const auto whole = made(request);
    request.crop = PanoCrop::Auto;
    const auto cropped = made(request);
    // A square in a circle has 0.71 of its diameter; the rim of this one has dents.
    EXPECT_GT(cropped->width(), 0.6 * whole->width());
    EXPECT_GT(cropped->height(), 0.6 * whole->height());
    EXPECT_TRUE(isWhite(cropped->row(cropped->height() / 2)[cropped->width() / 2])) << "the foot";
    EXPECT_FALSE(isWhite(cropped->row(2)[2]) || isWhite(cropped->row(2)[cropped->width() - 3]));
    EXPECT_FALSE(isWhite(cropped->row(cropped->height() - 3)[2]));
}

TEST_F(ComposedPanorama, TheFileIsInTheColoursOfTheStraightWay)
{
    const auto straight = made(request);
    request.turnDegrees = 1e-9;
    const auto composed = made(request);
    ASSERT_NEAR(composed->width(), straight->width(), 6);
    double best = 1.0;
    for (int dy = -5; dy <= 5; ++dy)
        for (int dx = -5; dx <= 5; ++dx) {
            double sum = 0.0;
            int count = 0;
            for (int y = 40; y < straight->height() - 40; y += 3)
                for (int x = 40; x < straight->width() - 40; x += 3, ++count)
                    sum += static_cast<double>(std::abs(straight->row(y)[x].r - composed->row(y + dy)[x + dx].r));
            best = std::min(best, sum / count);
        }
    EXPECT_LT(best, 0.01);
}

TEST_F(ComposedPanorama, TransparentWhereItWouldBeWhite)
{
    PanoJobRequest straight = request;
    straight.straighten = true;
    PanoJobRequest turned = request;
    turned.projection = WarpType::Plane;
    turned.turnDegrees = 5.0;
    for (PanoJobRequest job : {request, straight, turned}) {
        for (const int maxSize : {0, 200}) {
            job.maxSize = maxSize;
            job.transparent = false;
            const auto opaque = made(job);
            job.transparent = true;
            const auto transparent = made(job);
            ASSERT_TRUE(opaque && transparent);
            const auto [none, partly] = uncovered(*opaque, *transparent);
            EXPECT_GT(none, static_cast<int>(opaque->pixelCount() / 100));
            if (maxSize > 0) {
                EXPECT_GT(partly, 50) << "the rim of a reduced panorama";
            }
        }
    }
}

TEST_F(ComposedPanorama, CroppedToTheContentItIsOpaque)
{
    request.crop = PanoCrop::Auto;
    const auto opaque = made(request);
    request.transparent = true;
    const auto transparent = made(request);
    ASSERT_TRUE(opaque && transparent);
    EXPECT_EQ(uncovered(*opaque, *transparent), std::pair(0, 0));
}

TEST_F(ComposedPanorama, NoTransparentJpeg)
{
    request.transparent = true;
    request.output = folder / "out.jpg";
    EXPECT_THAT(failure(request, JobOutcome::Refused), AllOf(HasSubstr("out.jpg"), HasSubstr("transparency")));
}

} // namespace orvo::jobs
