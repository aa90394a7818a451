// Fails unless SURF works: a build without OPENCV_ENABLE_NONFREE has the class but throws when it is made.
#include <opencv2/xfeatures2d/nonfree.hpp>

#include <cstdio>

int main()
{
    // Bright blobs of 12 pixels on a dark ground, which any blob detector finds.
    cv::Mat picture(256, 256, CV_8U, cv::Scalar(20));
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 256; ++x) {
            const int dx = x % 48 - 24;
            const int dy = y % 48 - 24;
            if (dx * dx + dy * dy < 36)
                picture.at<unsigned char>(y, x) = 220;
        }
    std::vector<cv::KeyPoint> keypoints;
    cv::xfeatures2d::SURF::create(100, 2, 1, false, false)->detect(picture, keypoints);
    std::printf("%zu\n", keypoints.size());
    return keypoints.empty() ? 1 : 0;
}
