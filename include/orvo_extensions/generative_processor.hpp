/// What the generative tools have in common: renders of the picture that is being edited, requests to a remote service,
/// its answers, and states to go back to.
///
/// A tool never touches the network. It prepares a request, the application sends it and brings the answer.
///
/// Threads: the application calls a processor from one thread at a time, and every method returns at once. All work on
/// the picture runs on the processor's one worker, in the order of the calls. Renders are delivered on a second worker,
/// one after the other; every other callback comes on a thread of its own, except where its method says so. A callback
/// may drop the processor.
///
/// A constructor that cannot open its picture logs why and makes a processor of an empty canvas, whose methods do
/// nothing.
#pragma once

#include <orvo/image_loader.hpp>
#include <orvo_common/export.hpp>
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

/// An image on disk, and how it is opened (openNoEmpty()).
struct ORVO_EXPORT StateSource
{
    std::filesystem::path path;
    StateSettings settings;
    std::filesystem::path presetsPath; ///< folder of presets; may be empty
};

namespace NoAlphaRender {

/// A render. The pictures are shared, and nobody changes them.
struct ORVO_EXPORT Data
{
    std::shared_ptr<const _ImageData<PixelRGB<float>>> image;
    std::shared_ptr<const _ImageData<PixelRGB<float>>> unedited; ///< before any change; empty unless it is compared
    PreviewContext context; ///< what was asked for, also where less of it lies inside the picture
};

} // namespace NoAlphaRender

class ORVO_EXPORT GenerativeProcessorBase
{
public:
    using RenderCallback = std::function<void(NoAlphaRender::Data)>;

    /// One render channel.
    struct Update
    {
        RenderCallback callback; ///< empty: the channel is off
        PreviewContext context;
        std::shared_ptr<ColorProfile> colorProfile = ColorProfileType::melissaRGB(); ///< of what is delivered
    };

    struct Configuration
    {
        bool keepPendingRenders = false; ///< true: every render runs; false: a new one takes the waiting one's place
    };

    /// A request for the service.
    struct RequestInput
    {
        std::string image;      ///< a PNG in base64
        std::string mask;       ///< a gray PNG of the same size in base64, white where the service is to paint
        std::string id;         ///< as the application gave it
        std::int32_t width = 0; ///< pixels of `image`
        bool valid = false;     ///< false: there is nothing to send; everything but `id` is empty
    };

    /// The answer to restoreState().
    struct OutState
    {
        std::vector<unsigned char> state; ///< as the application gave them
        std::string id;                   ///< of the request that the state knew; empty if there is no such state
    };

    explicit GenerativeProcessorBase(const StateSource& source);
    explicit GenerativeProcessorBase(const std::shared_ptr<Composer>& composer);
    explicit GenerativeProcessorBase(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& data);
    /// Returns when the work that waits has been done.
    virtual ~GenerativeProcessorBase();
    GenerativeProcessorBase(const GenerativeProcessorBase&) = delete;
    GenerativeProcessorBase& operator=(const GenerativeProcessorBase&) = delete;

    /// Keeps the picture as it is now. The bytes name it for restoreState() of this processor, in no other one; they
    /// are empty if it failed.
    virtual std::vector<unsigned char> storeState() = 0;
    /// Goes back to a stored picture. `done` may be empty.
    virtual void restoreState(const std::vector<unsigned char>& state, std::function<void(OutState)> done) = 0;
    /// Puts the service's picture, a file or the text of a data URL (a PNG in base64), in the place of the last
    /// request. `size` is that of the picture that was sent; (0, 0) where it is not known.
    virtual void applyGeneratedResponse(const std::filesystem::path& file, _Size<int> size) = 0;
    virtual void applyGeneratedResponse(const std::string& response, _Size<int> size) = 0;

    [[nodiscard]] _Size<int> getCanvasSize() const;

    /// Renders `context` for `callback`, now and after every change.
    void initRender(RenderCallback callback, PreviewContext context);
    /// The same for the whole canvas at no more than `maxSize` pixels a side.
    void initUnderlayRender(RenderCallback callback, int maxSize);
    /// The main channel's next view; rendered now if `render` says so. A part outside of the picture is logged and left
    /// out; if nothing remains the whole picture is shown.
    void setRenderContext(PreviewContext context, bool render);
    /// Renders both channels in another profile; the pointer that is set already does nothing.
    void changeColorProfile(std::shared_ptr<ColorProfile> profile);
    /// The whole picture at full size, in the main channel's profile. The record names melissaRGB() as its profile.
    void generateDataForExport(std::function<void(RenderedData)> callback);

    /// Between these two each render carries the unedited picture, too. Ending it renders nothing.
    void beginCompareBlindMode();
    void finishCompareBlindMode();
    /// Between these two renders show the unedited picture alone. Both render the main channel.
    void quickPreviewOn();
    void quickPreviewOff();

    /// No answer has been put in, or a state was restored from before there was one.
    [[nodiscard]] bool isInInitialState();
    void setConfiguration(const Configuration& newConfiguration);

protected:
    void renderAll(SourceLocation location = SourceLocation::current());
    /// `location` names the caller in log lines.
    void renderMain(SourceLocation location = SourceLocation::current());
    void renderUnderlay();
    void defineUnderlaySize();

    Update mainUpdate;
    Update underlayUpdate;
    std::unique_ptr<GenerativeProcessorBaseImpl> impl; ///< set by the tool
    Configuration configuration;
    bool compareBlindMode = false;
    bool quickPreview = false;
    std::int32_t underlayMaxSize = 1000; ///< pixels of the longest side
};

} // namespace orvo
