/// The network of the built-in settings while jobs enlarge.
#pragma once

#include <filesystem>
#include <string>

namespace orvo::jobs {

/// Names a network in the settings of the process during its lifetime, for upscaleJob(). Jobs that run at the same time
/// share these settings: whoever starts several makes one object for all of them, beside which those of the jobs change
/// nothing.
class UpscaleNetwork
{
public:
    /// Changes nothing if `model` is empty, or named already.
    explicit UpscaleNetwork(const std::filesystem::path& model);
    ~UpscaleNetwork();
    UpscaleNetwork(const UpscaleNetwork&) = delete;
    UpscaleNetwork& operator=(const UpscaleNetwork&) = delete;

private:
    const std::string before;
    const bool changed;
};

} // namespace orvo::jobs
