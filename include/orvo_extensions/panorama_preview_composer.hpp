/// Making a panorama interactively: load, look, turn, crop, finish.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_core/crop_description.hpp>
#include <orvo_core/geometry.hpp>
#include <orvo_core/image_data.hpp>
#include <orvo_extensions/failure.hpp>
#include <orvo_extensions/panorama.hpp>
#include <orvo_extensions/preview.hpp>
#include <orvo_extensions/warp_type.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace orvo {

/// How a composer schedules.
struct ComposerConfiguration
{
    bool replacesWaitingRenders = true; ///< a new render of a channel takes the place of the one that still waits
    bool option0 = false;               ///< kept
    bool option1 = false;               ///< kept
};

struct PanoramaPreviewComposerPrivate;

/// A panorama in an editor. The canvas is the outer rectangle of the current projection at the resolution of the
/// pictures; rectangles of views and crops count from its upper left corner.
///
/// The application calls it from one thread at a time. Unless its comment says otherwise a method returns at once: what
/// it asks for runs on the composer's one worker, in the order of the calls. All callbacks come from that worker; the
/// application hands results over to its own thread. A callback may call any method, and may drop the composer. No
/// method throws; what fails is logged as a warning, and a render that fails or is cancelled calls no callback, while
/// getCropPreview(), getFinalizePreview() and finalize() always answer, with isPlaceholder set if there is nothing to
/// show. The completion of a load and the callback of finalize() find the reason in lastFailure() of their own thread.
/// Pictures are in sRGB, the profile that they carry.
///
/// Two channels show the panorama: main, the view of setContext(), and the underlay, which is everything. At most one
/// render waits in each (see ComposerConfiguration); one that runs goes on to its end.
///
/// Example:
///   PanoramaPreviewComposer composer(source);
///   composer.setCallback([](RenderedData view) { show(std::move(view)); });
///   composer.loadWithCompletion([](bool fits, _Rect<int> extent) { ... });
///   composer.setContext({{1500, 750}, {0, 0, 8000, 4000}});
///   composer.startFastRender();
///   composer.setShiftVector({0.1f, 0.0f}); // as often as the pointer moves
///   composer.finishFastRender();
///   composer.getCropPreview({1500, 750}, [](RenderedData all, _Rect<int> proposal) { ... });
///   composer.finalize(cropInfo, [](RenderedData picture) { ... });
class ORVO_EXPORT PanoramaPreviewComposer
{
public:
    /// A crop that the user chose.
    struct CropInfo
    {
        CropDescription crop; ///< in pixels of a picture of `context.size` that shows `context.roi`; default: no crop
        /// `size`: of the picture for which the crop was made. `roi`: the part of the canvas that the result is to
        /// cover, as getCropPreview() reports it.
        PreviewContext context;
        std::shared_ptr<void> option; ///< kept
    };

    /// The starting projection is that of the source's settings. Throws std::bad_alloc, std::system_error.
    explicit PanoramaPreviewComposer(const PanoSource& source);
    explicit PanoramaPreviewComposer(const PanoSourceVideo& source);
    explicit PanoramaPreviewComposer(const PanoSourceHDR& source);
    /// Drops what waits and returns when what runs has ended; callbacks may come until then. After cancelAll() that is
    /// soon. From a callback it returns at once.
    ~PanoramaPreviewComposer();
    PanoramaPreviewComposer(const PanoramaPreviewComposer&) = delete;
    PanoramaPreviewComposer& operator=(const PanoramaPreviewComposer&) = delete;

    /// Reads and registers the pictures, then draws the underlay. `completion` gets whether they fit together, and the
    /// tight rectangle of the panorama on the sphere, in pixels of its canvas; may be empty. May be called again. If it
    /// throws, it is called once more with false.
    void loadWithCompletion(const std::function<void(bool, _Rect<int>)>& completion);
    /// The progress of a load, 0 to 1; may be empty. To be called before the load, and at once in effect.
    void setLoadCallback(std::function<void(float)> progress);
    /// Stops everything for good: loads end with false, renders without an answer. For the end of the object's use.
    void cancelAll();

    /// Video only: frames `start` .. `end` - 1 from the next load on. Not while a load runs; at once in effect.
    void setVideoInterval(std::uint64_t start, std::uint64_t end);
    /// Video only: registers anew with these frames, of which only the rectangles may show. Draws nothing by itself.
    void setCompositionParams(const std::vector<std::uint64_t>& frames, const std::vector<_Rect<int>>& rects);

    /// The canvas of the current projection. Answers at once; not while a load runs.
    [[nodiscard]] _Size<int> getCanvasSize() const;
    /// Half the canvas, in whole pixels. Answers at once; not while a load runs.
    [[nodiscard]] _Point<float> getCurrentCenterPointPosition() const;

    /// Which pictures of the last load belong to the panorama, and their directions in the view that no turn has
    /// changed, in the order of the source. The path of a bracket is the first of its paths. Empty for videos. Answers
    /// at once; not while a load runs.
    [[nodiscard]] std::vector<PanoramaPlace> getPlaces() const;

    [[nodiscard]] WarpType getProjectionType() const;
    /// Draws the underlay in another projection; the main view follows with the next setContext().
    void changeProjectionType(WarpType type);

    /// The receiver of main views: of exactly the size asked for, or of the part's if that is smaller, black and with a
    /// mask of 0 where the panorama shows nothing.
    void setCallback(std::function<void(RenderedData)> callback);
    [[nodiscard]] std::function<void(RenderedData)> getCallback() const;
    /// The receiver of underlays: the whole canvas within 1500 pixels. Draws one.
    void setUnderlayCallback(std::function<void(RenderedData)> callback);
    /// Instead of it, the receiver of what the canvas holds, about 2000 pixels long: picture, mask, and where it lies
    /// on the canvas. Draws one.
    void setUnderlayMeaningfulPartCallback(std::function<void(std::shared_ptr<const _ImageData<PixelRGB<float>>>,
                                                              std::shared_ptr<const _ImageData<float>>, _Rect<int>)>
                                               callback);
    /// The main view, which is drawn. One without a size or a part is logged and changes nothing.
    void setContext(PreviewContext context);

    /// Between these two renders are fast and rough, and moves count from where the view was at the start.
    void startFastRender();
    void finishFastRender();
    /// Turns the view by fractions of the canvas: the picture moves by (x, y), right and down. Draws the main view.
    void setShiftVector(_Point<float> shift);
    /// Turns the view by `angle` radians about the middle of the main view: the picture turns counter-clockwise, so the
    /// angle that getHorizonAngle() reports levels it. Draws the main view. Shift and rotation replace each other; each
    /// counts from where startFastRender() found the view.
    void setRotation(float angle);
    /// Always 0.
    [[nodiscard]] float getRotation() const;
    /// Takes all turns back, and draws both channels.
    void resetAlignmentAdjustments();

    /// The whole panorama over white, and the largest rectangle that it fills, as a crop of that picture. The shorter
    /// side of `size` is that of the picture; the canvas's size or (0, 0): full resolution. The answer's `context.roi`
    /// is where the picture lies on the canvas. The answer is kept for getFinalizePreview(), until the next render.
    void getCropPreview(_Size<int> size, std::function<void(RenderedData, _Rect<int>)> callback);
    /// The crop, cut out of the kept picture. A picture of another `size` than (0, 0) is drawn if it is not kept. Gray
    /// if `info.context.roi` is not that of the kept picture.
    void getFinalizePreview(CropInfo info, std::function<void(RenderedData)> callback, _Size<int> size);
    /// The finished picture: `info.context.roi` at full resolution over white, cut by the crop. Gray as above.
    void finalize(CropInfo info, std::function<void(RenderedData)> callback);
    /// By how many radians the horizon of a picture is turned, clockwise; 0 if none can be found. On the caller's
    /// thread.
    [[nodiscard]] float getHorizonAngle(std::shared_ptr<const _ImageData<PixelRGB<float>>> image);

    void setConfiguration(ComposerConfiguration configuration);
    /// Calling points without an effect.
    void startSetup();
    void finishSetup();

private:
    enum class Channel;

    void renderMain();
    void renderUnderlay();
    static RenderedData createFullPanorama(PanoramaPreviewComposerPrivate& state, WarpType type, _Size<int> size,
                                           _Rect<int> roi);
    static _Size<int> calculatePreviewSize(PanoramaPreviewComposerPrivate& state, WarpType type, _Size<int> size);
    friend struct PanoramaPreviewComposerPrivate;

    std::shared_ptr<PanoramaPreviewComposerPrivate> state; // the running operation holds it too
};

/// The largest rectangle of pixels above 0 in the largest region, whose holes count as filled, in the mask's pixels:
/// its left and upper sides 10 pixels further in. Of equal areas the flattest wins, then the topmost. Nothing above 0
/// gives (5, 5, -10, -10).
[[nodiscard]] ORVO_EXPORT _Rect<int> inscribedRectOfMask(const _ImageData<float>& mask);

} // namespace orvo
