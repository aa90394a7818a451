/// The state of a composer and the operations on it.
#pragma once

#include "panorama/panorama_stitcher.hpp"

#include <orvo/operation_queue.hpp>
#include <orvo_common/run_control.hpp>
#include <orvo_extensions/panorama_preview_composer.hpp>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
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
};

/// The file of each picture; of a bracket the first by path.
[[nodiscard]] std::vector<std::filesystem::path> namesOf(const PanoSource& source);
[[nodiscard]] std::vector<std::filesystem::path> namesOf(const PanoSourceHDR& source);
[[nodiscard]] std::vector<std::filesystem::path> namesOf(const PanoSourceVideo& source);

/// Snapshot, operations, projection and configuration belong to the caller's thread, stitcher and cache to the worker.
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
    std::shared_ptr<opq::Operation> cropOperation;
    std::unique_ptr<PanoramaStitcher> stitcher;
    WarpType projection;
    std::vector<std::filesystem::path> names;        ///< of the pictures in the order of the source; none for a video
    RenderedData cachedPreview;                      ///< the last full panorama
    _Rect<int> cachedRoi;                            ///< its position on the canvas; zero: no longer valid
    WarpType cachedProjection = WarpType::Spherical; ///< of the last full panorama
    _Size<int> cachedPreviewSize;                    ///< the result of calculatePreviewSize(), to be found once
    std::atomic<bool> cancelFlag = false;            ///< set by any thread, for good
    const RunControl run{&cancelFlag};               ///< of everything on the worker
    ComposerConfiguration configuration;

    /// Polls `run`, in the form that the stitcher takes.
    [[nodiscard]] PanoramaStitcher::CancelFunction stitcherCancel() const;

    // Everything below runs on the worker.

    /// Makes the stitcher draw in a projection, and returns its canvas.
    _Size<int> enterProjection(WarpType type);
    /// Invalidates the cache.
    void resetCachedSettings();
    [[nodiscard]] Panorama drawCanvas(const _Size<int>& canvas, const _Size<int>& size, bool keepCanvas);

    void load(const std::function<void(bool, _Rect<int>)>& completion);
    void shift(_Point<float> by);
    void turn(float angle, _Rect<int> roi);
    void reset();
    void drawMain(WarpType type, const ComposerSnapshot& taken, const std::string& signature);
    void drawUnderlay(WarpType type, const ComposerSnapshot& taken, const std::string& signature);

    [[nodiscard]] RenderedData createFullPanorama(WarpType type, _Size<int> size, _Rect<int> roi);
    [[nodiscard]] bool restoreCachedPreview(RenderedData& data, _Size<int> size, _Rect<int> roi) const;
    [[nodiscard]] _Size<int> calculateSizeForPreview(WarpType type, _Size<int> size);
    [[nodiscard]] _Size<int> calculatePreviewSize(WarpType type, _Size<int> size);

    void cropPreview(WarpType type, _Size<int> size, const std::function<void(RenderedData, _Rect<int>)>& callback);
    void finalizePreview(WarpType type, const PanoramaPreviewComposer::CropInfo& info, _Size<int> size,
                         const std::function<void(RenderedData)>& callback, const std::string& signature);
    void finish(WarpType type, const PanoramaPreviewComposer::CropInfo& info,
                const std::function<void(RenderedData)>& callback, const std::string& signature);
    [[nodiscard]] RenderedData finishedWhole(const _Rect<int>& roi);
    [[nodiscard]] RenderedData finishedCrop(const PanoramaPreviewComposer::CropInfo& info);
    /// Whether a crop was made for another picture than the cached one; logs it.
    [[nodiscard]] bool isStale(const _Rect<int>& roi, const std::string& signature, const char* method) const;
};

/// The size of a canvas scaled to a longest side of 1500 pixels.
[[nodiscard]] _Size<int> fittedSize(int width, int height);

/// Blends a panorama over white, in place. Does nothing without a picture or a mask.
void blendAlpha(const Panorama& panorama);

} // namespace orvo
