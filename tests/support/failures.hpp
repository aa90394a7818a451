/// Checks of the failure of a call.
#pragma once

#include "support/failing_memory.hpp"

#include <orvo_extensions/failure.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace orvo::test {

/// Checks that lastFailure() of the last call is of this kind, with this file (empty: without one), and with a sentence
/// of one line without a full stop.
inline void expectLastFailure(FailureKind kind, const std::filesystem::path& file = {})
{
    const auto failure = lastFailure();
    ASSERT_TRUE(failure.has_value());
    EXPECT_EQ(static_cast<int>(failure->kind), static_cast<int>(kind)) << describe(*failure);
    EXPECT_EQ(failure->file, file) << describe(*failure);
    ASSERT_FALSE(failure->sentence.empty());
    EXPECT_NE(failure->sentence.back(), '.');
    EXPECT_EQ(failure->sentence.find('\n'), std::string::npos);
}

/// Truncates a file to a share of its bytes.
inline void damage(const std::filesystem::path& path, double share = 0.5)
{
    const auto bytes = static_cast<double>(std::filesystem::file_size(path));
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(bytes * share));
}

inline std::filesystem::path textFile(const std::filesystem::path& path)
{
    std::ofstream(path) << "Dear photographer, this is no picture.";
    return path;
}

/// Makes allocations fail at several places of `call`, which returns true if it has a result. If not, expects the
/// failure OutOfMemory; there must be such places.
template <typename Call>
void expectOutOfMemory(const Call& call)
{
    ASSERT_TRUE(call()); // makes one-time allocations
    constexpr long kEnough = 1'000'000'000;
    allocationsLeft = kEnough;
    const bool hasResult = call();
    const long total = kEnough - allocationsLeft;
    allocationsLeft = -1;
    ASSERT_TRUE(hasResult);
    int failed = 0;
    constexpr long kPlaces = 12;
    for (long place = 0; place < kPlaces; ++place) {
        allocationsLeft = total * place / kPlaces;
        const bool result = call();
        allocationsLeft = -1;
        if (result)
            continue; // handled by an intermediate caller
        const auto failure = lastFailure();
        ASSERT_TRUE(failure.has_value()) << place;
        EXPECT_EQ(static_cast<int>(failure->kind), static_cast<int>(FailureKind::OutOfMemory)) << describe(*failure);
        EXPECT_FALSE(failure->sentence.empty());
        ++failed;
    }
    EXPECT_GT(failed, 0);
    EXPECT_TRUE(call());
    EXPECT_FALSE(lastFailure().has_value()) << "cleared by the next call";
}

} // namespace orvo::test
