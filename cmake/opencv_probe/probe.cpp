// Fails unless SURF works: a build without OPENCV_ENABLE_NONFREE has the class but throws when it is made.
#include <opencv2/xfeatures2d/nonfree.hpp>

#include <cstdio>

int main()
{
    cv::Mat picture(96, 96, CV_8U, cv::Scalar(20));
    picture(cv::Rect(30, 30, 24, 24)).setTo(220);
    std::vector<cv::KeyPoint> keypoints;
    cv::xfeatures2d::SURF::create(100, 2, 1, false, false)->detect(picture, keypoints);
    std::printf("%zu\n", keypoints.size());
    return keypoints.empty() ? 1 : 0;
}
