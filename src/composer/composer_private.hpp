/// The state of a composer and the operations on it.
#pragma once

#include "panorama/panorama_stitcher.hpp"

#include <orvo/operation_queue.hpp>
#include <orvo_common/failure.hpp>
#include <orvo_common/run_control.hpp>
#include <orvo_extensions/panorama_preview_composer.hpp>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvo {

/// The caller's state that a render uses, as it was at the time of the request.
struct ComposerSnapshot
{
    std::function<void(RenderedData)> mainCallback;
    std::function<void(RenderedData)> underlayCallback;
    std::function<void(std::shared_ptr<const _ImageData<PixelRGB<float>>>, std::shared_ptr<const _ImageData<float>>,
                       _Rect<int>)>
        meaningfulPartCallback;
    PreviewContext context;
    std::function<void(Failure)> failureCallback;
};

/// The file of each picture; of a bracket the first by path.
[[nodiscard]] std::vector<std::filesystem::path> namesOf(const PanoSource& source);
[[nodiscard]] std::vector<std::filesystem::path> namesOf(const PanoSourceHDR& source);
[[nodiscard]] std::vector<std::filesystem::path> namesOf(const PanoSourceVideo& source);

/// Logs the exception being handled, after the signature of the operation that it ended, and returns it as a failure.
Failure logException(const std::string& signature);

/// Runs `body`; logs what it throws, and returns it.
template <typename Body>
std::optional<Failure> logExceptions(const std::string& signature, const Body& body)
{
    try {
        body();
        return std::nullopt;
    } catch (...) {
        return logException(signature);
    }
}

/// Snapshot, operations, projection and configuration belong to the caller's thread, stitcher and cache to the worker.
///
/// The cache is the last full panorama. It is valid for one position, projection and size; a render, a load and a move
/// of the view invalidate it. Without the moves, a picture of the former view would be kept whenever no receiver makes
/// the render behind a move draw, and a crop made on it would be cut out of the new view.
struct PanoramaPreviewComposerPrivate
{
    template <typename Source>
    explicit PanoramaPreviewComposerPrivate(const Source& source)
        : stitcher(std::make_unique<PanoramaStitcher>(source)),
          projection(static_cast<WarpType>(source.settings.warpType)), names(namesOf(source))
    {}

    ComposerSnapshot snapshot;
    opq::OperationQueue queue;
    std::shared_ptr<opq::Operation> mainOperation;
    std::shared_ptr<opq::Operation> underlayOperation;
    std::shared_ptr<opq::Operation> cropOperation; ///< each one has its own receiver, so none replaces another
    std::unique_ptr<PanoramaStitcher> stitcher;
    WarpType projection;
    std::vector<std::filesystem::path> names;        ///< of the pictures in the order of the source; none for a video
    RenderedData cachedPreview;                      ///< the last full panorama
    _Rect<int> cachedRoi;                            ///< its position on the canvas; zero: no longer valid
    WarpType cachedProjection = WarpType::Spherical; ///< of the last full panorama
    _Size<int> cachedPreviewSize;                    ///< found by calculatePreviewSize() in the stitcher's projection
    std::atomic<bool> cancelFlag = false;            ///< set by any thread, for good
    const RunControl run{&cancelFlag};               ///< of everything on the worker
    ComposerConfiguration configuration;
    bool isDropped = false; ///< by a callback, on the worker: no further callback is called

    /// Polls `run`, in the form that the stitcher takes.
    [[nodiscard]] PanoramaStitcher::CancelFunction stitcherCancel() const;
    void cancelAll();

    // Everything below runs on the worker.

    /// Makes the stitcher draw in a projection, and returns its canvas.
    _Size<int> enterProjection(WarpType type);
    /// Invalidates the cache.
    void resetCachedSettings();
    [[nodiscard]] Panorama drawCanvas(const _Size<int>& canvas, const _Size<int>& size, bool keepCanvas);

    /// Runs `body`. If it throws, logs `task` with the reason, keeps it for lastFailure() and runs `answer` instead.
    template <typename Body, typename Answer>
    void answeringAnyway(const char* task, const Body& body, const Answer& answer)
    {
        try {
            body();
            return;
        } catch (...) {
            keepException(task);
        }
        if (!isDropped)
            answer();
    }
    static void keepException(const char* task);
    /// Records why a panorama or a part of it was not drawn.
    void stateNothingDrawn() const;

    void load(const std::function<void(bool, _Rect<int>)>& completion);
    struct LoadResult
    {
        bool isCancelled = false;
        std::optional<_Rect<int>> extent; ///< of the panorama; empty if there is none
    };
    [[nodiscard]] LoadResult registered();
    void useComposition(const std::vector<std::uint64_t>& frames, const std::vector<_Rect<int>>& rects);
    void shift(_Point<float> by);
    void turn(float angle, _Rect<int> roi);
    void reset();
    void drawMain(WarpType type, const ComposerSnapshot& taken, const std::string& signature);
    void drawUnderlay(WarpType type, const ComposerSnapshot& taken, const std::string& signature);

    [[nodiscard]] RenderedData createFullPanorama(WarpType type, _Size<int> size, _Rect<int> roi);
    [[nodiscard]] bool restoreCachedPreview(RenderedData& data, _Size<int> size, _Rect<int> roi) const;
    [[nodiscard]] _Size<int> calculateSizeForPreview(WarpType type, _Size<int> size);
    [[nodiscard]] _Size<int> calculatePreviewSize(WarpType type, _Size<int> size);
    void reportFailedRender(const ComposerSnapshot& taken, const std::optional<Failure>& failure) const;

    void cropPreview(WarpType type, _Size<int> size, const std::function<void(RenderedData, _Rect<int>)>& callback);
    void finalizePreview(WarpType type, const PanoramaPreviewComposer::CropInfo& info, _Size<int> size,
                         const std::function<void(RenderedData)>& callback, const std::string& signature);
    void finish(WarpType type, const PanoramaPreviewComposer::CropInfo& info,
                const std::function<void(RenderedData)>& callback, const std::string& signature);
    [[nodiscard]] RenderedData finished(WarpType type, const PanoramaPreviewComposer::CropInfo& info,
                                        const std::string& signature);
    [[nodiscard]] RenderedData finalPreview(WarpType type, const PanoramaPreviewComposer::CropInfo& info,
                                            _Size<int> size, const std::string& signature);
    [[nodiscard]] RenderedData finishedWhole(const _Rect<int>& roi);
    [[nodiscard]] RenderedData finishedCrop(const PanoramaPreviewComposer::CropInfo& info);
    /// Whether a crop was made for another picture than the cached one; logs the text if so.
    [[nodiscard]] bool isStale(WarpType type, const _Rect<int>& roi, const std::string& text) const;
};

/// The size of a canvas scaled to a longest side of 1500 pixels.
[[nodiscard]] _Size<int> fittedSize(int width, int height);

/// Blends a panorama over white, in place. Does nothing without a picture or a mask.
void blendAlpha(const Panorama& panorama);

} // namespace orvo
