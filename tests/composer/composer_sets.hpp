/// Composers over small pictures whose truth is known, and mailboxes for their results.
#pragma once

#include "panorama/compute_device.hpp"
#include "support/temporary_folder.hpp"

#include <orvo_extensions/panorama_preview_composer.hpp>
#include <scenes/sphere_view_files.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace orvo::test {

/// Long enough for a slow machine under a sanitizer; only a failure takes so long.
inline constexpr std::chrono::seconds kPatience{600};

/// Results that callbacks on the worker have passed so far.
template <typename Value>
class Answers
{
public:
    void add(Value value)
    {
        const std::lock_guard lock(mutex);
        values.push_back(std::move(value));
        threads.push_back(std::this_thread::get_id());
        changed.notify_all();
    }
    /// Waits for `count` answers; returns those that arrived in time.
    std::vector<Value> wait(std::size_t count)
    {
        std::unique_lock lock(mutex);
        EXPECT_TRUE(changed.wait_for(lock, kPatience, [&] { return values.size() >= count; }))
            << values.size() << " answers of " << count;
        return values;
    }
    Value first() { return wait(1).at(0); }
    std::vector<Value> all()
    {
        const std::lock_guard lock(mutex);
        return values;
    }
    std::vector<std::thread::id> threadsOfAnswers()
    {
        const std::lock_guard lock(mutex);
        return threads;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Value> values;
    std::vector<std::thread::id> threads;
};

/// Four views in a row as files, made once.
class SmallFiles
{
public:
    static const PanoSource& source()
    {
        static const SmallFiles files;
        return files.made;
    }
    static std::vector<scenes::SphereView> views()
    {
        scenes::SphereView like;
        like.size = {400, 300};
        like.focal = 400.0;
        like.noise = 0.004;
        return scenes::rowOfViews(4, 21.0, 3.0, like, 1.0, 7);
    }

private:
    SmallFiles()
    {
        const scenes::SphereScene scene(5);
        const auto seen = views();
        for (std::size_t i = 0; i < seen.size(); ++i) {
            made.files.push_back(folder / ("view_" + std::to_string(i) + ".png"));
            scenes::writeSphereView(scene, seen[i], made.files.back());
        }
    }
    TemporaryFolder folder;
    PanoSource made;
};

struct Load
{
    bool fits = false;
    _Rect<int> extent;
};

/// Loads and waits.
inline Load loaded(PanoramaPreviewComposer& composer)
{
    Answers<Load> answers;
    composer.loadWithCompletion([&](bool fits, _Rect<int> extent) { answers.add({fits, extent}); });
    return answers.first();
}

/// Returns when everything requested before has run. Only for composers without a kept crop preview: those would log
/// that the request does not fit.
inline void settle(PanoramaPreviewComposer& composer)
{
    Answers<bool> answers;
    composer.finalize({}, [&](const RenderedData&) { answers.add(true); });
    (void)answers.first();
}

struct CropPreview
{
    RenderedData data;
    _Rect<int> proposal;
};

inline CropPreview cropPreview(PanoramaPreviewComposer& composer, _Size<int> size)
{
    Answers<CropPreview> answers;
    composer.getCropPreview(size, [&](RenderedData data, _Rect<int> rect) { answers.add({std::move(data), rect}); });
    return answers.first();
}

inline RenderedData finalized(PanoramaPreviewComposer& composer, const PanoramaPreviewComposer::CropInfo& info)
{
    Answers<RenderedData> answers;
    composer.finalize(info, [&](RenderedData data) { answers.add(std::move(data)); });
    return answers.first();
}

inline RenderedData finalPreview(PanoramaPreviewComposer& composer, const PanoramaPreviewComposer::CropInfo& info,
                                 _Size<int> size)
{
    Answers<RenderedData> answers;
    composer.getFinalizePreview(
        info, [&](RenderedData data) { answers.add(std::move(data)); }, size);
    return answers.first();
}

/// Composites on the processor: the same everywhere.
class ComposerTest : public testing::Test
{
protected:
    void SetUp() override { forceCpu() = true; }
    void TearDown() override { forceCpu() = false; }
};

inline CropDescription cropOf(const _Rect<int>& rect, float angle = 0.0f)
{
    CropDescription crop;
    crop.rect = rect;
    crop.angle = angle;
    return crop;
}

} // namespace orvo::test
