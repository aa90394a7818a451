/// Pictures as text: PNG in base64 (RFC 4648), encoded and decoded in memory.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/image_data.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace orvo {

/// How to encode a picture.
struct ORVO_EXPORT Base64EncodeParameters
{
    std::int32_t format = 0; ///< 0: PNG, the only one
    std::int32_t bits = 16;  ///< per sample: 8 or 16

    constexpr Base64EncodeParameters() = default;
    constexpr Base64EncodeParameters(std::int32_t format_, std::int32_t bits_) : format(format_), bits(bits_) {}
    bool operator==(const Base64EncodeParameters&) const = default;
};

/// The picture in sRGB, or as it is where it has no profile, as the text of a PNG: values are limited to 0..1 and
/// rounded to the nearest, NaN becomes 0. The text is one line with padding, the same for any number of threads. Throws
/// std::invalid_argument on an empty picture or on parameters that are not offered. Any thread; compresses on all
/// cores. Peak: the file and its text, and 16 MB.
[[nodiscard]] ORVO_EXPORT std::string imageToBase64(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& picture,
                                                    const Base64EncodeParameters& parameters);
/// A mask as a gray PNG, 1.0 white.
[[nodiscard]] ORVO_EXPORT std::string imageToBase64(const std::shared_ptr<const _ImageData<float>>& mask,
                                                    const Base64EncodeParameters& parameters);

/// Larger pictures are not decoded, so that a small text that decompresses to a huge picture does not fill memory. The
/// largest request is one for an expansion: 8 megapixels of the picture with borders of 2000 pixels all around are up
/// to 49 megapixels, and an answer may be somewhat larger.
inline constexpr std::int64_t kMostDecodedPixels = 100'000'000;

/// Decodes such a text to a picture in sRGB. Accepts 1 to 16 bits, gray, palette and interlacing; alpha is blended over
/// black. Skips white space; padding is optional. Empty, with one log line of level Warning, if the text is not base64
/// of a complete PNG of at most kMostDecodedPixels. Never throws. Any thread. Peak: the file, the result, and some rows
/// (interlaced: one plane of the file's samples).
[[nodiscard]] ORVO_EXPORT std::shared_ptr<_ImageData<PixelRGB<float>>>
convertToImageData(std::string_view text) noexcept;

} // namespace orvo
