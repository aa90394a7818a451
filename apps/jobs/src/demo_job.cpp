#include "run_job.hpp"

#include <jobs/demo_job.hpp>
namespace orvo::jobs {
DemoJobResult demoJob(const DemoJobRequest&, const JobCallbacks&) { return {}; }
} // namespace orvo::jobs
