#include "checks.hpp"

#include "run_job.hpp"

#include <jobs/beside_file.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_io/image_reader.hpp>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <stdexcept>
#include <string>
#include <system_error>

namespace orvo::jobs {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void refuse(const std::string& message) { throw JobRefusal(message); }

[[noreturn]] void fail(FailureKind kind, const fs::path& file, const std::string& sentence)
{
    throw FailureError({kind, file, sentence});
}

[[noreturn]] void failToRead(const fs::path& file, const std::string& sentence)
{
    fail(FailureKind::UnreadableFile, file, sentence);
}

[[noreturn]] void failToWrite(const fs::path& file, const std::string& sentence)
{
    fail(FailureKind::Internal, file, sentence);
}

struct FormatFacts
{
    const char* name;
    std::vector<int> bits;
};

FormatFacts factsOf(ImageFileFormat format)
{
    switch (format) {
    case ImageFileFormat::Jpeg:
        return {"JPEG", {8}};
    case ImageFileFormat::Png:
        return {"PNG", {8, 16}};
    case ImageFileFormat::Tiff:
        return {"TIFF", {8, 16}};
    case ImageFileFormat::Exr:
        return {"EXR", {16, 32}};
    }
    return {"", {}};
}

void setBits(ImageWriteSettings& settings, const fs::path& output, int bits)
{
    const FormatFacts facts = factsOf(settings.format);
    if (std::find(facts.bits.begin(), facts.bits.end(), bits) == facts.bits.end()) {
        std::string known;
        for (const int each : facts.bits)
            known += (known.empty() ? "" : " or ") + std::to_string(each);
        refuse(pathText(output) + ": " + facts.name + " holds samples of " + known + " bits, " + std::to_string(bits) +
               " were asked for");
    }
    settings.bits = bits;
}

void setQuality(ImageWriteSettings& settings, const fs::path& output, int quality)
{
    if (settings.format != ImageFileFormat::Jpeg)
        refuse(pathText(output) + ": only JPEG has a quality to choose, this is " + factsOf(settings.format).name);
    if (quality < 1 || quality > 100)
        refuse("the JPEG quality is " + std::to_string(quality) + ", expected 1 to 100");
    settings.jpegQuality = quality;
}

std::string sizeText(_Size<int> size) { return std::to_string(size.width) + " x " + std::to_string(size.height); }

bool isSameFile(const fs::path& a, const fs::path& b)
{
    std::error_code error; // one that does not exist is no other file
    return fs::equivalent(a, b, error);
}

} // namespace

void checkFileNames(const std::vector<fs::path>& inputs, const fs::path& output)
{
    if (inputs.empty())
        refuse("no picture files were given, at least one is needed");
    if (output.empty() || std::count(inputs.begin(), inputs.end(), fs::path()) != 0)
        refuse("a file name is empty");
}

void checkReference(const std::string& name, const std::optional<std::size_t>& index, std::size_t count)
{
    if (index && *index >= count)
        refuse("the " + name + " is frame number " + std::to_string(*index + 1) + ", but only " +
               std::to_string(count) + (count == 1 ? " was given" : " were given"));
}

void checkDeghostAmount(const std::optional<DeghostAmount>& amount)
{
    if (amount && (*amount < DeghostAmount::Lowest || *amount > DeghostAmount::Highest))
        refuse("the strength of ghost removal is " + std::to_string(static_cast<int>(*amount)) + ", expected 0 to 4");
}

void checkFast(bool fast, bool align)
{
    if (fast && !align)
        refuse("fast alignment was chosen, but the frames are not aligned");
}

void checkShare(const std::string& name, float value)
{
    if (!(value >= 0.0f && value <= 1.0f))
        refuse("the amount of " + name + " is " + std::to_string(value) + ", expected 0 to 1");
}

ImageWriteSettings writeSettingsFor(const fs::path& output, const PictureJobRequest& request)
{
    try {
        ImageWriteSettings settings = writeSettingsForPath(output);
        if (request.bits)
            setBits(settings, output, *request.bits);
        if (request.jpegQuality)
            setQuality(settings, output, *request.jpegQuality);
        settings.profile = request.profile;
        return settings;
    } catch (const std::invalid_argument& error) {
        refuse(error.what());
    }
}

void checkIsFile(const fs::path& path, const std::string& expected)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::exists(status))
        failToRead(path, fs::status_known(status) ? "there is no such file" : error.message());
    if (fs::is_directory(status))
        failToRead(path, "this is a folder, a " + expected + " file was expected");
    if (!fs::is_regular_file(status))
        failToRead(path, "this is a device or a pipe, a " + expected + " file was expected");
    if (::access(path.c_str(), R_OK) != 0)
        failToRead(path, "the file cannot be read: " + std::generic_category().message(errno));
    if (fs::file_size(path, error) == 0 && !error)
        failToRead(path, "the file is empty, a " + expected + " was expected");
}

void checkAllDiffer(const std::vector<fs::path>& paths)
{
    for (std::size_t i = 0; i < paths.size(); ++i)
        for (std::size_t j = i + 1; j < paths.size(); ++j)
            if (isSameFile(paths[i], paths[j]))
                refuse(paths[i] == paths[j]
                           ? pathText(paths[i]) + ": the file was given twice"
                           : pathText(paths[i]) + " and " + pathText(paths[j]) + " are the same file, given twice");
}

void checkOutput(const fs::path& output, const std::vector<fs::path>& inputs, const PictureJobRequest& request)
{
    for (const fs::path& input : inputs)
        if (isSameFile(input, output))
            refuse(pathText(output) + ": the output would replace an input (" + pathText(input) + ")");
    std::error_code error;
    const fs::file_status status = fs::status(output, error);
    if (fs::is_directory(status))
        failToWrite(output, "this is a folder, a file name was expected");
    if (fs::exists(status) && !fs::is_regular_file(status))
        failToWrite(output, "this is a device or a pipe, which cannot be replaced by a picture");
    if (fs::exists(status) && request.keepExisting)
        failToWrite(output, "the file exists already");
    if (fs::exists(status) && ::access(output.c_str(), W_OK) != 0)
        failToWrite(output, "the file is there already and is write-protected");
    const fs::path folder = output.has_parent_path() ? output.parent_path() : fs::path(".");
    if (!fs::is_directory(folder, error))
        failToWrite(output, "there is no folder " + pathText(folder));
    errno = 0;
    const long longest = ::pathconf(folder.c_str(), _PC_NAME_MAX);
    const std::size_t length = output.filename().native().size();
    if (longest > 0 && length > static_cast<std::size_t>(longest))
        failToWrite(output, "the name has " + std::to_string(length) + " bytes, its folder takes at most " +
                                std::to_string(longest));
    const BesideFile probe(output); // only making a file shows whether one can be made
}

std::shared_ptr<const ImageMetadata> checkIsPicture(const fs::path& path)
{
    const auto metadata = ImageReader::readMetadata(path);
    if (!metadata)
        throwLastFailure("this is no picture that can be read");
    const std::int64_t pixels = std::int64_t{metadata->size.width} * metadata->size.height;
    if (pixels > ImageReadOptions{}.maxPixels)
        fail(FailureKind::UnfittingPictures, path,
             sizeText(metadata->size) + " pixels are too many, at most " +
                 std::to_string(ImageReadOptions{}.maxPixels / 1'000'000) + " million are read");
    return metadata;
}

void checkHolds(const fs::path& output, ImageFileFormat format, _Size<int> size)
{
    if (std::max(size.width, size.height) > longestSideOf(format))
        fail(FailureKind::UnfittingPictures, output,
             std::string("a ") + factsOf(format).name + " has at most " + std::to_string(longestSideOf(format)) +
                 " pixels a side, the picture has " + sizeText(size));
}

void checkSizesAgree(const std::vector<fs::path>& paths,
                     const std::vector<std::shared_ptr<const ImageMetadata>>& metadata)
{
    for (std::size_t i = 1; i < paths.size(); ++i)
        if (metadata[i]->size != metadata[0]->size)
            fail(FailureKind::UnfittingPictures, paths[i],
                 "this frame has " + sizeText(metadata[i]->size) + " pixels, but " + pathText(paths[0]) + " has " +
                     sizeText(metadata[0]->size) + "; all frames must have one size");
}

} // namespace orvo::jobs
