#include "frame/managed_mat.hpp"

#include <orvo_common/memory_manager.hpp>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

using namespace orvo;

TEST(ManagedMat, IsCountedAndGivenBack)
{
    MemoryManager& memory = MemoryManager::instance();
    const std::size_t before = memory.liveBytes();
    {
        cv::Mat mat = managedMat(30, 40, CV_16SC3);
        EXPECT_EQ(mat.size(), cv::Size(40, 30));
        EXPECT_EQ(mat.type(), CV_16SC3);
        EXPECT_TRUE(mat.isContinuous());
        EXPECT_GE(memory.liveBytes(), before + 30 * 40 * 6);
        const cv::Mat part = mat(cv::Rect(1, 2, 3, 4));
        mat.release();
        EXPECT_GT(memory.liveBytes(), before) << "another header still refers to it";
        EXPECT_EQ(part.size(), cv::Size(3, 4));
    }
    EXPECT_EQ(memory.liveBytes(), before);
}

TEST(ManagedMat, BehavesLikeAnyOther)
{
    const std::size_t before = MemoryManager::instance().liveBytes();
    {
        cv::Mat mat = managedMat(7, 9, CV_8UC1);
        mat.setTo(3);
        const cv::Mat copy = mat.clone();
        mat.create(11, 5, CV_32FC3);
        mat.setTo(cv::Scalar(1, 2, 3));
        EXPECT_EQ(cv::countNonZero(copy == 3), 63);
        EXPECT_EQ(mat.at<cv::Vec3f>(10, 4), cv::Vec3f(1, 2, 3));
        EXPECT_TRUE(managedMat(0, 5, CV_8UC1).empty());
    }
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
}

TEST(ManagedMat, MayBecomeADeviceMatrix)
{
    const std::size_t before = MemoryManager::instance().liveBytes();
    {
        cv::Mat mat = managedMat(20, 30, CV_8UC3);
        mat.setTo(cv::Scalar(1, 2, 3));
        cv::Mat doubled;
        {
            const cv::UMat device = mat.getUMat(cv::ACCESS_READ);
            cv::UMat result;
            cv::add(device, device, result);
            result.copyTo(doubled);
            const cv::UMat part = mat(cv::Rect(3, 4, 5, 6)).getUMat(cv::ACCESS_READ);
            EXPECT_EQ(part.getMat(cv::ACCESS_READ).at<cv::Vec3b>(5, 4), cv::Vec3b(1, 2, 3));
        }
        EXPECT_EQ(doubled.at<cv::Vec3b>(19, 29), cv::Vec3b(2, 4, 6));
        EXPECT_EQ(mat.at<cv::Vec3b>(0, 0), cv::Vec3b(1, 2, 3));
    }
    EXPECT_EQ(MemoryManager::instance().liveBytes(), before);
}
