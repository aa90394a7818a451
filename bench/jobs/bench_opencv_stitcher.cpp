// OpenCV's own stitching of the same files with its defaults, read and written by the same code:
// bench_opencv_stitcher OUT FRAMES...
#include "bench_pictures.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_io/image_writer.hpp>

#include <opencv2/stitching.hpp>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using orvo::bench::Picture;

cv::Mat load8(const char* path)
{
    const auto pixels = orvo::bench::loadInSRGB(path);
    cv::Mat mat;
    cv::Mat(pixels->height(), pixels->width(), CV_32FC3, pixels->data()).convertTo(mat, CV_8UC3, 255.0);
    return mat;
}

void write8(const char* path, const cv::Mat& mat)
{
    Picture picture({mat.cols, mat.rows}, orvo::ColorProfileType::sRGB());
    orvo::forEachRow(mat.rows, [&](int y) {
        cv::Mat row(1, mat.cols, CV_32FC3, picture.row(y));
        mat.row(y).convertTo(row, CV_32FC3, 1.0 / 255.0);
    });
    orvo::writeImage(path, picture, orvo::writeSettingsForPath(path));
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
        cv::Mat panorama;
        const auto status = cv::Stitcher::create(cv::Stitcher::PANORAMA)->stitch(frames, panorama);
        if (status != cv::Stitcher::OK)
            throw std::runtime_error("the stitcher answers " + std::to_string(status));
        write8(argv[1], panorama);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_opencv_stitcher: %s\n", error.what());
        return 1;
    }
}
