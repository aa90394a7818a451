/// Sends requests to a generative service over HTTP.
#pragma once

#include <orvo_common/run_control.hpp>

#include <service/messages.hpp>

#include <chrono>
#include <cstddef>
#include <string>

namespace orvo::service {

/// An answer of more bytes is not read: a picture of kMostDecodedPixels takes a third of them.
inline constexpr std::size_t kMostAnswerBytes = std::size_t{1} << 30U;

struct ServiceSettings
{
    std::string url;                           ///< http:// or https://; one without a path gets the tool's name
    std::chrono::seconds timeout{300};         ///< from the connection to the last byte of the answer, for each attempt
    int retries = 2;                           ///< further attempts, with growing pauses
    std::chrono::milliseconds firstPause{500}; ///< before the first of them; each pause is twice the one before
};

/// Why a URL cannot be used, as one line without a full stop; empty if it can.
[[nodiscard]] std::string complaintAboutUrl(const std::string& url);

/// The picture of the service's answer, in base64 and decodable (pictureOfAnswer()). Another attempt is made if the
/// service cannot be reached, closes the connection, or answers with 429, 502, 503 or 504; it may name the pause in
/// seconds in Retry-After. `control` reports in large steps; it is polled by a second thread, too, so that a cancel
/// ends the wait at once. Redirects are not followed. Throws FailureError with the URL in its sentence: Cancelled or
/// Internal; std::invalid_argument for a URL that cannot be used. Peak: the request twice, the answer three times.
[[nodiscard]] std::string askService(const ServiceSettings& settings, const PictureRequest& request,
                                     const RunControl& control);

} // namespace orvo::service
