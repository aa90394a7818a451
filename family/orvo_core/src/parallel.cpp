#include <orvo_core/parallel.hpp>

#include <tbb/global_control.h>

namespace orvo {

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
