/// Reproducible random numbers of OpenCV.
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>

namespace orvo {

/// While this object exists, the calling thread and the loops of OpenCV that it starts get random numbers from a fixed
/// seed; the destructor restores the previous state. Matching uses them, so without it a result would depend on earlier
/// work of the thread.
class OwnRandomNumbers
{
public:
    OwnRandomNumbers() : kept(cv::theRNG()) { cv::theRNG() = cv::RNG(kSeed); }
    ~OwnRandomNumbers() { cv::theRNG() = kept; }
    OwnRandomNumbers(const OwnRandomNumbers&) = delete;
    OwnRandomNumbers& operator=(const OwnRandomNumbers&) = delete;

private:
    static constexpr std::uint64_t kSeed = 1;
    cv::RNG kept;
};

} // namespace orvo
