#include <orvo_core/parallel.hpp>

#include <tbb/global_control.h>

namespace orvo {
namespace details {

void LowestException::keep(std::int64_t index) noexcept
{
    const std::lock_guard lock(mutex);
    if (index > lowest.load(std::memory_order_relaxed))
        return;
    lowest.store(index, std::memory_order_relaxed);
    exception = std::current_exception();
}

void LowestException::rethrow() const
{
    if (exception)
        std::rethrow_exception(exception);
}

} // namespace details

struct WorkerLimit::Control
{
    explicit Control(int threads)
        : limit(tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(threads))
    {}

    tbb::global_control limit; // a copy would limit nothing: only ever constructed in place
};

WorkerLimit::WorkerLimit(int threads)
{
    if (threads > 0)
        control = std::make_unique<Control>(threads);
}

WorkerLimit::~WorkerLimit() = default;

} // namespace orvo
