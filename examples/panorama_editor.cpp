// The life of a panorama composer in an editor: load, view, drag, change the projection, crop, finish.
//
//   panorama_editor DIR result.ppm     stitches the pictures of a folder
//
// The composer answers on its own thread. An editor shows pictures on its user interface thread, so every answer goes
// through a mailbox: `Mailbox` here, the message loop of the toolkit there.
#include <orvo_extensions/panorama_preview_composer.hpp>

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <queue>
#include <utility>

namespace {

/// Passes work to the thread that calls run().
class Mailbox
{
public:
    void post(std::function<void()> work)
    {
        const std::lock_guard lock(mutex);
        waiting.push(std::move(work));
        arrived.notify_one();
    }
    /// Runs posted work until `isDone` returns true.
    void run(const std::function<bool()>& isDone)
    {
        while (!isDone()) {
            std::unique_lock lock(mutex);
            arrived.wait(lock, [this] { return !waiting.empty(); });
            const auto work = std::move(waiting.front());
            waiting.pop();
            lock.unlock();
            work();
        }
    }

private:
    std::mutex mutex;
    std::condition_variable arrived;
    std::queue<std::function<void()>> waiting;
};

void show(const char* what, const orvo::RenderedData& render)
{
    if (render.image)
        std::printf("%s: %d x %d pixels\n", what, render.image->width(), render.image->height());
}

/// A plain picture file without a library; the pixels are in sRGB.
void writePpm(const std::filesystem::path& path, const orvo::_ImageData<orvo::PixelRGB<float>>& picture)
{
    std::ofstream file(path, std::ios::binary);
    file << "P6\n" << picture.width() << ' ' << picture.height() << "\n255\n";
    const auto byte = [](float v) { return static_cast<char>(static_cast<std::uint8_t>(v * 255.0f + 0.5f)); };
    for (std::size_t i = 0; i < picture.pixelCount(); ++i) {
        const auto pixel = orvo::clampValue(picture.data()[i]);
        const char bytes[] = {byte(pixel.r), byte(pixel.g), byte(pixel.b)};
        file.write(bytes, sizeof bytes);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: panorama_editor DIR result.ppm\n");
        return 2;
    }
    orvo::PanoSource source;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1]))
        source.files.push_back(entry.path());

    Mailbox mailbox; // outlives the composer, whose callbacks post into it
    orvo::PanoramaPreviewComposer composer(source);
    composer.setCallback(
        [&](orvo::RenderedData render) { mailbox.post([render = std::move(render)] { show("view", render); }); });
    composer.setUnderlayCallback(
        [&](orvo::RenderedData render) { mailbox.post([render = std::move(render)] { show("underlay", render); }); });

    // Load. The first underlay follows by itself.
    bool isLoaded = false;
    bool fits = false;
    composer.loadWithCompletion([&](bool ok, orvo::_Rect<int>) {
        mailbox.post([&, ok] {
            isLoaded = true;
            fits = ok;
        });
    });
    mailbox.run([&] { return isLoaded; });
    if (!fits) {
        std::fprintf(stderr, "the pictures do not fit together\n");
        return 1;
    }

    // The user drags: renders in between are fast, and those that the pointer has overtaken are left out.
    const orvo::_Size<int> canvas = composer.getCanvasSize();
    composer.setContext({{1500, 750}, {0, 0, canvas.width, canvas.height}});
    composer.startFastRender();
    for (int step = 1; step <= 30; ++step)
        composer.setShiftVector({0.001f * static_cast<float>(step), 0.0f});
    composer.finishFastRender();

    // Another projection. The view follows with its next context, since its canvas is another one.
    composer.changeProjectionType(orvo::WarpType::Cylindrical);

    // A proposal for the crop, and from it the finished picture. Nothing that renders may come between the two: it
    // would make the proposal stale.
    bool isDone = false;
    bool isWritten = false;
    composer.getCropPreview({1500, 750}, [&](orvo::RenderedData preview, orvo::_Rect<int> proposal) {
        mailbox.post([&, preview = std::move(preview), proposal] {
            show("crop preview", preview);
            if (preview.isPlaceholder || proposal.width < 1 || proposal.height < 1) {
                isDone = true;
                return;
            }
            orvo::PanoramaPreviewComposer::CropInfo crop;
            crop.crop.rect = proposal;
            crop.context = {preview.image->size(), preview.context.roi};
            composer.finalize(crop, [&](orvo::RenderedData finished) {
                mailbox.post([&, finished = std::move(finished)] {
                    show("finished", finished);
                    isWritten = !finished.isPlaceholder; // gray means that the request did not fit, or failed
                    if (isWritten)
                        writePpm(argv[2], *finished.image);
                    isDone = true;
                });
            });
        });
    });
    mailbox.run([&] { return isDone; });
    return isWritten ? 0 : 1;
}
