// Any text as a picture in base64, and any bytes as the PNG in it.
#include "fuzz_target.hpp"

#include <orvo_io/base64.hpp>
#include <orvo_io/base64_image.hpp>

#include <string_view>

namespace {

void check(std::string_view text)
{
    using orvo::fuzz::require;
    const auto picture = orvo::convertToImageData(text);
    if (!picture)
        return;
    require(picture->width() > 0 && picture->height() > 0, "a picture has pixels");
    require(picture->pixelCount() <= static_cast<std::size_t>(orvo::kMostDecodedPixels), "the limit on pixels holds");
    bool within = true;
    for (std::size_t i = 0; i < picture->pixelCount(); ++i) {
        const auto& p = picture->data()[i];
        within = within && p.r == p.r && p.g == p.g && p.b == p.b;
    }
    require(within, "samples are numbers");
    if (picture->pixelCount() > 100'000)
        return; // encoding large ones again would only take time
    const auto again = orvo::convertToImageData(orvo::imageToBase64(picture, {0, 16}));
    require(again != nullptr && again->size() == picture->size(), "what was decoded can be encoded");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    check({reinterpret_cast<const char*>(data), size});
    check(orvo::base64Of({data, size}));
    return 0;
}
