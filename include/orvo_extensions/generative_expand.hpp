/// Generative expand: the canvas grows beyond the picture, and a service paints the new border.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/crop_description.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/identifier.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_extensions/generative_processor.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace orvo {

class GenerativeExpandImpl;

/// An expand tool on one picture, whose canvas grows with every answer.
///
/// A membrane matches the answer's colours to the known picture, so that a colour difference leaves no seam. The answer
/// is then blended in through a mask that fades into the picture.
///
/// Example:
///   GenerativeExpandProcessor expand(StateSource{"picture.jpg", {}, {}});  // 6000 x 4000
///   CropDescription crop;
///   crop.rect = {-600, 0, 7200, 4000};  // a tenth more on the left and on the right
///   expand.generateRequest("request 1", crop, {}, [](auto request) { if (request.valid) send(std::move(request)); });
///   // ... and once the answer has arrived:
///   const auto before = expand.storeState();
///   expand.applyGeneratedResponse(answer, sizeThatWasSent);
///   expand.setRenderContext({{1500, 833}, {0, 0, 7200, 4000}}, true);  // the canvas has a new size
class ORVO_EXPORT GenerativeExpandProcessor : public GenerativeProcessorBase
{
public:
    explicit GenerativeExpandProcessor(const StateSource& source);
    explicit GenerativeExpandProcessor(std::shared_ptr<Composer> composer);
    explicit GenerativeExpandProcessor(std::shared_ptr<const _ImageData<PixelRGB<float>>> data);
    /// Removes the temporary files of stored states.
    ~GenerativeExpandProcessor() override;

    /// Prepares the new border of the canvas given by `crop.rect`, with the picture beside it: the border is gray, and
    /// white in the mask. The crop's angle is unused. If there is no border, the whole picture is sent. Limits: borders
    /// of 2000 pixels, and for the known part of the request 8000000 pixels, 9000000 characters and an aspect ratio of
    /// 2.45, met as closely as possible; the request as a whole may be larger. A request at full scale carries the
    /// feathered mask that blends the answer, so a service must paint wherever the mask is above 0. `size` is unused.
    /// `callback` runs on a thread of its own; for an empty crop it runs on the worker, with an invalid record. A new
    /// request replaces the previous one.
    void generateRequest(const std::string& id, const CropDescription& crop, _Size<int> size,
                         std::function<void(RequestInput)> callback);
    /// The canvas of the last request, or the picture's size before any. getCanvasSize() follows once the answer is in.
    [[nodiscard]] _Size<int> requestedCanvasSize() const { return requestedCanvas; }

    void applyGeneratedResponse(const std::filesystem::path& file, _Size<int> size) override;
    void applyGeneratedResponse(const std::string& response, _Size<int> size) override;

    std::vector<unsigned char> storeState() override;
    /// Restores the state's canvas sizes immediately. Renders the underlay only: the canvas may have changed, so the
    /// main channel needs a new context.
    void restoreState(const std::vector<unsigned char>& state, std::function<void(OutState)> done) override;

private:
    void initializeImpl(std::shared_ptr<Image>&& image);
    void applyGeneratedResponse(std::function<std::shared_ptr<_ImageData<PixelRGB<float>>>()> source, _Size<int> size);

    _Size<int> requestedCanvas;
    std::unique_ptr<GenerativeExpandImpl> expandImpl;
    /// For each stored state: the requested canvas and the actual one.
    std::unordered_map<std::shared_ptr<const Identifier>, std::pair<_Size<int>, _Size<int>>, Hasher, PredEqual>
        canvasSizes;
};

} // namespace orvo
