/// What jobs that make picture files of picture files have in common: how the result is written, and what is reported.
#pragma once

#include <jobs/job.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_core/geometry.hpp>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvo::jobs {

/// Samples of a file and the cores that are used.
struct PictureJobRequest
{
    std::optional<int> jpegQuality; ///< 1..100; empty: the writer's own
    std::optional<int> bits;        ///< bits of a sample that the format can hold; empty: the writer's own
    /// Colour space of the file. Empty: that of the file whose metadata are carried over if it is an RGB matrix profile
    /// with a curve, else sRGB (a CMYK or gray profile cannot hold the result, and a linear one would waste the bits of
    /// the file).
    std::shared_ptr<ColorProfile> profile;
    int threads = 0; ///< at most so many for all loops of the process while the job runs; 0: no limit
};

struct StepTime
{
    JobStep step = JobStep::Check;
    double milliseconds = 0.0;
};

/// What a job tells of its run.
struct RunReport : JobResult
{
    std::vector<StepTime> steps; ///< those that were begun, also if the job failed
    PeakMemory peak;
    std::vector<std::string> warnings; ///< what the log complained about though the job was done
};

struct WrittenPicture
{
    std::filesystem::path output;
    _Size<int> size;
    int bits = 0;        ///< of a sample of the file
    std::string profile; ///< name of the file's colour space
};

/// The answer of a job that makes one picture.
struct PictureJobResult : RunReport, WrittenPicture
{};

} // namespace orvo::jobs
