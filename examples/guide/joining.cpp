// Joins two halves of one gray, the second one brighter, without a visible step.
#include <orvo_extensions/panorama_mblender.hpp>

#include <opencv2/core.hpp>

#include <cstdio>
#include <cstdlib>

int main()
{
    const cv::Mat all(80, 100, CV_8UC1, cv::Scalar(255));
    orvo::PanoramaMBlender blender;
    blender.feed(cv::Mat(80, 100, CV_16SC3, cv::Scalar::all(6000)), all, all, {0, 0});
    blender.feed(cv::Mat(80, 100, CV_16SC3, cv::Scalar::all(7000)), all, all, {60, 0});
    cv::Mat joined, mask;
    blender.blend(joined, mask);
    const int end = joined.at<cv::Vec3s>(40, 150)[1];
    std::printf("%d x %d, %d at the end\n", joined.cols, joined.rows, end);
    return joined.cols == 160 && std::abs(end - 6000) < 4 ? 0 : 1;
}
