#include "checks.hpp"
#include "made_folder.hpp"
#include "picture_run.hpp"

#include <jobs/label_job.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_extensions/focus_stack.hpp>

#include <algorithm>
#include <cctype>
#include <set>
#include <string>

namespace orvo::jobs {
namespace {

namespace fs = std::filesystem;

// See labelJob(). Reading and writing a picture take about the same time.
constexpr JobProgress kCheckStarts{JobStep::Check, 0.0};
constexpr JobProgress kLabelStarts{JobStep::Label, 0.02, /*opaque=*/true};
constexpr double kWriteStarts = 0.4;

const char* endingOf(ImageFileFormat format)
{
    switch (format) {
    case ImageFileFormat::Jpeg:
        return ".jpg";
    case ImageFileFormat::Png:
        return ".png";
    case ImageFileFormat::Tiff:
        return ".tif";
    case ImageFileFormat::Exr:
        return ".exr";
    }
    return "";
}

/// Compares names like case-insensitive file systems: there "A.jpg" and "a.jpg" are one file.
std::string folded(std::string name)
{
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    return name;
}

/// The path of each picture: the name of its source, made unique. A name that only one source has is never given to
/// another.
std::vector<fs::path> outputsOf(const LabelJobRequest& request)
{
    std::set<std::string> stems;
    for (const auto& frame : request.frames)
        stems.insert(folded(pathText(frame.stem())));
    std::set<std::string> taken;
    std::vector<fs::path> outputs;
    for (const auto& frame : request.frames) {
        const std::string stem = pathText(frame.stem());
        std::string name = stem;
        for (int number = 2; !taken.insert(folded(name)).second; ++number) {
            name = stem + "-" + std::to_string(number);
            while (stems.contains(folded(name)))
                name = stem + "-" + std::to_string(++number);
        }
        outputs.push_back(request.folder / (name + endingOf(request.format)));
    }
    return outputs;
}

void checkFiles(PictureRun& run, const LabelJobRequest& request, const std::vector<fs::path>& outputs)
{
    run.report(kCheckStarts);
    run.checkFiles(request.frames);
    const auto metadata = run.checkPictures(request.frames);
    for (std::size_t i = 0; i < outputs.size(); ++i)
        checkHolds(outputs[i], request.format, metadata[i]->size);
    const MadeFolder probe(request.folder); // removed again until there is a picture to write
    for (const auto& output : outputs)
        checkOutput(output, request.frames, request);
    run.followDepthOf(request.frames);
    run.throwIfCancelled();
}

std::vector<std::shared_ptr<Image>> label(PictureRun& run, const std::vector<fs::path>& frames)
{
    run.report(kLabelStarts);
    auto images = exportAligned(frames, {});
    run.throwIfCancelled();
    if (images.size() != frames.size()) // raw files that cannot be opened are dropped
        throwLastFailure("not all frames could be read");
    run.keepWarnings();
    return images;
}

} // namespace

LabelJobResult labelJob(const LabelJobRequest& request, const JobCallbacks& callbacks)
{
    LabelJobResult result;
    result.folder = request.folder;
    runPictureJob(request, callbacks, result, [&](PictureRun& run) {
        checkFileNames(request.frames, request.folder);
        const std::vector<fs::path> outputs = outputsOf(request);
        const ImageWriteSettings settings = writeSettingsFor(outputs.front(), request);
        checkFiles(run, request, outputs);
        auto images = label(run, request.frames);
        const MadeFolder folder(request.folder);
        run.report({JobStep::Write, kWriteStarts});
        for (std::size_t i = 0; i < images.size(); ++i) {
            const double share = static_cast<double>(i + 1) / static_cast<double>(images.size());
            result.frames.push_back({request.frames[i], run.write(*images[i], outputs[i], settings,
                                                                  kWriteStarts + (1.0 - kWriteStarts) * share)});
            images[i].reset();
        }
    });
    return result;
}

} // namespace orvo::jobs
