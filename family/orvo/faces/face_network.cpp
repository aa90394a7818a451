#include "faces/face_network.hpp"

#include "faces/face_boxes.hpp"
#include "networks/quiet_opencv.hpp"

#include <opencv2/dnn.hpp>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace orvo {
namespace {

constexpr int kPadding = 32; // px: the network halves the picture five times
constexpr int kStrides[] = {8, 16, 32};
constexpr float kLeastScore = 0.75f; // geometric mean of the two scores; published models score true faces at 0.8 to 1
constexpr double kScoreSteps = 1000.0; // converts a score to the support of a find
constexpr double kEyeRadius = 0.22;    // of the distance between the eyes
constexpr double kMostOfPicture = 1.5; // a box larger than this times the picture is garbage
constexpr int kBoxValues = 4;
constexpr int kPointValues = 10;

struct Find
{
    FaceCandidate candidate;
    std::vector<FaceDisc> eyes;
};

// The outputs of one stride, each with `cells` rows.
struct Outputs
{
    Outputs(const std::vector<cv::Mat>& all, std::size_t first, int stride, std::size_t cells)
        : cls(values(all[first], "cls_", stride, cells)), obj(values(all[first + 1], "obj_", stride, cells)),
          box(values(all[first + 2], "bbox_", stride, cells * kBoxValues)),
          points(values(all[first + 3], "kps_", stride, cells * kPointValues))
    {}

    const float *cls, *obj, *box, *points;

private:
    static const float* values(const cv::Mat& blob, const char* name, int stride, std::size_t expected)
    {
        if (blob.depth() != CV_32F || !blob.isContinuous() || blob.total() != expected)
            throw std::runtime_error("output " + (name + std::to_string(stride)) + " has " +
                                     std::to_string(blob.total()) + " values, expected " + std::to_string(expected));
        return blob.ptr<float>();
    }
};

float limited(float score) { return score > 0.0f ? std::min(score, 1.0f) : 0.0f; } // NaN gives 0

void collect(std::vector<Find>& finds, const Outputs& out, int stride, cv::Size cells, cv::Size picture)
{
    for (int row = 0; row < cells.height; ++row)
        for (int column = 0; column < cells.width; ++column) {
            const std::size_t i = static_cast<std::size_t>(row) * static_cast<std::size_t>(cells.width) +
                                  static_cast<std::size_t>(column);
            const float score = std::sqrt(limited(out.cls[i]) * limited(out.obj[i]));
            if (score < kLeastScore)
                continue;
            const float* const box = out.box + i * kBoxValues;
            const double width = std::exp(static_cast<double>(box[2])) * stride;
            const double height = std::exp(static_cast<double>(box[3])) * stride;
            const double x = (column + static_cast<double>(box[0])) * stride;
            const double y = (row + static_cast<double>(box[1])) * stride;
            // Also false for NaN.
            const bool plausible = width >= 1.0 && height >= 1.0 && width < kMostOfPicture * picture.width &&
                                   height < kMostOfPicture * picture.height && x > 0.0 && y > 0.0 &&
                                   x < picture.width && y < picture.height;
            if (!plausible)
                continue;
            // Cascades frame faces with squares, and the masks are made for those.
            const double side = 0.5 * (width + height);
            Find find{{{x - 0.5 * side, y - 0.5 * side, side, side},
                       1,
                       static_cast<int>(kScoreSteps * static_cast<double>(score))},
                      {}};
            const float* const points = out.points + i * kPointValues;
            const double apart = stride * std::hypot(static_cast<double>(points[2] - points[0]),
                                                     static_cast<double>(points[3] - points[1]));
            for (const int eye : {0, 1})
                if (apart > 0.0 && apart < side)
                    find.eyes.push_back({(column + static_cast<double>(points[2 * eye])) * stride,
                                         (row + static_cast<double>(points[2 * eye + 1])) * stride,
                                         kEyeRadius * apart});
            finds.push_back(std::move(find));
        }
}

} // namespace

std::vector<Face> facesOfNetwork(const std::filesystem::path& model, const cv::Mat& picture)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(model, error))
        throw std::runtime_error("no such file");
    const QuietOpenCv quiet;                                     // its message comes with the exception
    cv::dnn::Net net = cv::dnn::readNetFromONNX(model.string()); // narrow name
    const auto padding = [](int n) { return (kPadding - n % kPadding) % kPadding; };
    cv::Mat padded;
    cv::copyMakeBorder(picture, padded, 0, padding(picture.rows), 0, padding(picture.cols), cv::BORDER_CONSTANT,
                       cv::Scalar());
    net.setInput(cv::dnn::blobFromImage(padded));
    std::vector<std::string> names;
    for (const int stride : kStrides)
        for (const char* const name : {"cls_", "obj_", "bbox_", "kps_"})
            names.push_back(name + std::to_string(stride));
    std::vector<cv::Mat> outputs;
    net.forward(outputs, names);

    std::vector<Find> finds;
    for (std::size_t i = 0; i < std::size(kStrides); ++i) {
        const cv::Size cells(padded.cols / kStrides[i], padded.rows / kStrides[i]);
        const Outputs out(outputs, 4 * i, kStrides[i], static_cast<std::size_t>(cells.area()));
        collect(finds, out, kStrides[i], cells, picture.size());
    }
    std::vector<FaceCandidate> candidates;
    for (const Find& find : finds)
        candidates.push_back(find.candidate);
    std::vector<Face> faces;
    for (const FaceCandidate& kept : distinct(std::move(candidates))) {
        const auto find =
            std::find_if(finds.begin(), finds.end(), [&](const Find& f) { return f.candidate.box == kept.box; });
        faces.push_back({kept.box.x, kept.box.y, kept.box.width, kept.box.height, find->eyes});
    }
    return faces;
}

} // namespace orvo
