#include <httplib.h>
#include <service/service_client.hpp>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

namespace orvo::service {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPoll{20};      // how soon a cancel is noticed
constexpr std::chrono::seconds kLongestPause{60};   // between attempts, whatever the service says
constexpr std::chrono::seconds kLongestConnect{10}; // a machine that is there answers within it
constexpr float kSentShare = 0.05f;                 // of the progress
constexpr float kAnsweredShare = 0.95f;

struct Address
{
    std::string server; // "http://host:port"
    std::string path;   // "/erase"
};

// Empty if the URL cannot be used.
std::optional<Address> addressOf(const std::string& url)
{
    const auto scheme = url.find("://");
    if (scheme == std::string::npos || (url.substr(0, scheme) != "http" && url.substr(0, scheme) != "https"))
        return std::nullopt;
    const auto host = scheme + 3;
    const auto end = std::min(url.find_first_of("/?#", host), url.size());
    const std::string authority = url.substr(host, end - host);
    if (authority.empty() || authority.front() == ':' || authority.find_first_of("@ \t\r\n") != std::string::npos ||
        url.find_first_of("# \t\r\n", end) != std::string::npos)
        return std::nullopt;
    return Address{url.substr(0, end), url.substr(end)};
}

Address addressOf(const std::string& url, Tool tool)
{
    auto address = addressOf(url);
    if (!address)
        throw std::invalid_argument(complaintAboutUrl(url));
    if (address->path.empty() || address->path == "/")
        address->path = std::string("/") + toolName(tool);
    return *address;
}

// How an attempt ended that brought no picture.
struct Setback
{
    std::string sentence;
    bool mayPass = false;                      // another attempt makes sense
    std::optional<std::chrono::seconds> pause; // as the service says
};

// Ends a connection when its time is up or the caller cancels, whatever the connection is waiting for.
class Watch
{
public:
    Watch(httplib::Client& client, Clock::time_point deadline, const RunControl& control)
        : thread([&client, deadline, &control, this] {
              std::unique_lock lock(mutex);
              while (!ended.wait_for(lock, kPoll, [&] { return isEnded; })) {
                  isLate = isLate || Clock::now() >= deadline;
                  if (isLate || control.cancelled())
                      client.stop(); // again until the attempt ends: one that is still connecting has nothing to stop
              }
          })
    {}
    ~Watch() { end(); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    void end()
    {
        {
            const std::lock_guard lock(mutex);
            isEnded = true;
        }
        ended.notify_one();
        if (thread.joinable())
            thread.join();
    }
    [[nodiscard]] bool wasLate() const { return isLate; } // after end()

private:
    std::mutex mutex;
    std::condition_variable ended;
    bool isEnded = false;
    bool isLate = false;
    std::thread thread; // last: it uses the rest
};

// What has come of an answer.
struct Arrival
{
    bool answered = false; // its headers are there
    int status = 0;
    std::optional<std::uint64_t> length; // as announced
    std::string type;
    std::string location;
    std::string retryAfter;
    std::string body;
    bool tooLarge = false;
};

std::string megabytes(std::uint64_t bytes)
{
    constexpr std::uint64_t kMega = 1'000'000;
    return std::to_string((bytes + kMega - 1) / kMega) + " MB";
}

std::optional<std::uint64_t> numberIn(const std::string& text)
{
    constexpr std::size_t kMostDigits = 18;
    if (text.empty() || text.size() > kMostDigits || text.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    return std::stoull(text);
}

httplib::Request httpRequest(const std::string& path, std::string body, Arrival& arrival, const RunControl& control)
{
    httplib::Request request;
    request.method = "POST";
    request.path = path;
    request.headers = {{"Content-Type", "application/json"}, {"Accept", "application/json, image/png, text/plain"}};
    request.body = std::move(body);
    request.response_handler = [&](const httplib::Response& response) {
        arrival.answered = true;
        arrival.status = response.status;
        arrival.length = numberIn(response.get_header_value("Content-Length"));
        arrival.type = response.get_header_value("Content-Type");
        arrival.location = response.get_header_value("Location");
        arrival.retryAfter = response.get_header_value("Retry-After");
        arrival.tooLarge = arrival.length.value_or(0) > kMostAnswerBytes;
        control.report(kAnsweredShare);
        return !arrival.tooLarge;
    };
    request.content_receiver = [&](const char* data, std::size_t size, std::uint64_t, std::uint64_t) {
        arrival.tooLarge = arrival.body.size() + size > kMostAnswerBytes;
        if (!arrival.tooLarge)
            arrival.body.append(data, size);
        return !arrival.tooLarge;
    };
    return request;
}

std::string lostConnection(const Arrival& arrival, httplib::Error error, std::size_t sent)
{
    switch (error) {
    case httplib::Error::Connection:
    case httplib::Error::ConnectionTimeout:
    case httplib::Error::BindIPAddress:
        return "cannot connect";
    case httplib::Error::SSLConnection:
    case httplib::Error::SSLLoadingCerts:
    case httplib::Error::SSLServerVerification:
        return "no secure connection: " + httplib::to_string(error);
    case httplib::Error::Write:
        return "the service closed the connection before it had the whole request of " + megabytes(sent);
    default:
        break;
    }
    if (!arrival.answered)
        return "the service closed the connection without an answer";
    return "the service closed the connection in the middle of its answer, after " +
           std::to_string(arrival.body.size()) +
           (arrival.length ? " of " + std::to_string(*arrival.length) + " bytes" : " bytes");
}

std::string firstWords(const Arrival& arrival)
{
    const std::string type = arrival.type.substr(0, arrival.type.find(';'));
    return type.empty() ? "" : " (" + type + ")";
}

Setback refusalOf(const Arrival& arrival, std::size_t sent)
{
    const std::string code = " (" + std::to_string(arrival.status) + ")";
    const std::string own = sentenceOfError(arrival.body);
    const std::string reason = own.empty() ? "" : ": " + own;
    std::optional<std::chrono::seconds> pause;
    if (const auto seconds = numberIn(arrival.retryAfter))
        pause = std::min(kLongestPause, std::chrono::seconds(std::min<std::uint64_t>(*seconds, kLongestPause.count())));
    switch (arrival.status) {
    case 413:
        return {"the request of " + megabytes(sent) + " is too large for the service" + code + reason, false, {}};
    case 429:
        return {"the service takes no more requests for now" + code + reason, true, pause};
    case 502:
    case 503:
    case 504:
        return {"the service is not available" + code + reason, true, pause};
    default:
        break;
    }
    constexpr int kRedirects = 300;
    constexpr int kRefusals = 400;
    constexpr int kErrors = 500;
    if (arrival.status >= kErrors)
        return {"the service failed" + code + reason, false, {}};
    if (arrival.status >= kRefusals)
        return {"the service refuses the request" + code + reason, false, {}};
    if (arrival.status >= kRedirects)
        return {"the service has another address" + code +
                    (arrival.location.empty() ? "" : ": " + arrival.location.substr(0, 200)),
                false,
                {}};
    return {"the service answered with the unexpected status" + code, false, {}};
}

// The picture, or what came instead.
std::optional<std::string> attempt(const ServiceSettings& settings, const Address& address,
                                   const PictureRequest& request, const RunControl& control, Setback& setback)
{
    httplib::Client client(address.server);
    if (!client.is_valid())
        throw std::invalid_argument(complaintAboutUrl(settings.url));
    client.set_connection_timeout(std::min(settings.timeout, kLongestConnect));
    // The watch ends the attempt; these are only longer.
    client.set_read_timeout(2 * settings.timeout);
    client.set_write_timeout(2 * settings.timeout);

    Arrival arrival;
    const httplib::Request httpPost = httpRequest(address.path, requestText(request), arrival, control);
    const std::size_t sent = httpPost.body.size();
    Watch watch(client, Clock::now() + settings.timeout, control);
    const httplib::Result result = client.send(httpPost);
    watch.end();
    control.throwIfCancelled();
    if (result)
        arrival.status = result->status; // of an answer without a body nothing else has been reported

    constexpr int kOk = 200;
    if (arrival.tooLarge)
        setback = {"the answer is larger than " + megabytes(kMostAnswerBytes), false, {}};
    else if (!result && watch.wasLate())
        setback = {"no answer within " + std::to_string(settings.timeout.count()) + " s", false, {}};
    else if (!result)
        setback = {lostConnection(arrival, result.error(), sent), true, {}};
    else if (arrival.status != kOk)
        setback = refusalOf(arrival, sent);
    else
        try {
            return pictureOfAnswer(arrival.body, request);
        } catch (const ProtocolError& error) {
            setback = {error.what() + firstWords(arrival), false, {}};
        }
    return std::nullopt;
}

void pause(std::chrono::milliseconds length, const RunControl& control)
{
    const auto end = Clock::now() + length;
    for (auto now = Clock::now(); now < end; now = Clock::now()) {
        control.throwIfCancelled();
        std::this_thread::sleep_for(std::min<Clock::duration>(kPoll, end - now));
    }
}

} // namespace

std::string complaintAboutUrl(const std::string& url)
{
    return addressOf(url) ? std::string()
                          : url + " is no address of a service; expected one like http://localhost:8080/erase";
}

std::string askService(const ServiceSettings& settings, const PictureRequest& request, const RunControl& control)
{
    const Address address = addressOf(settings.url, request.tool);
    std::chrono::milliseconds length = settings.firstPause;
    for (int made = 1;; ++made) {
        control.throwIfCancelled();
        control.report(kSentShare);
        Setback setback;
        if (auto picture = attempt(settings, address, request, control, setback))
            return std::move(*picture);
        if (!setback.mayPass || made > settings.retries)
            throw FailureError({FailureKind::Internal,
                                {},
                                address.server + address.path + ": " + setback.sentence +
                                    (made > 1 ? ", " + std::to_string(made) + " attempts" : "")});
        pause(setback.pause ? std::chrono::milliseconds(*setback.pause) : length, control);
        length = std::min<std::chrono::milliseconds>(2 * length, kLongestPause);
    }
}

} // namespace orvo::service
