#include "faces/face_restoration.hpp"

#include <orvo_core/parallel.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

namespace orvo {
namespace {

constexpr double kMadOfUnitNoise = 0.6745; // median of |n| for Gaussian n of deviation 1

// The blur of an edge shows in the ratio of its slopes at two blurs, in px at the finest scale. The first one keeps
// noise from looking like edges.
constexpr double kFirstBlur = 0.7;
constexpr double kSecondBlur = 1.5;
constexpr double kDifferenceVariance = 1.0 / 3; // px^2: a central difference is a slope averaged over 2 px
constexpr double kLargestScale = 4.0;           // times the blurs above, for blurs of up to 10 px
constexpr double kScaleReach = 2.5;             // a wider blur, in units of the scale, is measured at the next scale
constexpr double kEdgeOverNoise = 5.0;
constexpr double kWeakestEdge = 0.3; // of the slope of the steepest hundredth; weaker ones are shading
constexpr double kSharpest = 0.25;   // quantile: soft shadows and hair make many edges look wider than the blur
constexpr std::size_t kFewestEdges = 24;

// Splitting of the sparse deconvolution (Wang et al., SIAM J. Imaging Sciences 1(3), 2008; Krishnan and Fergus, NIPS
// 2009): slopes are tied to the picture's loosely at first, then more tightly.
constexpr double kFirstCoupling = 1.0;
constexpr double kLastCoupling = 256.0;
constexpr double kCouplingStep = 2.0 * std::numbers::sqrt2;
constexpr double kFidelity = 0.2;       // times 1 / noise^2: Krishnan and Fergus's 2000 for noise of 1 percent
constexpr double kLeastNoise = 0.002;   // half a step of 8 bits: below that, rounding is the noise
constexpr double kCoring = 1.0;         // times the noise: smaller changes are mostly noise
constexpr float kTiny = 1e-12f;         // avoids 0 / 0
constexpr double kOvershoot = 0.12;     // of the contrast of the surroundings,
constexpr float kMostOvershoot = 0.02f; // and of full scale

double medianOf(std::vector<float, ManagedAllocator<float>>& values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return static_cast<double>(*middle);
}

double diagonalNoise(const cv::Mat& plane)
{
    std::vector<float, ManagedAllocator<float>> details;
    details.reserve(plane.total() / 4 + 1);
    for (int y = 0; y + 1 < plane.rows; y += 2) {
        const float* const a = plane.ptr<float>(y);
        const float* const b = plane.ptr<float>(y + 1);
        for (int x = 0; x + 1 < plane.cols; x += 2)
            details.push_back(0.5f * std::abs(a[x] - a[x + 1] - b[x] + b[x + 1]));
    }
    return details.empty() ? 0.0 : medianOf(details) / kMadOfUnitNoise;
}

// Slopes of a plane, by central differences, away from its border.
class Slopes
{
public:
    explicit Slopes(const FacePlane& samples) : plane(samples) {}

    [[nodiscard]] float across(int y, int x) const { return 0.5f * (plane.row(y)[x + 1] - plane.row(y)[x - 1]); }
    [[nodiscard]] float down(int y, int x) const { return 0.5f * (plane.row(y + 1)[x] - plane.row(y - 1)[x]); }
    [[nodiscard]] float size(int y, int x) const
    {
        const float h = across(y, x), v = down(y, x);
        return std::sqrt(h * h + v * v);
    }

    // Steeper than both neighbours across the edge.
    [[nodiscard]] bool isCrest(int y, int x) const
    {
        constexpr float kTan22 = 0.4142f; // directions are rounded to eighths of a turn
        const float h = across(y, x), v = down(y, x);
        const bool level = std::abs(v) < kTan22 * std::abs(h);
        const bool upright = std::abs(h) < kTan22 * std::abs(v);
        const int stepX = upright ? 0 : 1;
        const int stepY = level ? 0 : (upright || (h > 0.0f) == (v > 0.0f) ? 1 : -1);
        const float here = size(y, x);
        return here >= size(y + stepY, x + stepX) && here > size(y - stepY, x - stepX);
    }

private:
    const FacePlane& plane;
};

double blurAtScale(const cv::Mat& luminance, double noise, double scale)
{
    const int width = luminance.cols, height = luminance.rows;
    if (width < 5 || height < 5)
        return 0.0; // a crest needs two pixels around it
    const FacePlane once(luminance.size()), twice(luminance.size());
    cv::GaussianBlur(luminance, once.mat(), {}, kFirstBlur * scale, 0.0, cv::BORDER_REFLECT);
    cv::GaussianBlur(luminance, twice.mat(), {}, kSecondBlur * scale, 0.0, cv::BORDER_REFLECT);
    const Slopes first(once), second(twice);
    std::vector<float, ManagedAllocator<float>> steepness; // of every fourth pixel, which is enough for the quantile
    for (int y = 2; y + 2 < height; y += 2)
        for (int x = 2; x + 2 < width; x += 2)
            steepness.push_back(first.size(y, x));
    const auto top = steepness.begin() + static_cast<std::ptrdiff_t>(steepness.size() - steepness.size() / 100 - 1);
    std::nth_element(steepness.begin(), top, steepness.end());
    const double a2 = kFirstBlur * kFirstBlur * scale * scale + kDifferenceVariance;
    const double b2 = kSecondBlur * kSecondBlur * scale * scale + kDifferenceVariance;
    // The slope of white noise after a Gaussian of variance a2 deviates by noise / sqrt(8 pi) / a2.
    const double noiseSlope = noise / (std::sqrt(8.0 * std::numbers::pi) * a2);
    const double least = std::max(kEdgeOverNoise * noiseSlope, kWeakestEdge * static_cast<double>(*top));
    std::vector<float> sigmas;
    for (int y = 2; y + 2 < height; ++y)
        for (int x = 2; x + 2 < width; ++x) {
            const double s = static_cast<double>(first.size(y, x));
            if (s <= least || !first.isCrest(y, x))
                continue;
            const double ratio = s / std::max(static_cast<double>(second.size(y, x)), 1e-9);
            const double r2 = ratio * ratio;
            if (r2 <= 1.0)
                continue; // too soft to measure
            sigmas.push_back(static_cast<float>(std::sqrt(std::max((b2 - r2 * a2) / (r2 - 1.0), 0.0))));
        }
    if (sigmas.size() < kFewestEdges)
        return 0.0;
    const auto sharp = sigmas.begin() + static_cast<std::ptrdiff_t>(kSharpest * static_cast<double>(sigmas.size()));
    std::nth_element(sigmas.begin(), sharp, sigmas.end());
    return static_cast<double>(*sharp);
}

// The frequency response of the operators on a plane with mirrored borders, one factor per row and column.
struct Spectrum
{
    Spectrum(int count, double sigma)
        : blur(static_cast<std::size_t>(count)), laplacian(static_cast<std::size_t>(count))
    {
        for (std::size_t k = 0; k < blur.size(); ++k) {
            const double omega = std::numbers::pi * static_cast<double>(k) / count;
            blur[k] = std::exp(-0.5 * sigma * sigma * omega * omega);
            laplacian[k] = 2.0 - 2.0 * std::cos(omega);
        }
    }

    std::vector<double> blur, laplacian;
};

// The negative divergence of the slopes of `x` shrunk by `threshold`: the prior's estimate of the Laplacian of the
// picture. Written row by row from `x`; a slope shared by two rows is computed for both.
void sparseLaplacian(const FacePlane& x, const FacePlane& out, float threshold)
{
    const int width = x.size().width, height = x.size().height;
    // Isotropic shrinkage keeps the direction of a slope.
    const auto shrunk = [&](int row, int column, bool vertical) {
        const float h = column + 1 < width ? x.row(row)[column + 1] - x.row(row)[column] : 0.0f;
        const float v = row + 1 < height ? x.row(row + 1)[column] - x.row(row)[column] : 0.0f;
        const float size = std::sqrt(h * h + v * v);
        return size > threshold ? (vertical ? v : h) * (1.0f - threshold / size) : 0.0f;
    };
    forEachRow(height, [&](int row) {
        float* const to = out.row(row);
        float left = 0.0f;
        for (int column = 0; column < width; ++column) {
            const float h = shrunk(row, column, false);
            const float v = shrunk(row, column, true);
            const float above = row > 0 ? shrunk(row - 1, column, true) : 0.0f;
            to[column] = left - h + above - v;
            left = h;
        }
    });
}

// The sharp picture, as cosine coefficients in `spectrum`. `estimate` starts as the blurred picture.
bool deconvolve(const FacePlane& estimate, const FacePlane& spectrum, double sigma, double noise, const RunControl& run)
{
    const cv::Size size = estimate.size();
    const Spectrum across(size.width, sigma), down(size.height, sigma);
    const FacePlane observed(size);
    cv::Mat(spectrum.mat()).setTo(0.0f);
    cv::dct(estimate.mat(), observed.mat());
    const double limited = std::max(noise, kLeastNoise);
    const double fidelity = kFidelity / (limited * limited);
    for (double coupling = kFirstCoupling; coupling < kLastCoupling; coupling *= kCouplingStep) {
        if (run.cancelled())
            return false;
        sparseLaplacian(estimate, spectrum, static_cast<float>(1.0 / coupling));
        cv::dct(spectrum.mat(), spectrum.mat());
        forEachRow(size.height, [&](int y) {
            const float* const from = observed.row(y);
            float* const to = spectrum.row(y);
            const double blurY = down.blur[static_cast<std::size_t>(y)];
            const double laplacianY = down.laplacian[static_cast<std::size_t>(y)];
            for (int x = 0; x < size.width; ++x) {
                const double blur = blurY * across.blur[static_cast<std::size_t>(x)];
                const double laplacian = laplacianY + across.laplacian[static_cast<std::size_t>(x)];
                to[x] = static_cast<float>(
                    (coupling * static_cast<double>(to[x]) + fidelity * blur * static_cast<double>(from[x])) /
                    (coupling * laplacian + fidelity * blur * blur));
            }
        });
        if (coupling * kCouplingStep < kLastCoupling)
            cv::idct(spectrum.mat(), estimate.mat());
    }
    return true;
}

} // namespace

FacePlane::FacePlane(cv::Size size)
    : samples(static_cast<std::size_t>(size.area())), header(size.height, size.width, CV_32F, samples.data())
{}

cv::Size transformSize(cv::Size size)
{
    const auto quick = [](int n) { return 2 * cv::getOptimalDFTSize((n + 1) / 2); };
    return {quick(size.width), quick(size.height)};
}

double measuredNoise(const cv::Mat& luminance)
{
    cv::Mat half;
    if (luminance.cols >= 4 && luminance.rows >= 4)
        cv::resize(luminance, half, {luminance.cols / 2, luminance.rows / 2}, 0.0, 0.0, cv::INTER_AREA);
    return std::max(diagonalNoise(luminance), diagonalNoise(half));
}

double measuredBlur(const cv::Mat& luminance, double noise)
{
    double sigma = 0.0;
    for (double scale = 1.0; scale <= kLargestScale; scale *= 2.0) {
        sigma = blurAtScale(luminance, noise, scale);
        if (sigma < kScaleReach * scale)
            break;
    }
    return sigma;
}

bool lostDetail(const FacePlane& luminance, const FacePlane& contrast, double sigma, double noise,
                const RunControl& run)
{
    const cv::Size size = luminance.size();
    const FacePlane spectrum(size);
    {
        const FacePlane estimate(size);
        luminance.mat().copyTo(estimate.mat());
        if (!deconvolve(estimate, spectrum, sigma, noise, run))
            return false;
    }
    // Adds to the picture what the blur removes from the estimate, instead of replacing the picture by the estimate:
    // grain, which the estimate lacks, then stays unchanged.
    const Spectrum across(size.width, sigma), down(size.height, sigma);
    forEachRow(size.height, [&](int y) {
        float* const row = spectrum.row(y);
        for (int x = 0; x < size.width; ++x)
            row[x] *= static_cast<float>(1.0 - down.blur[static_cast<std::size_t>(y)] *
                                                   across.blur[static_cast<std::size_t>(x)]);
    });
    cv::idct(spectrum.mat(), spectrum.mat());

    const float coring = static_cast<float>(kCoring * kCoring * noise * noise);
    const int reach = static_cast<int>(std::ceil(2.0 * sigma));
    const cv::Mat window = cv::Mat::ones(2 * reach + 1, 2 * reach + 1, CV_8U);
    const FacePlane least(size);
    cv::erode(luminance.mat(), least.mat(), window);
    cv::dilate(luminance.mat(), contrast.mat(), window);
    forEachRow(size.height, [&](int y) {
        const float* const low = least.row(y);
        const float* const change = spectrum.row(y);
        float* const high = contrast.row(y);
        float* const to = luminance.row(y);
        for (int x = 0; x < size.width; ++x) {
            const float range = high[x] - low[x];
            const float margin = std::min(static_cast<float>(kOvershoot) * range, kMostOvershoot);
            const float cored = change[x] * change[x] * change[x] / (change[x] * change[x] + coring + kTiny);
            to[x] = std::clamp(to[x] + cored, low[x] - margin, high[x] + margin) - to[x];
            high[x] = range;
        }
    });
    return true;
}

} // namespace orvo
