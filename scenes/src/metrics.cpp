#include "oklab.hpp"
#include "windows.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <stdexcept>
#include <string>

namespace orvo::scenes {

namespace {

std::string sizeText(_Size<int> size) { return std::to_string(size.width) + "x" + std::to_string(size.height); }

void checkSame(const char* who, _Size<int> a, _Size<int> b)
{
    if (a != b || a.width < 1 || a.height < 1)
        throw std::invalid_argument(std::string(who) + ": pictures of " + sizeText(a) + " and " + sizeText(b));
}

// Sums rows in order, whatever threads computed them.
double total(const std::vector<double>& rows) { return std::accumulate(rows.begin(), rows.end(), 0.0); }

} // namespace

double psnr(const Picture& a, const Picture& b)
{
    checkSame("psnr", a.size(), b.size());
    std::vector<double> rows(static_cast<std::size_t>(a.height()));
    forEachRow(a.height(), [&](int y) {
        double sum = 0.0;
        for (int x = 0; x < a.width(); ++x) {
            const auto& p = a.row(y)[x];
            const auto& q = b.row(y)[x];
            const double r = p.r - q.r;
            const double g = p.g - q.g;
            const double bl = p.b - q.b;
            sum += r * r + g * g + bl * bl;
        }
        rows[static_cast<std::size_t>(y)] = sum;
    });
    const double error = total(rows) / (3.0 * static_cast<double>(a.pixelCount()));
    return error == 0.0 ? std::numeric_limits<double>::infinity() : -10.0 * std::log10(error);
}

double ssim(const Picture& a, const Picture& b)
{
    checkSame("ssim", a.size(), b.size());
    const int across = a.width() - kWindowSide + 1;
    const int down = a.height() - kWindowSide + 1;
    if (across < 1 || down < 1)
        throw std::invalid_argument("ssim: a picture of " + sizeText(a.size()) + ", each side must be at least 11");
    constexpr float kC1 = 0.01f * 0.01f;
    constexpr float kC2 = 0.03f * 0.03f;
    const auto lumaA = lumaOf(a);
    const auto lumaB = lumaOf(b);
    std::vector<double> rows(static_cast<std::size_t>(down));
    forEachRow(down, [&](int y) {
        const auto count = static_cast<std::size_t>(across);
        WindowRow window(a.width());
        std::vector<float> buffer(5 * count);
        const auto part = [&](std::size_t i) { return std::span(buffer).subspan(i * count, count); };
        window.mean(*lumaA, nullptr, y, part(0));
        window.mean(*lumaB, nullptr, y, part(1));
        window.mean(*lumaA, lumaA.get(), y, part(2));
        window.mean(*lumaB, lumaB.get(), y, part(3));
        window.mean(*lumaA, lumaB.get(), y, part(4));
        double sum = 0.0;
        for (std::size_t x = 0; x < count; ++x) {
            const float meanA = part(0)[x];
            const float meanB = part(1)[x];
            const float varianceA = part(2)[x] - meanA * meanA;
            const float varianceB = part(3)[x] - meanB * meanB;
            const float covariance = part(4)[x] - meanA * meanB;
            sum += (2.0f * meanA * meanB + kC1) * (2.0f * covariance + kC2) /
                   ((meanA * meanA + meanB * meanB + kC1) * (varianceA + varianceB + kC2));
        }
        rows[static_cast<std::size_t>(y)] = sum;
    });
    return total(rows) / (static_cast<double>(across) * down);
}

double cornerError(const Homography& found, const Homography& truth, _Size<int> size)
{
    double worst = 0.0;
    for (const double x : {0.0, size.width - 1.0})
        for (const double y : {0.0, size.height - 1.0}) {
            const auto p = mapPoint(found, {x, y});
            const auto q = mapPoint(truth, {x, y});
            const double away = std::hypot(p.x - q.x, p.y - q.y);
            worst = std::isnan(away) ? std::numeric_limits<double>::infinity() : std::max(worst, away);
        }
    return worst;
}

double wrongShare(const Picture& found, const Picture& truth, const _ImageData<float>& mask, float tolerance)
{
    checkSame("wrongShare", found.size(), truth.size());
    checkSame("wrongShare", found.size(), mask.size());
    std::size_t counted = 0;
    std::size_t wrong = 0;
    for (std::size_t i = 0; i < found.pixelCount(); ++i) {
        if (!(mask.data()[i] > 0.5f))
            continue;
        const auto& p = found.data()[i];
        const auto& q = truth.data()[i];
        const auto right = [&](float a, float b) { return std::abs(a - b) <= tolerance; }; // false for NaN
        ++counted;
        wrong += right(p.r, q.r) && right(p.g, q.g) && right(p.b, q.b) ? 0 : 1;
    }
    return counted == 0 ? 0.0 : static_cast<double>(wrong) / static_cast<double>(counted);
}

double hueError(const Picture& found, const Picture& truth, double leastChroma)
{
    checkSame("hueError", found.size(), truth.size());
    std::vector<double> rows(static_cast<std::size_t>(found.height()));
    forEachRow(found.height(), [&](int y) {
        double worst = 0.0;
        for (int x = 0; x < found.width(); ++x) {
            const Oklab a = oklabOf(found.row(y)[x]);
            const Oklab b = oklabOf(truth.row(y)[x]);
            if (std::hypot(a.a, a.b) < leastChroma || std::hypot(b.a, b.b) < leastChroma)
                continue;
            // The angle between the two, without a jump at half a turn.
            const double turn = std::atan2(a.a * b.b - a.b * b.a, a.a * b.a + a.b * b.b);
            worst = std::max(worst, std::abs(turn) * 180.0 / std::numbers::pi);
        }
        rows[static_cast<std::size_t>(y)] = worst;
    });
    return *std::max_element(rows.begin(), rows.end());
}

std::shared_ptr<_ImageData<float>> chromaOf(const Picture& picture)
{
    auto chroma = std::make_shared<_ImageData<float>>(picture.size(), nullptr);
    forEachRow(picture.height(), [&](int y) {
        for (int x = 0; x < picture.width(); ++x) {
            const Oklab colour = oklabOf(picture.row(y)[x]);
            chroma->row(y)[x] = static_cast<float>(std::hypot(colour.a, colour.b));
        }
    });
    return chroma;
}

} // namespace orvo::scenes
