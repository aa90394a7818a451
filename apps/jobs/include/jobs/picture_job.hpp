/// Shared by jobs that make picture files from picture files: output settings and report.
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

/// Output format and number of threads.
struct PictureJobRequest
{
    std::optional<int> jpegQuality; ///< 1..100; empty: the writer's default
    /// Bits per sample that the format supports. Empty: PNG and TIFF have 8 if no source has more, 16 for deeper
    /// sources, raw files and merged exposures, which have more tones than each source; EXR 16, JPEG 8.
    std::optional<int> bits;
    /// Colour space of the file. Empty: that of the file whose metadata are copied if it is an RGB matrix profile with
    /// a curve, else sRGB (a CMYK or gray profile cannot represent the result, and a linear one would waste the bits of
    /// the file).
    std::shared_ptr<ColorProfile> profile;
    /// Whether a result may fall short of what was asked, with a warning for each file. Else that is a failure, and
    /// nothing is written.
    bool strict = false;
    bool keepExisting = false; ///< an output that exists is a failure instead of being replaced
    int threads = 0;           ///< limit for all loops of the process while the job runs; 0: no limit
};

struct StepTime
{
    JobStep step = JobStep::Check;
    double milliseconds = 0.0;
};

/// The report of a run.
struct RunReport : JobResult
{
    std::vector<StepTime> steps; ///< the steps that were started, also if the job failed
    PeakMemory peak;
    /// Although the job was done: what it did without, what was asked in vain, and warnings of the log.
    std::vector<std::string> warnings;
};

struct WrittenPicture
{
    std::filesystem::path output;
    _Size<int> size;
    int bits = 0;        ///< per sample of the file
    std::string profile; ///< name of the file's colour space
};

/// The result of a job that makes one picture.
struct PictureJobResult : RunReport, WrittenPicture
{};

} // namespace orvo::jobs
