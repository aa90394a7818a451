#include "generative_run.hpp"

#include "checks.hpp"

#include <jobs/beside_file.hpp>
#include <orvo/documents.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_io/image_reader.hpp>

#include <service/built_in_answers.hpp>
#include <service/service_client.hpp>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace orvo::jobs {
namespace {

constexpr int kLongestTimeout = 86400; // a day
constexpr int kMostRetries = 100;

void checkNumber(const char* name, int value, int low, int high)
{
    if (value < low || value > high)
        throw JobRefusal(std::string(name) + " is " + std::to_string(value) + ", expected " + std::to_string(low) +
                         " to " + std::to_string(high));
}

void checkService(const GenerativeJobRequest& request)
{
    checkNumber("the time for an answer in seconds", request.timeoutSeconds, 1, kLongestTimeout);
    checkNumber("the number of retries", request.retries, 0, kMostRetries);
    const int halves = static_cast<int>(!request.requestFile.empty()) + static_cast<int>(!request.responseFile.empty());
    if (halves > 1)
        throw JobRefusal("either the request is written or a response is read, not both");
    if (request.service.empty())
        return;
    if (halves > 0)
        throw JobRefusal(request.service + ": a service was given together with a request or response file");
    if (const std::string complaint = service::complaintAboutUrl(request.service); !complaint.empty())
        throw JobRefusal(complaint);
}

// Beside the output, so that it survives a full disk and a kill.
void writeText(const std::filesystem::path& path, const std::string& text)
{
    writeBesideAndRename(path, [&](const std::filesystem::path& beside) {
        std::ofstream file(beside, std::ios::binary | std::ios::trunc);
        file.write(text.data(), static_cast<std::streamsize>(text.size()));
        file.close();
        if (!file)
            throw FailureError({kindOfSystemError(errno, FailureKind::Internal), path,
                                "cannot be written: " + std::generic_category().message(errno)});
        return true;
    });
}

} // namespace

_Size<int> GenerativeRun::check(const std::vector<std::filesystem::path>& inputs)
{
    checkService(request);
    const std::filesystem::path& output = isRequestOnly() ? request.requestFile : request.output;
    if (isRequestOnly() && !request.output.empty())
        throw JobRefusal(pathText(request.output) + ": with a request file there is no other output");
    std::vector pictures{request.source};
    pictures.insert(pictures.end(), inputs.begin(), inputs.end());
    checkFileNames(pictures, output);
    if (!isRequestOnly())
        settings = writeSettingsFor(output, request);

    run.report({JobStep::Check, 0.0});
    run.checkFiles(pictures);
    std::vector files = pictures;
    if (!request.responseFile.empty()) {
        checkIsFile(request.responseFile, "response");
        files.push_back(request.responseFile);
    }
    checkOutput(output, files, request);
    const auto metadata = run.checkPictures(pictures);
    checkHolds(metadata.front()->size);
    run.followDepthOf({request.source});
    run.throwIfCancelled();
    return metadata.front()->size;
}

void GenerativeRun::checkHolds(_Size<int> size) const
{
    if (!isRequestOnly())
        jobs::checkHolds(request.output, settings.format, size);
}

std::shared_ptr<Image> GenerativeRun::open()
{
    try {
        auto image = openNoEmpty(request.source, {}, {});
        run.keepWarnings();
        return image;
    } catch (const FailureError&) {
        throw;
    } catch (const std::runtime_error&) { // the reader has stated the cause
        throwLastFailure("the picture cannot be read");
    }
}

void GenerativeRun::writeRequest(const service::PictureRequest& toSend)
{
    run.report({JobStep::Write, 1.0});
    writeText(request.requestFile, service::requestText(toSend) + "\n");
    result.output = request.requestFile;
    result.size = result.requestSize;
}

std::string GenerativeRun::answerFromFile(const service::PictureRequest& toSend) const
{
    std::ifstream file(request.responseFile, std::ios::binary);
    const std::string body{std::istreambuf_iterator<char>(file), {}};
    if (!file)
        throw FailureError({FailureKind::UnreadableFile, request.responseFile, "the file cannot be read"});
    try {
        return service::pictureOfAnswer(body, toSend);
    } catch (const service::ProtocolError& error) {
        throw FailureError({FailureKind::UnreadableFile, request.responseFile, error.what()});
    }
}

std::string GenerativeRun::answerTo(const service::PictureRequest& toSend, const RunControl& control) const
{
    if (!request.responseFile.empty())
        return answerFromFile(toSend);
    if (request.service.empty())
        try {
            return service::builtInAnswer(toSend, control);
        } catch (const FailureError& error) { // it knows of no files
            if (error.failure().kind != FailureKind::UnfittingPictures)
                throw;
            throw FailureError({FailureKind::UnfittingPictures, request.source, error.failure().sentence});
        }
    service::ServiceSettings service;
    service.url = request.service;
    service.timeout = std::chrono::seconds(request.timeoutSeconds);
    service.retries = request.retries;
    return service::askService(service, toSend, control);
}

std::optional<ServiceAnswer> GenerativeRun::exchange(service::Tool tool, std::string image, std::string mask,
                                                     double begin, double end)
{
    service::PictureRequest toSend;
    toSend.tool = tool;
    toSend.id = service::requestId(tool, image, mask);
    toSend.image = std::move(image);
    toSend.mask = std::move(mask);
    const _Size<int> size = service::pngSize(toSend.image);
    toSend.width = size.width;
    result.requestId = toSend.id;
    result.requestSize = size;
    if (isRequestOnly()) {
        writeRequest(toSend);
        return std::nullopt;
    }
    run.report({JobStep::Answer, begin});
    const RunControl control([&] { return run.isCancelled(); },
                             [&](float done) {
                                 run.report({JobStep::Answer, begin + (end - begin) * static_cast<double>(done)});
                             });
    ServiceAnswer answer{answerTo(toSend, control), size};
    run.throwIfCancelled();
    return answer;
}

void GenerativeRun::write(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& picture,
                          const std::shared_ptr<const ImageMetadata>& metadata,
                          const std::shared_ptr<ColorProfile>& profile)
{
    if (!settings.profile)
        settings.profile = profile;
    static_cast<WrittenPicture&>(result) =
        run.write(*CreateOrvoImage(picture, metadata), request.output, settings, 1.0);
}

std::string asDataUrl(const std::string& picture) { return "data:image/png;base64," + picture; }

} // namespace orvo::jobs
