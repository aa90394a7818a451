/// The steps that jobs over a generative service share: checks, the exchange, and waiting for a processor.
#pragma once

#include "picture_run.hpp"

#include <jobs/generative_job.hpp>
#include <orvo_common/run_control.hpp>
#include <orvo_core/image.hpp>

#include <service/messages.hpp>

#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvo::jobs {

/// A picture in base64 and the size of the one that was sent for it.
struct ServiceAnswer
{
    std::string picture;
    _Size<int> sent;
};

/// All members throw JobRefusal or FailureError.
class GenerativeRun
{
public:
    /// All three must outlive it.
    GenerativeRun(PictureRun& run_, const GenerativeJobRequest& request_, GenerativeJobResult& result_)
        : run(run_), request(request_), result(result_)
    {}

    /// Checks what does not depend on the tool: names, values, files. `inputs`: the tool's own, besides the source.
    /// Returns the size of the source.
    _Size<int> check(const std::vector<std::filesystem::path>& inputs);
    /// The format of the output can hold a picture of `size`.
    void checkHolds(_Size<int> size) const;
    [[nodiscard]] bool isRequestOnly() const { return !request.requestFile.empty(); }

    /// The source in the working space, upright, raw files developed.
    [[nodiscard]] std::shared_ptr<Image> open();

    /// Writes the request to its file, or gets the answer; reports progress from `begin` to `end`. Empty if the job
    /// ends with the request.
    [[nodiscard]] std::optional<ServiceAnswer> exchange(service::Tool tool, std::string image, std::string mask,
                                                        double begin, double end);
    /// Writes the picture to the output as the end of the job, with these metadata, the source's; in the profile that
    /// the job requests, else in `profile`, else in that of the source.
    void write(const std::shared_ptr<const _ImageData<PixelRGB<float>>>& picture,
               const std::shared_ptr<const ImageMetadata>& metadata,
               const std::shared_ptr<ColorProfile>& profile = nullptr);

private:
    void writeRequest(const service::PictureRequest& toSend);
    [[nodiscard]] std::string answerFromFile(const service::PictureRequest& toSend) const;
    [[nodiscard]] std::string answerTo(const service::PictureRequest& toSend, const RunControl& control) const;

    PictureRun& run;
    const GenerativeJobRequest& request;
    GenerativeJobResult& result;
    ImageWriteSettings settings;
};

/// Calls `start` with a callback for a Value and waits for it. Processors call back once, from a thread of their own.
template <typename Value, typename Start>
Value answerOf(const Start& start)
{
    const auto promise = std::make_shared<std::promise<Value>>();
    auto future = promise->get_future();
    start([promise](Value value) { promise->set_value(std::move(value)); });
    return future.get();
}

/// What applyGeneratedResponse() takes.
[[nodiscard]] std::string asDataUrl(const std::string& picture);

} // namespace orvo::jobs
