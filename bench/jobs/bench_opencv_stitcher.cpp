// OpenCV's own stitching of the same files, read and written by the same code:
// bench_opencv_stitcher OUT FRAMES...
#include "bench_opencv.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_io/image_writer.hpp>

#include <opencv2/stitching.hpp>
#include <opencv2/xfeatures2d/nonfree.hpp>

#include <cfloat>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using orvo::bench::load8;
using orvo::bench::Picture;

void write8(const char* path, const cv::Mat& mat)
{
    Picture picture({mat.cols, mat.rows}, orvo::ColorProfileType::sRGB());
    orvo::forEachRow(mat.rows, [&](int y) {
        cv::Mat row(1, mat.cols, CV_32FC3, picture.row(y));
        mat.row(y).convertTo(row, CV_32FC3, 1.0 / 255.0);
    });
    orvo::writeImage(path, picture, orvo::writeSettingsForPath(path));
}

// With the default features, ORB, it places two of eight rendered pictures; with these it places all, with the settings
// of this library's stitcher. Everything else is OpenCV's default.
void useSurf(cv::Stitcher& stitcher)
{
    constexpr double kHessian = 100.0;
    constexpr float kConfidence = 0.5f;
    constexpr int kFewest = 6;
    stitcher.setFeaturesFinder(cv::xfeatures2d::SURF::create(kHessian, 4, 3, false, false));
    stitcher.setFeaturesMatcher(
        cv::makePtr<cv::detail::BestOf2NearestMatcher>(false, kConfidence, kFewest, kFewest, DBL_MAX));
    stitcher.setPanoConfidenceThresh(static_cast<double>(kConfidence));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4) {
        std::fputs("usage: bench_opencv_stitcher OUT FRAMES...\n", stderr);
        return 2;
    }
    try {
        std::vector<cv::Mat> frames;
        for (int i = 2; i < argc; ++i)
            frames.push_back(load8(argv[i]));
        const auto stitcher = cv::Stitcher::create(cv::Stitcher::PANORAMA);
        useSurf(*stitcher);
        cv::Mat panorama;
        const auto status = stitcher->stitch(frames, panorama);
        if (status != cv::Stitcher::OK)
            throw std::runtime_error("the stitcher returns " + std::to_string(status));
        write8(argv[1], panorama);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_opencv_stitcher: %s\n", error.what());
        return 1;
    }
}
