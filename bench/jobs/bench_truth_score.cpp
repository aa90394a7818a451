// Scores pictures against the truth that they should show: bench_truth_score TRUTH INPUTS PICTURES...
// Prints for each PSNR in dB, sharpness as a share of that of INPUTS in percent, and noise in percent of full scale,
// separated by tabs. INPUTS has the size of the truth. A picture may be a part of the truth; the best position for it
// is found. All are compared where the smallest common part of them lies, so that they are scored on the same pixels.
#include "bench_pictures.hpp"

#include <scenes/metrics.hpp>
#include <scenes/sharpness.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <stdexcept>
#include <vector>

namespace {

using namespace orvo;
using bench::Picture;

// Pixels that are not scored at the edges of the common part: interpolation and pyramids differ there.
constexpr int kEdge = 16;

// Truth this plain over a window shows nothing but noise: a tenth of an 8-bit step for each pixel.
constexpr int kPlainWindow = 9;
constexpr float kPlain = static_cast<float>(kPlainWindow * kPlainWindow) * 0.1f / 255.0f;

double squaredDistance(const Picture& truth, const Picture& picture, _Point<int> place, int step)
{
    double sum = 0.0;
    for (int y = kEdge; y < picture.height() - kEdge; y += step)
        for (int x = kEdge; x < picture.width() - kEdge; x += step) {
            const double d = static_cast<double>(truth.row(place.y + y)[place.x + x].g - picture.row(y)[x].g);
            sum += d * d;
        }
    return sum;
}

// The position in the truth of a part of it.
_Point<int> placeOf(const Picture& truth, const Picture& picture)
{
    if (picture.width() > truth.width() || picture.height() > truth.height())
        throw std::runtime_error("a picture is larger than the truth");
    constexpr int kStep = 7; // of the pixels compared: the crop is known to within pixels from so few
    _Point<int> best{0, 0};
    double least = std::numeric_limits<double>::infinity();
    for (int y = 0; y <= truth.height() - picture.height(); ++y)
        for (int x = 0; x <= truth.width() - picture.width(); ++x) {
            const double distance = squaredDistance(truth, picture, {x, y}, kStep);
            if (distance < least) {
                least = distance;
                best = {x, y};
            }
        }
    return best;
}

// Standard deviation over the plain parts, of the mean of all channels' variances.
double noisePercent(const Picture& truth, const Picture& picture)
{
    const auto measure = scenes::sumModifiedLaplacian(truth, 1, kPlainWindow);
    double sum = 0.0;
    double squares = 0.0;
    std::size_t count = 0;
    for (std::size_t i = 0; i < truth.pixelCount(); ++i) {
        if (measure->data()[i] > kPlain)
            continue;
        const auto& t = truth.data()[i];
        const auto& p = picture.data()[i];
        for (const float d : {p.r - t.r, p.g - t.g, p.b - t.b}) {
            sum += static_cast<double>(d);
            squares += static_cast<double>(d) * static_cast<double>(d);
            ++count;
        }
    }
    const double n = static_cast<double>(count);
    return count == 0 ? 0.0 : 100.0 * std::sqrt(std::max(squares / n - (sum / n) * (sum / n), 0.0));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4) {
        std::fputs("usage: bench_truth_score TRUTH INPUTS PICTURES...\n", stderr);
        return 2;
    }
    try {
        const auto truth = bench::loadInSRGB(argv[1]);
        const auto inputs = bench::loadInSRGB(argv[2]);
        std::vector<std::shared_ptr<Picture>> pictures;
        std::vector<_Point<int>> places;
        int left = 0, top = 0, right = truth->width(), bottom = truth->height();
        for (int i = 3; i < argc; ++i) {
            const auto picture = bench::loadInSRGB(argv[i]);
            const _Point<int> place = placeOf(*truth, *picture);
            left = std::max(left, place.x);
            top = std::max(top, place.y);
            right = std::min(right, place.x + picture->width());
            bottom = std::min(bottom, place.y + picture->height());
            pictures.push_back(picture);
            places.push_back(place);
        }
        const _Rect<int> common(left + kEdge, top + kEdge, right - left - 2 * kEdge, bottom - top - 2 * kEdge);
        const auto expected = truth->copy(common);
        const auto sharpest = inputs->copy(common);
        for (std::size_t i = 0; i < pictures.size(); ++i) {
            const auto part =
                pictures[i]->copy({common.x - places[i].x, common.y - places[i].y, common.width, common.height});
            std::printf("%.2f\t%.1f\t%.3f\n", scenes::psnr(*part, *expected),
                        100.0 * scenes::sharpnessRatio(*part, {sharpest}, {}), noisePercent(*expected, *part));
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_truth_score: %s\n", error.what());
        return 1;
    }
}
