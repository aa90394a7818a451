#include <orvo_core/parallel.hpp>
#include <scenes/camera.hpp>
#include <scenes/metrics.hpp>

#include <gmock/gmock.h>

#include <cmath>
#include <cstring>

namespace orvo::scenes {
namespace {

const RadianceScene& room()
{
    static const RadianceScene scene({.size = {360, 240}});
    return scene;
}

CameraSettings cameraOf(ResponseCurve curve, bool noisy = false)
{
    CameraSettings camera;
    camera.response = curve;
    if (noisy)
        camera.noise = SensorNoise{};
    return camera;
}

TEST(Camera, OneStopDoublesLightThatDoesNotClip)
{
    Shot shot;
    const auto single = takePicture(room(), cameraOf(ResponseCurve::Linear), shot);
    shot.exposure = exposedBy(shot.exposure, 1.0);
    const auto twice = takePicture(room(), cameraOf(ResponseCurve::Linear), shot);
    std::size_t compared = 0;
    for (std::size_t i = 0; i < single->pixelCount(); ++i) {
        const float g = single->data()[i].g;
        if (g < 0.499f) {
            ASSERT_NEAR(twice->data()[i].g, 2.0f * g, 1e-6f * g + 1e-9f);
            ++compared;
        } else if (g > 0.501f) {
            ASSERT_EQ(twice->data()[i].g, 1.0f);
        }
    }
    EXPECT_GT(compared, single->pixelCount() / 2);
}

TEST(Camera, ExposureValueCountsTimeApertureAndIso)
{
    EXPECT_NEAR(exposureValue({}), 0.0, 1e-12);
    EXPECT_NEAR(exposureValue({1.0 / 15.0, 8.0, 100.0}), 2.0, 1e-12);
    EXPECT_NEAR(exposureValue({1.0 / 60.0, 16.0, 100.0}), -2.0, 1e-12);
    EXPECT_NEAR(exposureValue({1.0 / 60.0, 8.0, 800.0}), 3.0, 1e-12);
    EXPECT_NEAR(exposureValue(exposedBy({}, -2.7)), -2.7, 1e-12);
    EXPECT_THROW((void)exposureValue({0.0, 8.0, 100.0}), std::invalid_argument);
}

TEST(Camera, ResponseCurvesIncreaseAndHaveAnInverse)
{
    for (const auto curve : {ResponseCurve::Linear, ResponseCurve::Srgb, ResponseCurve::Filmic}) {
        EXPECT_EQ(encoded(curve, 0.0f), 0.0f);
        EXPECT_NEAR(encoded(curve, 1.0f), 1.0f, 1e-6f);
        EXPECT_EQ(encoded(curve, -3.0f), 0.0f);
        float last = -1.0f;
        for (int i = 0; i <= 4000; ++i) {
            const float light = static_cast<float>(i) / 4000.0f;
            const float value = encoded(curve, light);
            ASSERT_GT(value, last) << i;
            ASSERT_NEAR(decoded(curve, value), light, 2e-6f) << i;
            last = value;
        }
    }
    EXPECT_NEAR(encoded(ResponseCurve::Srgb, 0.18f), srgbCurveFromLinear(0.18f), 1e-6f);
}

// The tables that make pictures fast agree with their curves.
TEST(Camera, PictureFollowsItsCurve)
{
    const Shot shot;
    const auto linear = takePicture(room(), cameraOf(ResponseCurve::Linear), shot);
    for (const auto curve : {ResponseCurve::Srgb, ResponseCurve::Filmic}) {
        const auto picture = takePicture(room(), cameraOf(curve), shot);
        for (std::size_t i = 0; i < picture->pixelCount(); ++i)
            ASSERT_NEAR(picture->data()[i].g, encoded(curve, linear->data()[i].g), 1e-5f);
        EXPECT_EQ(*picture->colorProfile(), *ColorProfileType::sRGB());
    }
    EXPECT_EQ(*linear->colorProfile(), *ColorProfileType::linearSRGB());
}

// Noise, divided by its nominal value, has the deviation 1 at every brightness and sensitivity.
TEST(Camera, NoiseHasItsNominalStrength)
{
    for (const double iso : {100.0, 1600.0}) {
        Shot shot;
        shot.exposure.isoSpeed = iso;
        shot.exposure.shutterSeconds *= 100.0 / iso * 2.0;
        const auto clean = takePicture(room(), cameraOf(ResponseCurve::Linear), shot);
        const auto noisy = takePicture(room(), cameraOf(ResponseCurve::Linear, true), shot);
        const SensorNoise sensor;
        const double perElectron = iso / 100.0 / sensor.fullWellElectrons;
        for (const double from : {0.02, 0.2, 0.4}) {
            double sum = 0.0;
            double squares = 0.0;
            int count = 0;
            for (std::size_t i = 0; i < clean->pixelCount(); ++i) {
                const double light = clean->data()[i].r;
                if (light < from || light > 2.0 * from) // far enough from both ends not to clip
                    continue;
                const double electrons = light / perElectron;
                const double expected =
                    perElectron * std::sqrt(electrons + sensor.readNoiseElectrons * sensor.readNoiseElectrons);
                const double normal = (noisy->data()[i].r - light) / expected;
                sum += normal;
                squares += normal * normal;
                ++count;
            }
            ASSERT_GT(count, 2000);
            EXPECT_NEAR(sum / count, 0.0, 4.0 / std::sqrt(count)) << iso << " " << from;
            EXPECT_NEAR(squares / count, 1.0, 6.0 / std::sqrt(count)) << iso << " " << from;
        }
    }
}

TEST(Camera, NoiseDependsOnTheSeedAlone)
{
    const auto camera = cameraOf(ResponseCurve::Srgb, true);
    Shot shot;
    shot.view = {0.7, 3.2, -1.4, 1.01, 0.002, -0.001};
    shot.subject = SubjectPlacement{150, 220, 140, 0.9};
    const auto take = [&](int threads) {
        const WorkerLimit limit(threads);
        return takePicture(room(), camera, shot);
    };
    const auto one = take(1);
    const auto two = take(2);
    EXPECT_EQ(std::memcmp(one->data(), two->data(), one->pixelCount() * sizeof(PixelRGB<float>)), 0);
    shot.noiseSeed = 2;
    const auto other = take(2);
    EXPECT_NE(std::memcmp(one->data(), other->data(), one->pixelCount() * sizeof(PixelRGB<float>)), 0);
}

TEST(Camera, EveryPixelSeesThePointThatItsHomographyNames)
{
    Shot shot;
    shot.view = {1.5, 4.25, -2.5, 1.02, 0.004, -0.003};
    const auto light = seenRadiance(room(), shot);
    const Homography map = sceneFromFrame(shot.view, room().size());
    for (int y = 0; y < light->height(); y += 7)
        for (int x = 0; x < light->width(); x += 5) {
            const auto at = mapPoint(map, {static_cast<double>(x), static_cast<double>(y)});
            const auto there = room().radiance(at.x, at.y);
            ASSERT_NEAR(light->row(y)[x].g, there.g, 1e-5f * there.g);
        }
}

// Finds a shift by trying all, without using the homography: confirms its sign.
TEST(Camera, KnownShiftIsFoundByTryingAll)
{
    Shot shot;
    const auto still = takePicture(room(), cameraOf(ResponseCurve::Srgb), shot);
    shot.view.shiftX = 5.0;
    shot.view.shiftY = -3.0;
    const auto moved = takePicture(room(), cameraOf(ResponseCurve::Srgb), shot);
    double best = 1e30;
    _Point<int> found;
    for (int dy = -8; dy <= 8; ++dy)
        for (int dx = -8; dx <= 8; ++dx) {
            double sum = 0.0;
            for (int y = 10; y < 230; y += 3)
                for (int x = 10; x < 350; x += 3)
                    sum += std::abs(moved->row(y)[x].g - still->row(y + dy)[x + dx].g);
            if (sum < best) {
                best = sum;
                found = {dx, dy};
            }
        }
    EXPECT_EQ(found, (_Point<int>(5, -3)));
    EXPECT_NEAR(best, 0.0, 1e-3);
}

TEST(Camera, RotationAndZoomKeepTheMiddle)
{
    const _Size<int> size(101, 51);
    const Homography turned = sceneFromFrame({.rotationDegrees = 90.0}, size);
    const auto middle = mapPoint(turned, {50, 25});
    EXPECT_NEAR(middle.x, 50, 1e-9);
    EXPECT_NEAR(middle.y, 25, 1e-9);
    const auto right = mapPoint(turned, {60, 25}); // clockwise: right in the frame is down in the scene
    EXPECT_NEAR(right.x, 50, 1e-9);
    EXPECT_NEAR(right.y, 35, 1e-9);
    const auto closer = mapPoint(sceneFromFrame({.zoom = 2.0}, size), {60, 25});
    EXPECT_NEAR(closer.x, 55, 1e-9);
}

TEST(Camera, HandShakeStaysWithinItsAmplitude)
{
    const CameraView most{0.8, 12, 9, 1.01, 0.002, 0.003};
    const auto views = handShake(40, 20, most, 3);
    ASSERT_EQ(views.size(), 40u);
    EXPECT_EQ(sceneFromFrame(views[20], {300, 200}), sceneFromFrame({}, {300, 200}));
    double largest = 0.0;
    for (const auto& view : views) {
        EXPECT_LE(std::abs(view.rotationDegrees), 0.8);
        EXPECT_LE(std::abs(view.shiftX), 12);
        EXPECT_LE(std::abs(view.zoom - 1.0), 0.01 + 1e-12);
        largest = std::max(largest, std::abs(view.shiftY));
    }
    EXPECT_GT(largest, 6.0);
    EXPECT_EQ(handShake(40, 20, most, 3)[7].shiftX, views[7].shiftX);
    EXPECT_NE(handShake(40, 20, most, 4)[7].shiftX, views[7].shiftX);
}

TEST(Subject, MaskIsExactlyWhereThePictureChanges)
{
    Shot shot;
    shot.view = {0.5, 1.3, 2.2, 1.0, 0, 0};
    const auto without = seenRadiance(room(), shot);
    shot.subject = SubjectPlacement{190, 225, 150, 1.2};
    const auto with = seenRadiance(room(), shot);
    const auto mask = subjectMask(room(), shot);
    std::size_t covered = 0;
    std::size_t changed = 0;
    for (std::size_t i = 0; i < mask->pixelCount(); ++i) {
        const bool differs = with->data()[i] != without->data()[i];
        if (mask->data()[i] == 0.0f) {
            ASSERT_FALSE(differs) << i;
        }
        if (mask->data()[i] > 0.5f) {
            ++covered;
            changed += differs ? 1 : 0;
        }
    }
    EXPECT_GT(covered, 2000u);
    EXPECT_EQ(changed, covered);
}

TEST(Subject, StaysWithinItsBounds)
{
    for (double stride = 0.0; stride < 6.3; stride += 0.35) {
        const SubjectPlacement placement{200, 180, 150, stride};
        const auto bounds = subjectBounds(placement);
        float onRim = 0.0f;
        for (double t = 0.0; t <= 1.0; t += 0.002) {
            for (const double edge : {0.0, 1.0}) {
                onRim +=
                    sampleSubject(placement, bounds.x + edge * bounds.width, bounds.y + t * bounds.height).coverage;
                onRim +=
                    sampleSubject(placement, bounds.x + t * bounds.width, bounds.y + edge * bounds.height).coverage;
            }
        }
        EXPECT_EQ(onRim, 0.0f) << stride;
    }
}

} // namespace
} // namespace orvo::scenes
