/// The base of the generative tools: renders of the edited picture, requests to a remote service, its answers, and
/// states for undo.
///
/// A tool never touches the network. It prepares a request; the application sends it and passes the answer back.
///
/// Threads: the application calls a processor from one thread at a time, and every method returns at once. All work on
/// the picture runs on the processor's single worker, in call order. A second worker delivers the renders, one after
/// another; every other callback runs on a thread of its own unless its method says otherwise. A callback may destroy
/// the processor.
///
/// In the callback of a request, a state or an export, lastFailure() is the reason why the record has no content; after
/// a constructor, the reason why nothing was opened. What goes wrong with an answer or while a state is stored, for
/// which there is no such callback, goes to that of setFailureCallback().
///
/// A constructor that cannot open its picture logs the reason and leaves a processor with an empty canvas, whose
/// methods do nothing.
#pragma once

#include <orvo/image_loader.hpp>
#include <orvo_common/export.hpp>
#include <orvo_common/failure.hpp>
#include <orvo_core/color_profile.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_extensions/preview.hpp>
#include <orvo_logger/logstream.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvo {

class Composer;
class GenerativeProcessorBaseImpl;

/// An image on disk and the settings to open it with (openNoEmpty()).
struct ORVO_EXPORT StateSource
{
    std::filesystem::path path;
    StateSettings settings;
    std::filesystem::path presetsPath; ///< folder of presets; may be empty
};

namespace NoAlphaRender {

/// A render. The pictures are shared and immutable.
struct ORVO_EXPORT Data
{
    std::shared_ptr<const _ImageData<PixelRGB<float>>> image;
    std::shared_ptr<const _ImageData<PixelRGB<float>>> unedited; ///< before any edit; empty outside of compare mode
    PreviewContext context; ///< as requested, even if part of it lies outside the picture
};

} // namespace NoAlphaRender

class ORVO_EXPORT GenerativeProcessorBase
{
public:
    using RenderCallback = std::function<void(NoAlphaRender::Data)>;
    using FailureCallback = std::function<void(Failure)>;

    /// One render channel.
    struct Update
    {
        RenderCallback callback; ///< empty: the channel is off
        PreviewContext context;
        std::shared_ptr<ColorProfile> colorProfile =
            ColorProfileType::melissaRGB(); ///< the renders are delivered in it
    };

    struct Configuration
    {
        bool keepPendingRenders = false; ///< true: every render runs; false: a new one replaces the one that waits
    };

    /// A request for the service.
    struct RequestInput
    {
        std::string image;      ///< a PNG in base64
        std::string mask;       ///< a gray PNG of the same size in base64; white marks what the service paints
        std::string id;         ///< as passed by the application
        std::int32_t width = 0; ///< pixels of `image`
        bool valid = false;     ///< false: nothing to send, everything but `id` is empty
    };

    /// The result of restoreState().
    struct OutState
    {
        std::vector<unsigned char> state; ///< as passed by the application
        std::string id; ///< of the last request before the state was stored; empty for an unknown state
    };

    explicit GenerativeProcessorBase(const StateSource& source);
    explicit GenerativeProcessorBase(const std::shared_ptr<Composer>& composer);
    explicit GenerativeProcessorBase(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& data);
    /// Blocks until all queued work is done.
    virtual ~GenerativeProcessorBase();
    GenerativeProcessorBase(const GenerativeProcessorBase&) = delete;
    GenerativeProcessorBase& operator=(const GenerativeProcessorBase&) = delete;

    /// Stores the picture as it is now. The returned bytes identify it to restoreState() of this processor only; they
    /// are empty on failure.
    virtual std::vector<unsigned char> storeState() = 0;
    /// Restores a stored picture. `done` may be empty.
    virtual void restoreState(const std::vector<unsigned char>& state, std::function<void(OutState)> done) = 0;
    /// Blends the service's picture, a file or the text of a data URL (a PNG in base64), into the area of the last
    /// request. `size` is the size of the picture that was sent, or (0, 0) if unknown.
    virtual void applyGeneratedResponse(const std::filesystem::path& file, _Size<int> size) = 0;
    virtual void applyGeneratedResponse(const std::string& response, _Size<int> size) = 0;

    /// The receiver of what ended applyGeneratedResponse() or the storing of a state, for calls made from now on; may
    /// be empty. The picture is then as it was before the answer.
    void setFailureCallback(FailureCallback callback);

    [[nodiscard]] _Size<int> getCanvasSize() const;

    /// Renders `context` for `callback`, now and after every edit.
    void initRender(RenderCallback callback, PreviewContext context);
    /// The same for the whole canvas, with sides of at most `maxSize` pixels.
    void initUnderlayRender(RenderCallback callback, int maxSize);
    /// Sets the main channel's view, and renders it now if `render` is set. The view is clipped to the picture, with a
    /// log line; a view that misses the picture shows all of it.
    void setRenderContext(PreviewContext context, bool render);
    /// Renders both channels in another profile. Does nothing if the pointer is the one already set.
    void changeColorProfile(std::shared_ptr<ColorProfile> profile);
    /// Renders the whole picture at full size in the main channel's profile. The record names melissaRGB() as its
    /// profile; if rendering fails, which is logged, it has no picture and is marked `isPlaceholder`.
    void generateDataForExport(std::function<void(RenderedData)> callback);

    /// While compare mode is on, each render carries the unedited picture as well. Finishing renders nothing.
    void beginCompareBlindMode();
    void finishCompareBlindMode();
    /// While quick preview is on, renders show the unedited picture only. Both calls render the main channel.
    void quickPreviewOn();
    void quickPreviewOff();

    /// True until an answer is applied, and again after restoring a state stored before any answer.
    [[nodiscard]] bool isInInitialState();
    void setConfiguration(const Configuration& newConfiguration);

protected:
    void renderAll(SourceLocation location = SourceLocation::current());
    /// `location` names the caller in log lines.
    void renderMain(SourceLocation location = SourceLocation::current());
    void renderUnderlay();
    void defineUnderlaySize();

    Update mainUpdate;
    FailureCallback failureCallback;
    Update underlayUpdate;
    std::unique_ptr<GenerativeProcessorBaseImpl> impl; ///< set by the derived tool
    Configuration configuration;
    bool compareBlindMode = false;
    bool quickPreview = false;
    std::int32_t underlayMaxSize = 1000; ///< pixels of the longest side
};

} // namespace orvo
