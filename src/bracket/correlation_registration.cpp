#include "bracket/correlation_registration.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <opencv2/imgproc.hpp>

#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

namespace orvo {
namespace {

// Pixels on a side of the window that takes the noise out of both pictures before gradients are computed.
constexpr int kSmoothing = 5;

// The unknowns are the first eight numbers of the homography by columns; the ninth stays 1.
constexpr int kUnknowns = 8;

cv::Mat smoothed(const cv::Mat& gray)
{
    cv::Mat plane;
    gray.convertTo(plane, CV_32F);
    cv::GaussianBlur(plane, plane, cv::Size(kSmoothing, kSmoothing), 0);
    return plane;
}

// A frame and its gradients, as the reference sees them.
struct Warped
{
    cv::Mat values;
    cv::Mat gradientX;
    cv::Mat gradientY;
    cv::Mat inside; // 1 where the frame shows something, else 0
};

class Frame
{
public:
    explicit Frame(const cv::Mat& gray) : values(smoothed(gray)), inside(cv::Mat::ones(gray.size(), CV_8U))
    {
        const cv::Matx13f difference(-0.5f, 0.0f, 0.5f);
        cv::filter2D(values, gradientX, -1, difference);
        cv::filter2D(values, gradientY, -1, difference.t());
    }

    void warp(const cv::Mat& frameFromReference, cv::Size size, Warped& target) const
    {
        const auto one = [&](const cv::Mat& from, cv::Mat& to, int interpolation) {
            cv::warpPerspective(from, to, frameFromReference, size, interpolation + cv::WARP_INVERSE_MAP);
        };
        one(values, target.values, cv::INTER_LINEAR);
        one(gradientX, target.gradientX, cv::INTER_LINEAR);
        one(gradientY, target.gradientY, cv::INTER_LINEAR);
        one(inside, target.inside, cv::INTER_NEAREST);
    }

private:
    cv::Mat values;
    cv::Mat gradientX;
    cv::Mat gradientY;
    cv::Mat inside;
};

// Row `y` of the derivatives of the warped picture by each unknown.
ORVO_VECTOR_CLONES void deriveRow(const float* __restrict gradientX, const float* __restrict gradientY, const float* h,
                                  int row, int width, float* __restrict derivatives)
{
    const auto y = static_cast<float>(row);
    float* const d = derivatives;
    for (int x = 0; x < width; ++x) {
        const auto column = static_cast<float>(x);
        const float scale = column * h[6] + y * h[7] + 1.0f;
        const float left = -column * h[0] - y * h[1] - h[2];
        const float up = -column * h[3] - y * h[4] - h[5];
        const float gx = gradientX[x] / scale;
        const float gy = gradientY[x] / scale;
        const float tilt = left / scale * gx + up / scale * gy;
        d[x] = gx * column;
        d[x + width] = gy * column;
        d[x + 2 * width] = tilt * column;
        d[x + 3 * width] = gx * y;
        d[x + 4 * width] = gy * y;
        d[x + 5 * width] = tilt * y;
        d[x + 6 * width] = gx;
        d[x + 7 * width] = gy;
    }
}

// Products of the derivatives with each other and with the pictures, of a row or summed up.
struct Sums
{
    std::array<double, kUnknowns * kUnknowns> squares{}; // the upper triangle
    std::array<double, kUnknowns> withFrame{};
    std::array<double, kUnknowns> withReference{};
    double correlation = 0.0;

    void add(const Sums& row)
    {
        for (std::size_t i = 0; i < squares.size(); ++i)
            squares[i] += row.squares[i];
        for (std::size_t i = 0; i < withFrame.size(); ++i) {
            withFrame[i] += row.withFrame[i];
            withReference[i] += row.withReference[i];
        }
        correlation += row.correlation;
    }
};

// Calls `body(y, derivatives)` for every row, on any thread; `derivatives` has a row for each unknown.
template <typename Body>
void forEachDerivedRow(const Warped& warped, const cv::Mat& frameFromReference, const Body& body)
{
    const auto* const map = frameFromReference.ptr<float>();
    const int width = warped.values.cols;
    parallelFor(tbb::blocked_range<int>(0, warped.values.rows), [&](const tbb::blocked_range<int>& rows) {
        cv::Mat derivatives(kUnknowns, width, CV_32F);
        for (int y = rows.begin(); y != rows.end(); ++y) {
            deriveRow(warped.gradientX.ptr<float>(y), warped.gradientY.ptr<float>(y), map, y, width,
                      derivatives.ptr<float>());
            body(y, derivatives);
        }
    });
}

// Both pictures have a mean of 0.
Sums sumsOf(const Warped& warped, const cv::Mat& reference, const cv::Mat& frameFromReference)
{
    std::vector<Sums> rows(static_cast<std::size_t>(reference.rows));
    forEachDerivedRow(warped, frameFromReference, [&](int y, const cv::Mat& derivatives) {
        Sums& sums = rows[static_cast<std::size_t>(y)];
        const cv::Mat ofFrame = warped.values.row(y);
        const cv::Mat ofReference = reference.row(y);
        for (int i = 0; i < kUnknowns; ++i) {
            const cv::Mat by = derivatives.row(i);
            const auto at = static_cast<std::size_t>(i);
            sums.squares[at * kUnknowns + at] = cv::norm(by, cv::NORM_L2SQR);
            for (int j = i + 1; j < kUnknowns; ++j)
                sums.squares[at * kUnknowns + static_cast<std::size_t>(j)] = by.dot(derivatives.row(j));
            sums.withFrame[at] = ofFrame.dot(by);
            sums.withReference[at] = ofReference.dot(by);
        }
        sums.correlation = ofReference.dot(ofFrame);
    });
    Sums sum;
    for (const Sums& row : rows)
        sum.add(row);
    return sum;
}

cv::Mat columnOf(const std::array<double, kUnknowns>& values)
{
    cv::Mat column(kUnknowns, 1, CV_32F);
    for (int i = 0; i < kUnknowns; ++i)
        column.at<float>(i) = static_cast<float>(values[static_cast<std::size_t>(i)]);
    return column;
}

// The derivatives times what is left of the reference, scaled by `gain`, without the frame.
cv::Mat projectedError(const Warped& warped, const cv::Mat& reference, double gain, const cv::Mat& frameFromReference)
{
    cv::Mat error;
    cv::addWeighted(reference, gain, warped.values, -1.0, 0.0, error);
    std::vector<std::array<double, kUnknowns>> rows(static_cast<std::size_t>(reference.rows));
    forEachDerivedRow(warped, frameFromReference, [&](int y, const cv::Mat& derivatives) {
        for (int i = 0; i < kUnknowns; ++i)
            rows[static_cast<std::size_t>(y)][static_cast<std::size_t>(i)] = error.row(y).dot(derivatives.row(i));
    });
    std::array<double, kUnknowns> sum{};
    for (const auto& row : rows)
        for (std::size_t i = 0; i < sum.size(); ++i)
            sum[i] += row[i];
    return columnOf(sum);
}

cv::Mat inverseOf(const Sums& sums)
{
    cv::Mat squares(kUnknowns, kUnknowns, CV_32F);
    for (int i = 0; i < kUnknowns; ++i)
        for (int j = i; j < kUnknowns; ++j)
            squares.at<float>(i, j) = squares.at<float>(j, i) =
                static_cast<float>(sums.squares[static_cast<std::size_t>(i * kUnknowns + j)]);
    return squares.inv();
}

// Makes the mean inside 0. Returns the length of the picture as a vector.
double centre(const cv::Mat& values, const cv::Mat& inside, cv::Mat& centred)
{
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(values, mean, deviation, inside);
    cv::subtract(values, mean, centred, inside);
    return std::sqrt(cv::countNonZero(inside) * deviation[0] * deviation[0]);
}

} // namespace

CorrelationReference::CorrelationReference(const cv::Mat& gray) : reference(smoothed(gray)) {}

bool CorrelationReference::align(const cv::Mat& gray, const CorrelationLimits& limits,
                                 cv::Mat& frameFromReference) const
{
    const Frame frame(gray);
    Warped warped;
    double last = -limits.smallestGain;
    double coefficient = -1.0;
    for (int i = 0; i < limits.iterations && std::abs(coefficient - last) >= limits.smallestGain; ++i) {
        frame.warp(frameFromReference, reference.size(), warped);
        const double lengthOfFrame = centre(warped.values, warped.inside, warped.values);
        cv::Mat centred = cv::Mat::zeros(reference.size(), CV_32F);
        const double lengthOfReference = centre(reference, warped.inside, centred);

        const Sums sums = sumsOf(warped, centred, frameFromReference);
        last = coefficient;
        coefficient = sums.correlation / (lengthOfFrame * lengthOfReference);
        if (std::isnan(coefficient))
            return false;
        const cv::Mat inverse = inverseOf(sums);
        const cv::Mat step = inverse * columnOf(sums.withFrame);
        const double remaining = lengthOfFrame * lengthOfFrame - columnOf(sums.withFrame).dot(step);
        const double explained = sums.correlation - columnOf(sums.withReference).dot(step);
        if (explained <= 0.0)
            return false; // the step would lower the correlation
        const cv::Mat change = inverse * projectedError(warped, centred, remaining / explained, frameFromReference);
        for (int k = 0; k < kUnknowns; ++k)
            frameFromReference.at<float>(k % 3, k / 3) += change.at<float>(k);
    }
    return true;
}

} // namespace orvo
