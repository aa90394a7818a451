// OpenCV's exposure fusion of the same files, read and written by the same code: bench_opencv_fusion OUT FRAMES...
// Mertens, Kautz, Van Reeth, Pacific Graphics 2007, with OpenCV's default weights.
#include "bench_opencv.hpp"

#include <orvo_io/image_writer.hpp>

#include <opencv2/photo.hpp>

#include <cstdio>
#include <cstring>

namespace {

using orvo::bench::load8;
using orvo::bench::Picture;

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4) {
        std::fputs("usage: bench_opencv_fusion OUT FRAMES...\n", stderr);
        return 2;
    }
    try {
        std::vector<cv::Mat> frames;
        for (int i = 2; i < argc; ++i)
            frames.push_back(load8(argv[i]));
        cv::Mat fused;
        cv::createMergeMertens()->process(frames, fused);
        Picture result({fused.cols, fused.rows}, orvo::ColorProfileType::sRGB());
        for (int y = 0; y < fused.rows; ++y)
            std::memcpy(result.row(y), fused.ptr(y),
                        static_cast<std::size_t>(fused.cols) * sizeof(orvo::PixelRGB<float>));
        orvo::writeImage(argv[1], result, orvo::writeSettingsForPath(argv[1]));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_opencv_fusion: %s\n", error.what());
        return 1;
    }
}
