/// Matrices of OpenCV whose allocation fails on demand.
#pragma once

#include <opencv2/core.hpp>

namespace orvo::test {

/// Counts the matrices that the calling thread creates during its lifetime, and can make one of them fail. One instance
/// at a time.
class FailingMats final : public cv::MatAllocator
{
public:
    FailingMats() : previous(cv::Mat::getDefaultAllocator())
    {
        count = 0;
        failing = 0;
        cv::Mat::setDefaultAllocator(this);
    }
    ~FailingMats() override { cv::Mat::setDefaultAllocator(previous); }
    FailingMats(const FailingMats&) = delete;
    FailingMats& operator=(const FailingMats&) = delete;

    /// The next matrix counts as 1. The one at `place` fails with cv::Exception, once; 0: none fails.
    static void failAt(long place)
    {
        count = 0;
        failing = place;
    }
    [[nodiscard]] static long made() { return count; }

    cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, std::size_t* step, cv::AccessFlag flags,
                           cv::UMatUsageFlags usage) const override
    {
        if (++count == failing)
            CV_Error(cv::Error::StsNoMem, "the test makes this matrix fail");
        return previous->allocate(dims, sizes, type, data, step, flags, usage);
    }
    bool allocate(cv::UMatData* data, cv::AccessFlag flags, cv::UMatUsageFlags usage) const override
    {
        return previous->allocate(data, flags, usage);
    }
    void deallocate(cv::UMatData* data) const override { previous->deallocate(data); }

private:
    cv::MatAllocator* previous;
    static inline thread_local long count = 0;
    static inline thread_local long failing = 0;
};

} // namespace orvo::test
