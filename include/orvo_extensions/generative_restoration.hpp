/// Generative restoration: a whole edited picture goes to a service, which gives it back restored.
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
///   if (request.size == orvo::_Size<int>()) return; // there is no such picture
///   send(request.image);
///   const auto restored = restoration.applyResponse("answer.png");
class ORVO_EXPORT GenRestorationProcessor
{
public:
    /// What a request may have at most.
    struct ORVO_EXPORT RequestRestrictions
    {
        _Size<int> maxSize = {2700, 2700};    ///< pixels of the picture
        std::int32_t maxBase64Size = 7340032; ///< characters of its text
    };

    struct ORVO_EXPORT Request
    {
        std::string image; ///< a PNG in base64
        _Size<int> size;   ///< of that picture; (0, 0) if nothing could be made
    };

    /// The document is opened by generateRequest(). `settings` may hold a saved composition (Composer::load());
    /// `presetsPath`, a folder of presets, may be empty.
    GenRestorationProcessor(const std::filesystem::path& path, const StateSettings& settings,
                            const std::filesystem::path& presetsPath);
    ~GenRestorationProcessor();
    GenRestorationProcessor(const GenRestorationProcessor&) = delete;
    GenRestorationProcessor& operator=(const GenRestorationProcessor&) = delete;

    /// Both count from the next request on.
    void setRequestRestrictions(const RequestRestrictions& restrictions);
    void setEncodeParameters(const Base64EncodeParameters& parameters);

    /// Renders the document, its crop where it has one, within the restrictions, with its proportions kept; it is never
    /// enlarged. A text that is too long makes it smaller, down to a few pixels, where the shortest text comes even if
    /// it is still too long. A file that is no picture gives an empty request and one log line of level Warning. Passes
    /// on what the composition and the encoder throw: std::runtime_error, std::invalid_argument, std::bad_alloc.
    /// Peak: the decoded document and the rendered picture.
    [[nodiscard]] Request generateRequest();

    /// The service's picture in sRGB, as a new picture; empty if the file is none. Peak: the picture twice.
    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> applyResponse(const std::filesystem::path& file);

private:
    std::unique_ptr<GenRestorationProcessorImpl> impl;
};

} // namespace orvo
