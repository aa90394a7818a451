// Fails unless SURF works: a build without OPENCV_ENABLE_NONFREE has the class but throws in its constructor.
#include <opencv2/xfeatures2d/nonfree.hpp>

#include <cstdio>

int main()
{
    // Bright discs of many radii on a dark background. Some radii give no key point, where two filter sizes respond
    // equally.
    constexpr int kCell = 48;
    cv::Mat picture(256, 256, CV_8U, cv::Scalar(20));
    for (int y = 0; y < picture.rows; ++y)
        for (int x = 0; x < picture.cols; ++x) {
            const int dx = x % kCell - kCell / 2;
            const int dy = y % kCell - kCell / 2;
            const int radius = 3 + (x / kCell + 5 * (y / kCell)) % 8;
            if (dx * dx + dy * dy < radius * radius)
                picture.at<unsigned char>(y, x) = 220;
        }
    std::vector<cv::KeyPoint> keypoints;
    cv::xfeatures2d::SURF::create(100, 2, 1, false, false)->detect(picture, keypoints);
    std::printf("%zu\n", keypoints.size());
    return keypoints.empty() ? 1 : 0;
}
