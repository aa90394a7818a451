/// OpenCV's random numbers, the same ones each time.
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>

namespace orvo {

/// Gives the calling thread, and the loops of OpenCV that it starts, random numbers from a fixed seed while it lives,
/// and puts back what was there. Matching draws from them, so that without it a result would depend on what the thread
/// did before.
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
