#include "bracket/fine_registration.hpp"

#include <orvo_core/detail/vector_code.hpp>
#include <orvo_core/parallel.hpp>

#include <opencv2/core.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace orvo {
namespace {

// A level is done when no corner moves further than this, in its pixels. Coarser levels only have to bring the next one
// into reach.
constexpr double kAccuracyFinest = 0.003;
constexpr double kAccuracy = 0.02;
constexpr int kMostIterations = 12;

// A homography is fitted only where there are pixels enough for its eight unknowns, in the shorter side.
constexpr int kHomographySide = 200;

// A homography replaces a similarity in a focus series if it leaves this much less disagreement. Its unknowns would
// else follow the differences in focus.
constexpr double kHomographyGain = 0.1;

// Whether a registration is right is decided at this shorter side, at most: coarse enough for frames that share no fine
// detail, fine enough that frames with nothing in common do not agree by chance.
constexpr int kJudgedSide = 400;
constexpr double kLeastAgreement = 0.25;

// The share of the picture that has to overlap.
constexpr double kLeastOverlap = 0.25;

// Change of scale, and turn in radians, beyond which two frames of one series do not show the same view.
constexpr double kLargestChange = 0.2;

// The difference of structures that has a quarter of the weight of a small one. Structure has a deviation of about 1.
constexpr float kSpread = 0.5f;

// Marks pixels outside the frame; structure is far smaller.
constexpr float kAbsent = -1e9f;

// Catmull-Rom
ORVO_INLINE void cubicWeights(float t, float* w)
{
    const float s = 1.0f - t;
    w[0] = -0.5f * t * s * s;
    w[1] = 1.0f + t * t * (1.5f * t - 2.5f);
    w[2] = 1.0f + s * s * (1.5f * s - 2.5f);
    w[3] = -0.5f * s * t * t;
}

// Pixels that go through both loops of a row together.
constexpr int kBlock = 64;

ORVO_VECTOR_CLONES void warpStructureRow(const cv::Mat& source, const cv::Matx33d& sourceFromTarget, int y,
                                         float* target, int width)
{
    constexpr int kTaps = 4;
    if (source.cols < kTaps || source.rows < kTaps) {
        std::fill_n(target, width, kAbsent);
        return;
    }
    const double* const h = sourceFromTarget.val;
    const double right = source.cols - 2;
    const double bottom = source.rows - 2;
    const auto* const samples = source.ptr<float>();
    const auto stride = static_cast<std::ptrdiff_t>(source.step1());
    int isInside[kBlock];
    int columns[kBlock];
    int lines[kBlock];
    float across[kBlock];
    float down[kBlock];
    for (int first = 0; first < width; first += kBlock) {
        const int count = std::min(kBlock, width - first);
        for (int i = 0; i < count; ++i) {
            const int x = first + i;
            const double scale = 1.0 / (h[6] * x + h[7] * y + h[8]);
            const double u = (h[0] * x + h[1] * y + h[2]) * scale;
            const double v = (h[3] * x + h[4] * y + h[5]) * scale;
            const bool inside = (u >= 1.0) & (v >= 1.0) & (u < right) & (v < bottom); // not for NaN
            const double column = inside ? u : 1.0;                                   // a place that can be read
            const double line = inside ? v : 1.0;
            isInside[i] = inside ? 1 : 0;
            columns[i] = static_cast<int>(column);
            lines[i] = static_cast<int>(line);
            across[i] = static_cast<float>(column - columns[i]);
            down[i] = static_cast<float>(line - lines[i]);
        }
        for (int i = 0; i < count; ++i) {
            float a[kTaps];
            float d[kTaps];
            cubicWeights(across[i], a);
            cubicWeights(down[i], d);
            const float* const corner = samples + (lines[i] - 1) * stride + (columns[i] - 1);
            float sum = 0.0f;
            for (int j = 0; j < kTaps; ++j) {
                const float* const row = corner + j * stride;
                sum += d[j] * ((a[0] * row[0] + a[1] * row[1]) + (a[2] * row[2] + a[3] * row[3]));
            }
            target[first + i] = isInside[i] != 0 ? sum : kAbsent;
        }
    }
}

void warpStructure(const cv::Mat& source, const cv::Matx33d& sourceFromTarget, cv::Mat& target)
{
    target.create(source.size(), CV_32F);
    forEachRow(target.rows,
               [&](int y) { warpStructureRow(source, sourceFromTarget, y, target.ptr<float>(y), target.cols); });
}

// Coordinates with the origin in the middle and the longer side from -1 to 1, in which all unknowns are of one size.
class MiddleCoordinates
{
public:
    explicit MiddleCoordinates(cv::Size size)
        : middleX(0.5 * (size.width - 1)), middleY(0.5 * (size.height - 1)),
          half(0.5 * std::max(size.width, size.height))
    {}
    [[nodiscard]] double x(int column) const { return (column - middleX) / half; }
    [[nodiscard]] double y(int line) const { return (line - middleY) / half; }
    /// A map given in these coordinates, between pixels.
    [[nodiscard]] cv::Matx33d betweenPixels(const cv::Matx33d& map) const
    {
        const cv::Matx33d fromPixels(1 / half, 0, -middleX / half, 0, 1 / half, -middleY / half, 0, 0, 1);
        const cv::Matx33d toPixels(half, 0, middleX, 0, half, middleY, 0, 0, 1);
        return toPixels * map * fromPixels;
    }
    [[nodiscard]] double pixels() const { return half; }

private:
    double middleX;
    double middleY;
    double half;
};

// The unknowns of a step, in pixels at the longer side's ends: how each moves a pixel whose structure has the gradient
// (gx, gy), and the map.
struct SimilarityStep
{
    static constexpr int kUnknowns = 4;
    static void derivatives(double gx, double gy, double x, double y, double* d)
    {
        d[0] = gx;
        d[1] = gy;
        d[2] = gx * x + gy * y;
        d[3] = gy * x - gx * y;
    }
    static cv::Matx33d map(const cv::Vec<double, kUnknowns>& p)
    {
        return {1 + p[2], -p[3], p[0], p[3], 1 + p[2], p[1], 0, 0, 1};
    }
};
struct HomographyStep
{
    static constexpr int kUnknowns = 8;
    static void derivatives(double gx, double gy, double x, double y, double* d)
    {
        const double outward = gx * x + gy * y;
        d[0] = gx;
        d[1] = gx * x;
        d[2] = gx * y;
        d[3] = gy;
        d[4] = gy * x;
        d[5] = gy * y;
        d[6] = outward * x;
        d[7] = outward * y;
    }
    static cv::Matx33d map(const cv::Vec<double, kUnknowns>& p)
    {
        return {1 + p[1], p[2], p[0], p[4], 1 + p[5], p[3], -p[6], -p[7], 1};
    }
};

// The normal equations of a step, lower triangle, and what correlation needs.
template <typename Step>
struct Equations
{
    static constexpr int kUnknowns = Step::kUnknowns;
    static constexpr int kTerms = kUnknowns * (kUnknowns + 1) / 2;
    std::array<double, kTerms> left{};
    std::array<double, kUnknowns> right{};
    double product = 0.0;
    double squareA = 0.0;
    double squareB = 0.0;
    double pixels = 0.0;

    void add(const Equations& other)
    {
        for (std::size_t i = 0; i < left.size(); ++i)
            left[i] += other.left[i];
        for (std::size_t i = 0; i < right.size(); ++i)
            right[i] += other.right[i];
        product += other.product;
        squareA += other.squareA;
        squareB += other.squareB;
        pixels += other.pixels;
    }
    [[nodiscard]] double correlation() const
    {
        return squareA > 0.0 && squareB > 0.0 ? product / std::sqrt(squareA * squareB) : 0.0;
    }
    /// False if they do not determine the unknowns.
    [[nodiscard]] bool solve(cv::Vec<double, kUnknowns>& unknowns) const
    {
        cv::Matx<double, kUnknowns, kUnknowns> matrix;
        cv::Vec<double, kUnknowns> vector;
        std::size_t term = 0;
        for (int m = 0; m < kUnknowns; ++m) {
            for (int n = 0; n <= m; ++n)
                matrix(m, n) = matrix(n, m) = left[term++];
            vector[m] = right[static_cast<std::size_t>(m)];
        }
        return cv::solve(matrix, vector, unknowns, cv::DECOMP_CHOLESKY);
    }
};

template <typename Step>
Equations<Step> equationsOfRow(const cv::Mat& placed, const cv::Mat& warped, int y, const MiddleCoordinates& middle)
{
    const auto* const a = placed.ptr<float>(y);
    const auto* const aAbove = placed.ptr<float>(y - 1);
    const auto* const aBelow = placed.ptr<float>(y + 1);
    const auto* const b = warped.ptr<float>(y);
    const auto* const bAbove = warped.ptr<float>(y - 1);
    const auto* const bBelow = warped.ptr<float>(y + 1);
    const auto present = [](float here, float left, float right, float above, float below) {
        return here != kAbsent && left != kAbsent && right != kAbsent && above != kAbsent && below != kAbsent;
    };
    Equations<Step> sums;
    const double down = middle.y(y);
    for (int x = 1; x + 1 < placed.cols; ++x) {
        if (!present(a[x], a[x - 1], a[x + 1], aAbove[x], aBelow[x]) ||
            !present(b[x], b[x - 1], b[x + 1], bAbove[x], bBelow[x]))
            continue;
        const float difference = a[x] - b[x];
        sums.product += static_cast<double>(a[x] * b[x]);
        sums.squareA += static_cast<double>(a[x] * a[x]);
        sums.squareB += static_cast<double>(b[x] * b[x]);
        sums.pixels += 1.0;
        const float relative = difference / kSpread;
        const float root = 1.0f / (1.0f + relative * relative); // Geman-McClure
        const auto weight = static_cast<double>(root * root);
        const auto gx = static_cast<double>(0.25f * ((a[x + 1] - a[x - 1]) + (b[x + 1] - b[x - 1])));
        const auto gy = static_cast<double>(0.25f * ((aBelow[x] - aAbove[x]) + (bBelow[x] - bAbove[x])));
        double d[Step::kUnknowns];
        Step::derivatives(gx, gy, middle.x(x), down, d);
        std::size_t term = 0;
        for (int m = 0; m < Step::kUnknowns; ++m) {
            const double weighted = weight * d[m];
            for (int n = 0; n <= m; ++n)
                sums.left[term++] += weighted * d[n];
            sums.right[static_cast<std::size_t>(m)] += weighted * static_cast<double>(difference);
        }
    }
    return sums;
}

template <typename Step>
Equations<Step> equationsOf(const cv::Mat& placed, const cv::Mat& warped, const MiddleCoordinates& middle)
{
    std::vector<Equations<Step>> rows(static_cast<std::size_t>(placed.rows));
    forEachRow(placed.rows - 2, [&](int y) {
        rows[static_cast<std::size_t>(y + 1)] = equationsOfRow<Step>(placed, warped, y + 1, middle);
    });
    Equations<Step> sum;
    for (const auto& row : rows)
        sum.add(row);
    return sum;
}

double largestMove(const cv::Matx33d& map, cv::Size size)
{
    double most = 0.0;
    for (const double x : {0.0, size.width - 1.0})
        for (const double y : {0.0, size.height - 1.0}) {
            const cv::Vec3d to = map * cv::Vec3d(x, y, 1.0);
            most = std::max(most, std::hypot(to[0] / to[2] - x, to[1] / to[2] - y));
        }
    return most;
}

// Whether the middle of the picture is turned, scaled or sheared no more than frames of one series are.
bool isPlausible(const cv::Matx33d& map, cv::Size size)
{
    const double x = 0.5 * size.width;
    const double y = 0.5 * size.height;
    const cv::Vec3d at = map * cv::Vec3d(x, y, 1.0);
    for (int row = 0; row < 2; ++row)
        for (int column = 0; column < 2; ++column) {
            const double change = (map(row, column) - at[row] / at[2] * map(2, column)) / at[2]; // derivative there
            if (!(std::abs(change - (row == column ? 1.0 : 0.0)) <= kLargestChange))
                return false;
        }
    return true;
}

// One level of the search. `agreement` becomes the best correlation with any of the placed frames.
template <typename Step>
bool refine(const std::vector<cv::Mat>& placed, const cv::Mat& frame, double accuracy, cv::Matx33d& frameFromReference,
            double& agreement)
{
    const MiddleCoordinates middle(frame.size());
    const double enough = kLeastOverlap * static_cast<double>(frame.total());
    cv::Mat warped;
    for (int iteration = 0; iteration < kMostIterations; ++iteration) {
        warpStructure(frame, frameFromReference, warped);
        Equations<Step> sum;
        agreement = 0.0;
        for (const cv::Mat& each : placed) {
            const auto equations = equationsOf<Step>(each, warped, middle);
            agreement = std::max(agreement, equations.correlation());
            sum.add(equations);
        }
        cv::Vec<double, Step::kUnknowns> unknowns;
        if (sum.pixels < enough || !sum.solve(unknowns))
            return false;
        const cv::Matx33d step = middle.betweenPixels(Step::map(unknowns * (1.0 / middle.pixels())));
        frameFromReference = frameFromReference * step;
        frameFromReference = frameFromReference * (1.0 / frameFromReference(2, 2));
        if (largestMove(step, frame.size()) < accuracy)
            break;
    }
    return true;
}

// Pixels of a level from those of the frame, of which they are area means; centres at integers in both.
cv::Matx33d levelFromFrame(double reduction)
{
    const double offset = 0.5 * (1.0 / reduction - 1.0);
    return {1.0 / reduction, 0, offset, 0, 1.0 / reduction, offset, 0, 0, 1};
}

// The placed frames at a level, in the geometry of the reference.
void placeAtLevel(const std::vector<PlacedStructure>& placed, std::size_t level, const cv::Matx33d& levelFromFrame_,
                  std::vector<cv::Mat>& targets)
{
    targets.resize(placed.size());
    for (std::size_t i = 0; i < placed.size(); ++i) {
        const cv::Mat& structure = placed[i].structure->levels[level];
        if (placed[i].frameFromReference == cv::Matx33d::eye())
            targets[i] = structure;
        else
            warpStructure(structure, levelFromFrame_ * placed[i].frameFromReference * levelFromFrame_.inv(),
                          targets[i]);
    }
}

} // namespace

FineRegistration registerFinely(const std::vector<PlacedStructure>& placed, const FrameStructure& frame,
                                const cv::Matx33d& start, FrameMovement movement)
{
    const FineRegistration failed{false, start};
    cv::Matx33d found = start;
    bool isHomography = movement == FrameMovement::Hand;
    std::vector<cv::Mat> targets;
    for (std::size_t level = frame.levels.size(); level-- > 0;) {
        const double reduction = frame.reduction * static_cast<double>(std::size_t{1} << level);
        const cv::Matx33d toLevel = levelFromFrame(reduction);
        placeAtLevel(placed, level, toLevel, targets);
        const cv::Mat& structure = frame.levels[level];
        const int side = std::min(structure.rows, structure.cols);
        const double accuracy = level == 0 ? kAccuracyFinest : kAccuracy;
        const bool isLarge = side >= kHomographySide;
        cv::Matx33d map = toLevel * found * toLevel.inv();
        double agreement = 0.0;
        if (!(isHomography && isLarge ? refine<HomographyStep>(targets, structure, accuracy, map, agreement)
                                      : refine<SimilarityStep>(targets, structure, accuracy, map, agreement)))
            return failed;
        const bool isLast = level == 0 && frame.levels.size() > 1; // decided by the level before
        if (!isHomography && isLarge && !isLast) {
            cv::Matx33d tilted = map;
            double tiltedAgreement = 0.0;
            if (refine<HomographyStep>(targets, structure, accuracy, tilted, tiltedAgreement) &&
                1.0 - tiltedAgreement < (1.0 - kHomographyGain) * (1.0 - agreement)) {
                isHomography = true;
                map = tilted;
                agreement = tiltedAgreement;
            }
        }
        found = toLevel.inv() * map * toLevel;
        const bool isJudged = side <= kJudgedSide && (level == 0 || side * 2 > kJudgedSide);
        if ((isJudged && agreement < kLeastAgreement) || !isPlausible(map, structure.size()))
            return failed;
    }
    return {true, found * (1.0 / found(2, 2))};
}

} // namespace orvo
