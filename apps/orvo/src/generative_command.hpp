/// Shared by commands whose result a generative service paints.
#pragma once

#include "batch_command.hpp"
#include "picture_command.hpp"

#include <jobs/generative_job.hpp>

#include <string>
#include <vector>

namespace orvo::cli {

/// Texts of the options, as CLI11 needs them.
struct GenerativeOptions
{
    std::string file;               ///< of a command that takes one
    std::vector<std::string> files; ///< of a command that takes several
    BatchOptions batch;
    OutputOptions output;
    std::string requestFile;
    std::string responseFile;
    RunOptions run;
};

/// FILE, --output, --force, --quality and --bits. `done`: see bindOutput().
void bindPicture(Options& app, jobs::GenerativeJobRequest& request, GenerativeOptions& options,
                 const std::string& done);
/// The same with FILES; bindEachPicture() completes it.
void bindPictures(Options& app, jobs::GenerativeJobRequest& request, GenerativeOptions& options,
                  const std::string& done);
/// --service, --timeout, --retries, --request-only, --response.
void bindService(Options& app, jobs::GenerativeJobRequest& request, GenerativeOptions& options);
/// Moves the texts into the request.
void takeOptions(const GenerativeOptions& options, const std::string& done, jobs::GenerativeJobRequest& request);

/// The members of a written picture, the input and the request.
[[nodiscard]] nlohmann::ordered_json generativeAsJson(const jobs::GenerativeJobResult& result,
                                                      const jobs::GenerativeJobRequest& request);
[[nodiscard]] std::string generativeAsText(const jobs::GenerativeJobResult& result,
                                           const jobs::GenerativeJobRequest& request);

/// A batch of these commands, without its task.
[[nodiscard]] BatchCommand generativeBatchOf(const std::string& name, const std::string& done,
                                             const GenerativeOptions& options,
                                             const jobs::GenerativeJobRequest& request);
inline constexpr const char* kHalvesOfOne = "--request-only and --response are for one picture, but several were given";

/// runPictureCommand() with the output and the further input that the halves of an exchange have.
[[nodiscard]] int runGenerativeCommand(PictureCommand command, const jobs::GenerativeJobRequest& request);

/// Runs `job` on the one picture of FILES, or as a batch on each of them. `request` has the options of the command.
template <typename Request, typename Result>
[[nodiscard]] int runOnPictures(const std::string& name, const std::string& done, GenerativeOptions options,
                                Request request, Result (*job)(const Request&, const jobs::JobCallbacks&))
{
    if (isEachPicture(options.files, options.batch)) {
        BatchCommand command = generativeBatchOf(name, done, options, request);
        if (!options.requestFile.empty() || !options.responseFile.empty())
            return wrongUsage(name, kHalvesOfOne);
        return runEachPicture(std::move(command), request, job);
    }
    const auto file = onlyFile(name, options.files, options.batch);
    if (!file)
        return kWrongUsage;
    options.file = *file;
    takeOptions(options, done, request);
    Result result;
    return runGenerativeCommand({.name = name,
                                 .run = options.run,
                                 .inputs = {request.source},
                                 .output = request.output,
                                 .job = [&](const jobs::JobCallbacks& callbacks) { result = job(request, callbacks); },
                                 .report = result,
                                 .json = [&] { return generativeAsJson(result, request); },
                                 .sentence = [&] { return generativeAsText(result, request); }},
                                request);
}

/// "X,Y,W,H" with an extent; empty if the text is no such rectangle.
[[nodiscard]] std::optional<_Rect<int>> rectangleOf(const std::string& text);
/// The numbers between commas; empty if one is none. `count`: how many there have to be.
[[nodiscard]] std::optional<std::vector<double>> numbersOf(const std::string& text, std::size_t count);

} // namespace orvo::cli
