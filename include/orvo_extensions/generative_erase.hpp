/// Generative erase: the user paints over what should disappear, and a service paints what was behind it.
#pragma once

#include <orvo_brush/brush_settings.hpp>
#include <orvo_common/export.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_extensions/generative_processor.hpp>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvo {

class GenerativeEraseProcessorImpl;

/// An erase tool on one picture.
///
/// Drawing happens in phases. Between beginDrawing() and finishDrawing() the brush changes the mask; outside of a phase
/// the mask is final and can be sent. A call out of order logs a warning and changes nothing, although its render still
/// runs. Points and radii are in pixels of the picture.
///
/// The answer is blended in through the mask, feathered outward. Pixels beyond the feather stay bit-exact.
///
/// Example:
///   GenerativeEraseProcessor erase(StateSource{"picture.jpg", {}, {}});
///   erase.initRender([](NoAlphaRender::Data view) { show(view.image); }, {{1500, 1000}, {0, 0, 6000, 4000}});
///   erase.beginDrawing();
///   erase.startStroke({}, {});
///   erase.stroke({2000, 1500}, std::make_shared<RoundBrushSettings>(80.0f, 0.3f, 1.0f));
///   erase.finishStroke({}, {});
///   erase.finishDrawing();
///   erase.generateRequest("request 1", {}, [](auto request) { if (request.valid) send(std::move(request)); });
///   // ... and once the answer has arrived:
///   const auto before = erase.storeState();
///   erase.applyGeneratedResponse(answer, sizeThatWasSent);
///   erase.restoreState(before, {}); // undo
class ORVO_EXPORT GenerativeEraseProcessor : public GenerativeProcessorBase
{
public:
    explicit GenerativeEraseProcessor(const StateSource& source);
    explicit GenerativeEraseProcessor(std::shared_ptr<Composer> composer);
    explicit GenerativeEraseProcessor(std::shared_ptr<const _ImageData<PixelRGB<float>>> data);
    /// Removes the temporary files of stored masks and states.
    ~GenerativeEraseProcessor() override;

    /// Opens a phase. The mask of the previous one is kept.
    void beginDrawing();
    void finishDrawing();
    /// Never calls the callbacks.
    void startStroke(std::function<void()>, std::function<void()>);
    void stroke(const _Point<float>& point, std::shared_ptr<const BaseBrushSettings> settings);
    /// The brush may change between batches. RoundBrushSettings is the only supported kind. Renders the main channel.
    void strokePoints(const std::vector<_Point<float>>& points, std::shared_ptr<const BaseBrushSettings> settings);
    void finishStroke(std::function<void()>, std::function<void()>);
    void setDrawingMode(const DrawingMode& mode);
    /// Shows the mask over renders outside of a phase, too. Works at any time.
    void setShowMask(bool show);
    void clearMask();

    /// Stores the mask for stroke-by-stroke undo. The last three stay in memory, older ones in temporary files.
    std::vector<unsigned char> storeMask();
    void restoreMask(const std::vector<unsigned char>& state);

    /// Prepares the mask and the picture around it for the service: together at most 8000000 pixels and 9000000
    /// characters of text, with an aspect ratio of at most 2.45; a request that cannot meet these is as small as
    /// possible. `size` is unused. `callback` runs on a thread of its own; with an empty mask or an open phase it runs
    /// on the worker, with an invalid record.
    void generateRequest(const std::string& id, _Size<int> size, std::function<void(RequestInput)> callback);
    void applyGeneratedResponse(const std::filesystem::path& file, _Size<int> size) override;
    void applyGeneratedResponse(const std::string& response, _Size<int> size) override;

    std::vector<unsigned char> storeState() override;
    void restoreState(const std::vector<unsigned char>& state, std::function<void(OutState)> done) override;

private:
    void initializeImpl(std::shared_ptr<Image>&& image);
    void applyGeneratedResponse(std::function<std::shared_ptr<_ImageData<PixelRGB<float>>>()> source, _Size<int> size);

    GenerativeEraseProcessorImpl* eraseImpl = nullptr; // the same object as `impl`
};

} // namespace orvo
