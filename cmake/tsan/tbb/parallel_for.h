/// Replaces oneTBB's header of this name in the preset tsan. Debian's oneTBB is not built with the thread sanitizer,
/// which therefore does not see its synchronisation: it would report every loop, or none with reports about oneTBB
/// suppressed. Here loops run on their own threads, whose start and end the sanitizer sees, so it finds two that write
/// to one place. Slow, because each loop creates threads; nested loops run on one thread.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/partitioner.h>
#include <tbb/task_group.h>

#include <algorithm>
#include <cstddef>
#include <exception>
#include <thread>
#include <type_traits>
#include <vector>

namespace orvo::tsan {

constexpr std::size_t kMostPieces = 32;
constexpr std::size_t kMostThreads = 3; // more than the usual cores here, so that threads interleave

inline thread_local bool isInLoop = false;

template <typename Range>
std::vector<Range> piecesOf(const Range& whole)
{
    std::vector<Range> pieces;
    if (whole.empty())
        return pieces;
    pieces.push_back(whole);
    for (bool isCut = true; isCut && pieces.size() < kMostPieces;) {
        isCut = false;
        for (std::size_t i = 0, count = pieces.size(); i < count; ++i)
            if (pieces[i].is_divisible()) {
                Range half(pieces[i], tbb::split{});
                pieces.push_back(half);
                isCut = true;
            }
    }
    return pieces;
}

template <typename Range, typename Body>
void run(const Range& whole, const Body& body)
{
    const std::vector<Range> pieces = piecesOf(whole);
    const std::size_t threads =
        std::min({tbb::global_control::active_value(tbb::global_control::max_allowed_parallelism), kMostThreads,
                  isInLoop ? std::size_t{1} : pieces.size()});
    std::vector<std::exception_ptr> failures(threads);
    // Assigned in advance: otherwise the first thread might finish before the others start, and no race would show.
    const auto work = [&](std::size_t thread) {
        const bool wasInLoop = isInLoop;
        isInLoop = true;
        try {
            for (std::size_t i = thread; i < pieces.size(); i += threads)
                body(pieces[i]);
        } catch (...) {
            failures[thread] = std::current_exception();
        }
        isInLoop = wasInLoop;
    };
    std::vector<std::thread> others;
    for (std::size_t thread = 1; thread < threads; ++thread)
        others.emplace_back(work, thread);
    if (threads > 0)
        work(0);
    for (std::thread& other : others)
        other.join();
    for (const std::exception_ptr& failure : failures)
        if (failure)
            std::rethrow_exception(failure);
}

template <typename Index>
using RequireIndex = std::enable_if_t<std::is_integral_v<Index>, int>;
template <typename Range>
using RequireRange = std::enable_if_t<!std::is_integral_v<Range>, int>;

} // namespace orvo::tsan

namespace tbb {

template <typename Range, typename Body, typename... Rest, orvo::tsan::RequireRange<Range> = 0>
void parallel_for(const Range& range, const Body& body, Rest&&...)
{
    orvo::tsan::run(range, body);
}

template <typename Index, typename Function, typename... Rest, orvo::tsan::RequireIndex<Index> = 0>
void parallel_for(Index first, Index last, const Function& function, Rest&&...)
{
    if (first < last)
        orvo::tsan::run(blocked_range<Index>(first, last), [&function](const blocked_range<Index>& range) {
            for (Index i = range.begin(); i != range.end(); ++i)
                function(i);
        });
}

} // namespace tbb
