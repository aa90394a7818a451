/// Generative expand: the canvas grows beyond the picture, a service paints the new border.
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

/// An expand tool on one picture, which grows with every answer.
///
/// The answer is tied to the known picture by a membrane before it is put in, so that a difference in colour leaves no
/// seam; it counts through a mask that fades into the picture.
///
/// Example:
///   GenerativeExpandProcessor expand(StateSource{"picture.jpg", {}, {}});  // 6000 x 4000
///   CropDescription crop;
///   crop.rect = {-600, 0, 7200, 4000};  // a tenth more on the left and on the right
///   expand.generateRequest("request 1", crop, {}, [](auto request) { if (request.valid) send(std::move(request)); });
///   // ... and when the answer is there:
///   const auto before = expand.storeState();
///   expand.applyGeneratedResponse(answer, sizeThatWasSent);
///   expand.setRenderContext({{1500, 833}, {0, 0, 7200, 4000}}, true);  // the canvas has another size now
class ORVO_EXPORT GenerativeExpandProcessor : public GenerativeProcessorBase
{
public:
    explicit GenerativeExpandProcessor(const StateSource& source);
    explicit GenerativeExpandProcessor(std::shared_ptr<Composer> composer);
    explicit GenerativeExpandProcessor(std::shared_ptr<const _ImageData<PixelRGB<float>>> data);
    /// Removes the files of stored states.
    ~GenerativeExpandProcessor() override;

    /// Prepares the part of the canvas of `crop` that is to be painted: what lies beyond the picture is gray, and white
    /// in the mask. The crop's angle is not used. Without border to paint the whole picture is sent. Borders of at most
    /// 2000 pixels, and of the known picture in the request at most 8000000 pixels, 9000000 characters and sides of 1
    /// to 2.45, as nearly as it can be done; the request itself may be larger. A request that is not made smaller has
    /// the mask that the answer is blended by, which fades: whoever answers takes all above 0 for new. `size` is not
    /// used. `callback` comes on a thread of its own; on the worker, with a record that is not valid, if the crop is
    /// empty. A second request takes the place of the first one.
    void generateRequest(const std::string& id, const CropDescription& crop, _Size<int> size,
                         std::function<void(RequestInput)> callback);
    /// Of the last request; the picture's own before the first. getCanvasSize() follows when the answer comes.
    [[nodiscard]] _Size<int> requestedCanvasSize() const { return requestedCanvas; }

    void applyGeneratedResponse(const std::filesystem::path& file, _Size<int> size) override;
    void applyGeneratedResponse(const std::string& response, _Size<int> size) override;

    std::vector<unsigned char> storeState() override;
    /// The canvas sizes of the state are back at once. Renders the underlay alone: the canvas has changed, and the main
    /// channel needs a new context.
    void restoreState(const std::vector<unsigned char>& state, std::function<void(OutState)> done) override;

private:
    void initializeImpl(std::shared_ptr<Image>&& image);
    void applyGeneratedResponse(std::function<std::shared_ptr<_ImageData<PixelRGB<float>>>()> source, _Size<int> size);

    _Size<int> requestedCanvas;
    std::unique_ptr<GenerativeExpandImpl> expandImpl;
    /// For each stored state: what was requested, and the canvas.
    std::unordered_map<std::shared_ptr<const Identifier>, std::pair<_Size<int>, _Size<int>>, Hasher, PredEqual>
        canvasSizes;
};

} // namespace orvo
