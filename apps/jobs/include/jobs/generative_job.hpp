/// Shared by jobs whose result a generative service paints: who answers, and the two halves apart.
#pragma once

#include <jobs/picture_job.hpp>

#include <filesystem>
#include <string>

namespace orvo::jobs {

inline constexpr int kUsualServiceTimeout = 300; ///< seconds
inline constexpr int kUsualServiceRetries = 2;

struct GenerativeJobRequest : PictureJobRequest
{
    std::filesystem::path source;
    /// .jpg .jpeg .png .tif .tiff .exr; an existing file is replaced. Empty with `requestFile`.
    std::filesystem::path output;

    /// http:// or https:// of the service that answers; empty: what is built in, in the process.
    std::string service;
    int timeoutSeconds = kUsualServiceTimeout; ///< for each attempt, 1..86400
    int retries = kUsualServiceRetries;        ///< further attempts if the service is not available, 0..100

    /// The job ends with the request in this file, as a service gets it. Empty: it goes on.
    std::filesystem::path requestFile;
    /// The answer to the request, as a service gives it, in place of a service. Empty: none.
    std::filesystem::path responseFile;
};

struct GenerativeJobResult : PictureJobResult
{
    std::filesystem::path source;
    std::string requestId;
    _Size<int> requestSize; ///< pixels
};

} // namespace orvo::jobs
