/// Generative erase: the user paints over what is to vanish, a service paints what was behind it.
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
/// Drawing happens in phases. Between beginDrawing() and finishDrawing() the mask belongs to the brush; outside of a
/// phase it is finished and can be sent. A call out of order is logged as a warning and does nothing, though the render
/// that follows it still runs. Points and radii are pixels of the picture.
///
/// The answer is put in through the mask, which fades outward: what lies outside of it stays as it is, bit by bit.
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
///   // ... and when the answer is there:
///   const auto before = erase.storeState();
///   erase.applyGeneratedResponse(answer, sizeThatWasSent);
///   erase.restoreState(before, {}); // takes it back
class ORVO_EXPORT GenerativeEraseProcessor : public GenerativeProcessorBase
{
public:
    explicit GenerativeEraseProcessor(const StateSource& source);
    explicit GenerativeEraseProcessor(std::shared_ptr<Composer> composer);
    explicit GenerativeEraseProcessor(std::shared_ptr<const _ImageData<PixelRGB<float>>> data);
    /// Removes the files of stored masks and states.
    ~GenerativeEraseProcessor() override;

    /// Opens a phase, with the mask of the last one.
    void beginDrawing();
    void finishDrawing();
    /// The callbacks are not called.
    void startStroke(std::function<void()>, std::function<void()>);
    void stroke(const _Point<float>& point, std::shared_ptr<const BaseBrushSettings> settings);
    /// The brush may change from batch to batch. Only RoundBrushSettings are known. Renders the main channel.
    void strokePoints(const std::vector<_Point<float>>& points, std::shared_ptr<const BaseBrushSettings> settings);
    void finishStroke(std::function<void()>, std::function<void()>);
    void setDrawingMode(const DrawingMode& mode);
    /// Shows the mask over renders also while nothing is drawn. Needs no phase.
    void setShowMask(bool show);
    void clearMask();

    /// Keeps the mask as it is now, for going back stroke by stroke. Three are kept in memory, older ones in files.
    std::vector<unsigned char> storeMask();
    void restoreMask(const std::vector<unsigned char>& state);

    /// Prepares the picture around the mask and the mask for the service: at most 8000000 pixels for both, 9000000
    /// characters of text for both, and sides of at most 1 to 2.45, as nearly as it can be done. `size` is not used.
    /// `callback` comes on a thread of its own; on the worker, with a record that is not valid, if the mask is empty or
    /// a phase is open.
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
