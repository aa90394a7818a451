/// How much memory jobs need.
#pragma once

#include <jobs/expand_job.hpp>
#include <jobs/hdr_job.hpp>
#include <jobs/pano_job.hpp>
#include <jobs/restore_job.hpp>
#include <jobs/stack_job.hpp>
#include <jobs/upscale_job.hpp>

#include <cstdint>

namespace orvo::jobs {

/// The growth of the process in bytes at the peak of a job, by the sizes of its pictures: a linear model whose numbers
/// were measured (docs/groups.md), rounded up. Reads the metadata of the files; one that cannot be read counts
/// nothing, since its job fails early.
[[nodiscard]] std::uint64_t memoryNeed(const HdrJobRequest& request);
[[nodiscard]] std::uint64_t memoryNeed(const StackJobRequest& request);
[[nodiscard]] std::uint64_t memoryNeed(const PanoJobRequest& request);
[[nodiscard]] std::uint64_t memoryNeed(const UpscaleJobRequest& request);
[[nodiscard]] std::uint64_t memoryNeed(const ExpandJobRequest& request);
[[nodiscard]] std::uint64_t memoryNeed(const RestoreJobRequest& request);

} // namespace orvo::jobs
