#include "generative_command.hpp"

#include <orvo_common/wide_path.hpp>

#include <charconv>
#include <cmath>
#include <limits>

namespace orvo::cli {

void bindPicture(Options& app, jobs::GenerativeJobRequest& request, GenerativeOptions& options, const std::string& done)
{
    app.add_option("FILE", options.file, kReadable)->type_name("")->required();
    bindOutput(app, options.output, done);
    bindFormat(app, request);
}

void bindPictures(Options& app, jobs::GenerativeJobRequest& request, GenerativeOptions& options,
                  const std::string& done)
{
    bindFiles(app, options.files);
    bindOutput(app, options.output, done);
    bindFormat(app, request);
}

void bindService(Options& app, jobs::GenerativeJobRequest& request, GenerativeOptions& options)
{
    constexpr int kLongestTimeout = 86400;
    constexpr int kMostRetries = 100;
    app.add_option("--service", request.service, "send the work to the generative service at URL")->type_name("URL");
    app.add_option("--timeout", request.timeoutSeconds, "with --service: seconds to wait for an answer (default: 300)")
        ->type_name("N")
        ->check(between(1, kLongestTimeout));
    app.add_option("--retries", request.retries,
                   "with --service: attempts after the first, if it is not\navailable (default: 2)")
        ->type_name("N")
        ->check(between(0, kMostRetries));
    app.add_option("--request-only", options.requestFile, "write the request to FILE instead of sending it, and stop")
        ->type_name("FILE");
    app.add_option("--response", options.responseFile, "read the answer to such a request from FILE")
        ->type_name("FILE");
}

void takeOptions(const GenerativeOptions& options, const std::string& done, jobs::GenerativeJobRequest& request)
{
    request.source = options.file;
    request.requestFile = options.requestFile;
    request.responseFile = options.responseFile;
    request.output = request.requestFile.empty() ? outputPath(options.output, request.source, done, request)
                                                 : std::filesystem::path(options.output.file);
}

nlohmann::ordered_json generativeAsJson(const jobs::GenerativeJobResult& result,
                                        const jobs::GenerativeJobRequest& request)
{
    nlohmann::ordered_json json;
    if (request.requestFile.empty())
        json = writtenAsJson(result);
    else
        json["output"] = pathText(result.output);
    json["input"] = {{"path", pathText(result.source)}};
    json["request"] = {{"id", result.requestId}, {"size", sizeAsJson(result.requestSize)}};
    if (!request.service.empty())
        json["service"] = request.service;
    return json;
}

std::string generativeAsText(const jobs::GenerativeJobResult& result, const jobs::GenerativeJobRequest& request)
{
    if (request.requestFile.empty())
        return writtenAsText(result);
    return printable(pathText(result.output)) + ": request " + result.requestId + " of " +
           std::to_string(result.requestSize.width) + " x " + std::to_string(result.requestSize.height) + " pixels";
}

BatchCommand generativeBatchOf(const std::string& name, const std::string& done, const GenerativeOptions& options,
                               const jobs::GenerativeJobRequest& request)
{
    BatchCommand command = batchCommandOf(name, options, done, request.threads);
    // A service is sent one picture at a time: it may refuse another one while it works.
    command.jobsAtOnce = request.service.empty() ? 0 : 1;
    return command;
}

int runGenerativeCommand(PictureCommand command, const jobs::GenerativeJobRequest& request)
{
    if (!request.requestFile.empty())
        command.output = request.requestFile;
    if (!request.responseFile.empty())
        command.inputs.push_back(request.responseFile); // the log must not be written into it either
    return runPictureCommand(command);
}

std::optional<std::vector<double>> numbersOf(const std::string& text, std::size_t count)
{
    std::vector<double> numbers;
    const char* at = text.data();
    const char* const end = at + text.size();
    for (;;) {
        double number = 0.0;
        const auto [next, error] = std::from_chars(at, end, number);
        if (error != std::errc() || !std::isfinite(number))
            return std::nullopt;
        numbers.push_back(number);
        if (next == end)
            break;
        if (*next != ',')
            return std::nullopt;
        at = next + 1;
    }
    return numbers.size() == count ? std::optional(numbers) : std::nullopt;
}

std::optional<_Rect<int>> rectangleOf(const std::string& text)
{
    constexpr std::size_t kSides = 4;
    constexpr double kFarthest = 1e9; // sums of two stay within an int
    const auto numbers = numbersOf(text, kSides);
    if (!numbers)
        return std::nullopt;
    for (const double number : *numbers)
        if (number != std::trunc(number) || std::abs(number) > kFarthest)
            return std::nullopt;
    const auto whole = [&](std::size_t i) { return static_cast<int>((*numbers)[i]); };
    const _Rect<int> rect(whole(0), whole(1), whole(2), whole(3));
    return rect.width > 0 && rect.height > 0 ? std::optional(rect) : std::nullopt;
}

} // namespace orvo::cli
