#include <orvo_core/parallel.hpp>

#include <tbb/global_control.h>

namespace orvo {

struct WorkerLimit::Control
{
    tbb::global_control limit;
};

WorkerLimit::WorkerLimit(int threads)
{
    if (threads > 0)
        control = std::make_unique<Control>(Control{
            tbb::global_control(tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(threads))});
}

WorkerLimit::~WorkerLimit() = default;

} // namespace orvo
