/// Generative restoration: a service restores a whole edited picture.
#pragma once

#include <orvo/image_loader.hpp>
#include <orvo_common/export.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_io/base64_image.hpp>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace orvo {

class GenRestorationProcessorImpl;

/// Prepares the request for one document and reads the answer. Blocks its caller; one thread at a time.
///
/// Example:
///   GenRestorationProcessor restoration("picture.jpg", {}, {});
///   const auto request = restoration.generateRequest();
///   if (request.size == orvo::_Size<int>()) return; // the picture cannot be opened
///   send(request.image);
///   const auto restored = restoration.applyResponse("answer.png");
class ORVO_EXPORT GenRestorationProcessor
{
public:
    /// The limits of a request.
    struct ORVO_EXPORT RequestRestrictions
    {
        _Size<int> maxSize = {2700, 2700};    ///< pixels of the picture
        std::int32_t maxBase64Size = 7340032; ///< characters of base64 text
    };

    struct ORVO_EXPORT Request
    {
        std::string image; ///< a PNG in base64
        _Size<int> size;   ///< of that picture; (0, 0) if there is none
    };

    /// generateRequest() opens the document, not the constructor. `settings` may hold a saved composition
    /// (Composer::load()); `presetsPath`, a folder of presets, may be empty.
    GenRestorationProcessor(const std::filesystem::path& path, const StateSettings& settings,
                            const std::filesystem::path& presetsPath);
    ~GenRestorationProcessor();
    GenRestorationProcessor(const GenRestorationProcessor&) = delete;
    GenRestorationProcessor& operator=(const GenRestorationProcessor&) = delete;

    /// Both take effect with the next request.
    void setRequestRestrictions(const RequestRestrictions& restrictions);
    void setEncodeParameters(const Base64EncodeParameters& parameters);

    /// Renders the document, or its crop if it has one, within the restrictions. Keeps the proportions and never
    /// enlarges. If the text is too long the picture shrinks, down to a few pixels; at that size the text is returned
    /// even if it is still too long. A file that is not a picture gives an empty request and one log line of level
    /// Warning. Passes on exceptions of the composition and the encoder: std::runtime_error, std::invalid_argument,
    /// std::bad_alloc. Peak: the decoded document and the rendered picture.
    [[nodiscard]] Request generateRequest();

    /// Reads the service's picture, an sRGB file. Empty if the file is not a picture. Peak: the picture twice.
    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> applyResponse(const std::filesystem::path& file);

private:
    std::unique_ptr<GenRestorationProcessorImpl> impl;
};

} // namespace orvo
