// Any bytes as the file of a service's answer to a restoration.
#include "generative_answers.hpp"

#include <orvo_extensions/generative_restoration.hpp>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace orvo::fuzz;
    static MemoryFile file;
    file.write({data, size});
    orvo::GenRestorationProcessor restoration({}, {}, {});
    if (const auto result = restoration.applyResponse(file.path())) {
        require(result->pixelCount() > 0, "a restored picture has pixels");
        require(*result->colorProfile() == *orvo::ColorProfileType::sRGB(), "a restored picture is in sRGB");
    }
    return 0;
}
