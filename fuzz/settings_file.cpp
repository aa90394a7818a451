// Any bytes as the JSON file of the settings store.
#include "fuzz_target.hpp"

#include <orvo_io/settings.hpp>

#include <stdexcept>

namespace {

using orvo::fuzz::require;

constexpr const char* kKept = "Fuzz.kept"; // no seed has it
constexpr int kKeptValue = 7;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static orvo::fuzz::MemoryFile file;
    file.write({data, size});
    orvo::Settings settings;
    settings.set(kKept, kKeptValue);
    bool refused = false;
    try {
        settings.load(file.path());
    } catch (const std::runtime_error& error) {
        refused = true;
        require(std::string(error.what()).find(file.path().string()) != std::string::npos, "a refusal names the file");
    }
    if (refused)
        require(settings.get(kKept, 0) == kKeptValue, "a refused file changes nothing");
    // Keys of the seeds, which inputs keep or change to another type: the fallback, never an exception.
    for (const char* const key : {"Upscale.scale", "Upscale.model", "DebugDrawer.enable", "a", "a.b"}) {
        (void)settings.get(key, false);
        (void)settings.get(key, 0);
        (void)settings.get(key, 0.0);
        (void)settings.get(key, std::string());
    }
    return 0;
}
