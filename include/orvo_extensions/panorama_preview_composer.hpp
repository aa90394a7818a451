/// Interactive panoramas: load, view, turn, crop, finish.
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

/// Scheduling of a composer.
struct ComposerConfiguration
{
    bool replacesWaitingRenders = true; ///< a new render of a channel replaces the waiting one
    bool option0 = false;               ///< stored only
    bool option1 = false;               ///< stored only
};

struct PanoramaPreviewComposerPrivate;

/// A panorama in an editor. The canvas is the outer rectangle of the current projection at the resolution of the
/// pictures; rectangles of views and crops count from its upper left corner.
///
/// The application calls the composer from one thread at a time. Methods return at once unless their comments differ:
/// the work runs on the composer's one worker, in the order of the calls. All callbacks run on that worker; the
/// application passes results to its own thread. A callback may call any method, and may own or drop the composer. No
/// method throws; failures are logged as warnings. A render that fails or is cancelled does not call its receiver, but
/// getCropPreview(), getFinalizePreview() and finalize() always call their callbacks unless the composer is destroyed
/// while they wait, with isPlaceholder set if there is no result. These callbacks and the completion of a load find the
/// reason in lastFailure() of their thread; a callback that throws is called again, without a result. Pictures are in
/// sRGB, the profile that they carry.
///
/// Two channels show the panorama: main, the view of setContext(), and the underlay, the whole panorama. At most one
/// render waits in each (see ComposerConfiguration); a running one continues to its end.
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
        /// In pixels of a picture of `context.size` that shows `context.roi`; default: no crop. An angle needs a
        /// rectangle: without one the crop is a single pixel.
        CropDescription crop;
        /// `size`: of the picture for which the crop was made. `roi`: the part of the canvas that the result covers, as
        /// getCropPreview() reports it.
        PreviewContext context;
        std::shared_ptr<void> option; ///< stored only
    };

    /// The initial projection is that of the source's settings. Throws std::bad_alloc, std::system_error.
    explicit PanoramaPreviewComposer(const PanoSource& source);
    explicit PanoramaPreviewComposer(const PanoSourceVideo& source);
    explicit PanoramaPreviewComposer(const PanoSourceHDR& source);
    /// Drops waiting operations and returns when the running one has ended; callbacks may run until then. cancelAll()
    /// makes this short. From a callback it returns at once, cancels what that callback belongs to, and no further
    /// callback is called.
    ~PanoramaPreviewComposer();
    PanoramaPreviewComposer(const PanoramaPreviewComposer&) = delete;
    PanoramaPreviewComposer& operator=(const PanoramaPreviewComposer&) = delete;

    /// Reads and registers the pictures, then draws the underlay. `completion` receives whether they fit together, and
    /// the tight rectangle of the panorama on the sphere, in pixels of its canvas; may be empty. If it throws, it is
    /// called again with false. Loading again is possible.
    void loadWithCompletion(const std::function<void(bool, _Rect<int>)>& completion);
    /// The progress of a load, 0 to 1; may be empty. Takes effect at once; call it before the load.
    void setLoadCallback(std::function<void(float)> progress);
    /// The progress of each piece of work after reading, 0 to 1: the registration of a load, then every drawing. Called
    /// on the worker; may be empty. Takes effect at once; call it before the load.
    void setWorkCallback(std::function<void(float)> progress);
    /// Stops everything permanently: loads end with false, renders without a callback. For the end of the object's use.
    /// From any thread. What has no point to stop at is finished first: the reading of one file, the reading of
    /// composition frames, and the small sphere that a drag and resetAlignmentAdjustments() draw.
    void cancelAll();

    /// Video only: uses the frames `start` .. `end` - 1 from the next load on. Takes effect at once; not while a load
    /// runs.
    void setVideoInterval(std::uint64_t start, std::uint64_t end);
    /// Video only: registers again with these frames, of which only the rectangles are used. Draws nothing.
    void setCompositionParams(const std::vector<std::uint64_t>& frames, const std::vector<_Rect<int>>& rects);

    /// The canvas of the current projection. Not while a load runs.
    [[nodiscard]] _Size<int> getCanvasSize() const;
    /// Half the canvas, in whole pixels. Not while a load runs.
    [[nodiscard]] _Point<float> getCurrentCenterPointPosition() const;

    /// Which pictures of the last load belong to the panorama, and their directions in the view that no turn has
    /// changed, in the order of the source. The path of a bracket is the first of its paths. Empty for videos. Not
    /// while a load runs.
    [[nodiscard]] std::vector<PanoramaPlace> getPlaces() const;

    [[nodiscard]] WarpType getProjectionType() const;
    /// Draws the underlay in another projection. The next setContext() draws the main view in it.
    void changeProjectionType(WarpType type);

    /// The receiver of main views. They have exactly the requested size, or that of the part if it is smaller. Outside
    /// of the panorama the mask is 0 and the colours have no meaning.
    void setCallback(std::function<void(RenderedData)> callback);
    [[nodiscard]] std::function<void(RenderedData)> getCallback() const;
    /// The receiver of underlays: the whole canvas within 1500 pixels. Draws one.
    void setUnderlayCallback(std::function<void(RenderedData)> callback);
    /// The receiver of the content only, about 2000 pixels long, instead of underlays: picture, mask, and position on
    /// the canvas. Draws one.
    void setUnderlayMeaningfulPartCallback(std::function<void(std::shared_ptr<const _ImageData<PixelRGB<float>>>,
                                                              std::shared_ptr<const _ImageData<float>>, _Rect<int>)>
                                               callback);
    /// The receiver of what ended a main view or an underlay instead of its result; not called for those that are
    /// cancelled or have no content.
    void setFailureCallback(std::function<void(Failure)> callback);
    /// Sets the main view and draws it. A context without size or part is logged and ignored.
    void setContext(PreviewContext context);

    /// Between these two calls renders are fast and rough, and shift and rotation are relative to the view at the
    /// start.
    void startFastRender();
    void finishFastRender();
    /// Turns the view by fractions of the canvas: the picture moves by (x, y), right and down. Draws the main view.
    void setShiftVector(_Point<float> shift);
    /// Turns the view by `angle` radians about the middle of the main view: the picture turns counter-clockwise, so
    /// that the angle of getHorizonAngle() levels it. Draws the main view. Shift and rotation replace each other; both
    /// are relative to the view at startFastRender().
    void setRotation(float angle);
    /// Always 0.
    [[nodiscard]] float getRotation() const;
    /// Resets the view, and draws both channels.
    void resetAlignmentAdjustments();

    /// Passes the whole panorama over white, and the largest rectangle that it fills, as a crop of that picture. The
    /// shorter side of the picture is that of `size`; full resolution for (0, 0) or the canvas's size. `context.roi` is
    /// the position of the picture on the canvas. The composer keeps the picture for getFinalizePreview() until the
    /// next render, load or move of the view. The first size after such a change is remembered: other sizes until the
    /// next one give the same picture, except (0, 0) and the canvas's.
    void getCropPreview(_Size<int> size, std::function<void(RenderedData, _Rect<int>)> callback);
    /// Cuts the crop out of the kept picture. `size`: that of getCropPreview() or, the same, (0, 0); for another one
    /// the picture is drawn again, and its position may differ by a pixel, so that finalize() takes the former one for
    /// outdated. Gray if `info.context.roi` or the projection differs from that of the kept picture.
    void getFinalizePreview(CropInfo info, std::function<void(RenderedData)> callback, _Size<int> size);
    /// The finished picture: `info.context.roi` at full resolution over white, then the crop. Without a crop only the
    /// covered part of it: the picture is smaller than `context.size` where the panorama does not reach the sides. Gray
    /// as above.
    void finalize(CropInfo info, std::function<void(RenderedData)> callback);
    /// The same picture, drawn for the last time: each loaded picture is freed as soon as it is drawn, so that the peak
    /// is lower by up to their size. Until pictures are loaded again nothing can be drawn.
    void finalizeAndRelease(CropInfo info, std::function<void(RenderedData)> callback);
    /// The tilt of the horizon in a picture, in radians, clockwise; 0 if none is found. Runs on the caller's thread.
    [[nodiscard]] float getHorizonAngle(std::shared_ptr<const _ImageData<PixelRGB<float>>> image);

    void setConfiguration(ComposerConfiguration configuration);
    /// These have no effect.
    void startSetup();
    void finishSetup();

private:
    void renderMain();
    void renderUnderlay();

    std::shared_ptr<PanoramaPreviewComposerPrivate> state; // shared with the running operation
};

/// The largest rectangle of content, in pixels of the mask, after the holes of the largest region are filled; its left
/// and upper sides are 10 pixels further in. Content is what rounds to more than 0 in 8 bits. Of equal areas the
/// flattest wins, then the topmost. A mask without content gives (5, 5, -10, -10). Throws cv::Exception for an empty
/// mask.
[[nodiscard]] ORVO_EXPORT _Rect<int> inscribedRectOfMask(const _ImageData<float>& mask);

/// The same search for a crop that nobody looks at before it is cut: holes stay holes, and no side is moved. A mask
/// without content gives an empty rectangle.
[[nodiscard]] ORVO_EXPORT _Rect<int> fullRectOfMask(const _ImageData<float>& mask);

} // namespace orvo
