/// Bundle adjustment by rays at a cost proportional to the pairs of pictures, not to pictures times pairs.
#pragma once

#include <orvo_common/run_control.hpp>

#include <opencv2/core.hpp>
#include <opencv2/stitching/detail/motion_estimators.hpp>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace orvo {

/// cv::detail::BundleAdjusterRay (Brown, Lowe 2007), with bit-identical steps.
///
/// A camera changes only the errors of its own pairs, but OpenCV computes those of all pairs for each of its
/// parameters. Here only its own are computed; the derivative of all others is zero, as in OpenCV. For 30 pictures this
/// saves 14 of 15 evaluations.
///
/// A parameter that is NaN stays NaN: OpenCV continues to the last iteration and then fails. Here the first such
/// parameter ends it, by throwing Hopeless.
class SparseRayAdjuster : public cv::detail::BundleAdjusterRay
{
public:
    /// No further step can succeed. Thrown by the call operator, which then has not changed the cameras.
    struct Hopeless
    {};

    /// `control` is polled on the calling thread, before the errors of each camera are computed, and follows the steps,
    /// of which each is a part of the rest: nobody knows how many there will be. It must outlive this object. If
    /// cancelled, the call operator throws FailureError and does not change the cameras.
    explicit SparseRayAdjuster(const RunControl& control = RunControl::none()) : run(control) {}

private:
    // The parameters of a camera, focal length and rotation, and the errors of a match, the difference of two rays.
    static constexpr int kParameters = 4;
    static constexpr int kErrors = 3;
    static constexpr double kStep = 1e-3; // as in OpenCV, for identical steps

    using Edges = std::vector<std::pair<int, int>>;

    // OpenCV's override of the error function is private, but the declaration is accessible.
    struct Measurement : cv::detail::BundleAdjusterBase
    {
        static auto pointer() { return &Measurement::calcError; }
    };

    void measure(cv::Mat& errors) { (this->*Measurement::pointer())(errors); }

    [[nodiscard]] int matchesOf(const std::pair<int, int>& edge) const
    {
        return pairwise_matches_[edge.first * num_images_ + edge.second].num_inliers;
    }

    void calcJacobian(cv::Mat& jacobian) override
    {
        stopAtNoNumbers();
        constexpr float kHalfOfTheSteps = 20.0f; // typical: about 40 until nothing improves
        run.report(1.0f - kHalfOfTheSteps / (kHalfOfTheSteps + static_cast<float>(steps)));
        ++steps;
        jacobian.create(total_num_matches_ * kErrors, num_images_ * kParameters, CV_64F);
        jacobian.setTo(0.0);
        const Edges allEdges = edges_;
        const int allMatches = total_num_matches_;
        for (int camera = 0; camera < num_images_; ++camera) {
            run.throwIfCancelled();
            differentiateBy(camera, allEdges, jacobian);
        }
        edges_ = allEdges;
        total_num_matches_ = allMatches;
    }

    void stopAtNoNumbers() const
    {
        for (int i = 0; i < cam_params_.rows; ++i)
            if (const double value = cam_params_.at<double>(i, 0); value != value)
                throw Hopeless();
    }

    // The four columns of a camera.
    void differentiateBy(int camera, const Edges& allEdges, cv::Mat& jacobian)
    {
        edges_.clear();
        total_num_matches_ = 0;
        rows.clear();
        int row = 0;
        for (const auto& edge : allEdges) {
            const int matches = matchesOf(edge);
            if (edge.first == camera || edge.second == camera) {
                edges_.push_back(edge);
                total_num_matches_ += matches;
                rows.emplace_back(row, row + matches * kErrors);
            }
            row += matches * kErrors;
        }
        if (total_num_matches_ == 0)
            return;
        for (int column = camera * kParameters; column < (camera + 1) * kParameters; ++column) {
            double& parameter = cam_params_.at<double>(column, 0);
            const double value = parameter;
            parameter = value - kStep;
            measure(before);
            parameter = value + kStep;
            measure(after);
            parameter = value;
            int from = 0;
            for (const auto& [first, last] : rows)
                for (int to = first; to < last; ++to, ++from)
                    jacobian.at<double>(to, column) =
                        (after.at<double>(from, 0) - before.at<double>(from, 0)) / (2 * kStep);
        }
    }

    const RunControl& run;
    int steps = 0; // of all calls
    cv::Mat before;
    cv::Mat after;
    std::vector<std::pair<int, int>> rows; // for the pairs of a camera: the first row, and one past the last
};

} // namespace orvo
