/// Shared by commands whose result a generative service paints.
#pragma once

#include "picture_command.hpp"

#include <jobs/generative_job.hpp>

#include <string>

namespace orvo::cli {

/// Texts of the options, as CLI11 needs them.
struct GenerativeOptions
{
    std::string file;
    OutputOptions output;
    std::string requestFile;
    std::string responseFile;
    RunOptions run;
};

/// FILE, --output, --force, --quality and --bits. `done`: see bindOutput().
void bindPicture(Options& app, jobs::GenerativeJobRequest& request, GenerativeOptions& options,
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

/// runPictureCommand() with the output and the further input that the halves of an exchange have.
[[nodiscard]] int runGenerativeCommand(PictureCommand command, const jobs::GenerativeJobRequest& request);

/// "X,Y,W,H" with an extent; empty if the text is no such rectangle.
[[nodiscard]] std::optional<_Rect<int>> rectangleOf(const std::string& text);
/// The numbers between commas; empty if one is none. `count`: how many there have to be.
[[nodiscard]] std::optional<std::vector<double>> numbersOf(const std::string& text, std::size_t count);

} // namespace orvo::cli
