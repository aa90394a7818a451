// orvo serve
#include "brackets.hpp"
#include "loopback.hpp"
#include "program.hpp"

#include <orvo_core/image_data.hpp>
#include <orvo_io/base64_image.hpp>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <service/messages.hpp>

#include <csignal>
#include <string>

namespace orvo::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

using Json = nlohmann::json;

class Served
{
public:
    explicit Served(std::vector<std::string> options = {}) : program(withCommand(std::move(options)))
    {
        program.waitFor("\n");
        const std::string line = program.outSoFar().substr(0, program.outSoFar().find('\n'));
        const auto colon = line.rfind(':');
        if (!line.starts_with("listening on http://127.0.0.1:"))
            throw std::runtime_error("no service: " + line);
        portNumber = std::stoi(line.substr(colon + 1));
    }

    [[nodiscard]] int port() const { return portNumber; }
    [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + std::to_string(portNumber); }

    [[nodiscard]] std::string exchange(const std::string& bytes) const
    {
        const Wire wire = Wire::to(portNumber);
        wire.send(bytes);
        return wire.receiveAll();
    }
    [[nodiscard]] Json health() const { return Json::parse(bodyOf(exchange("GET /health HTTP/1.1\r\n\r\n"))); }
    void waitUntil(const char* member, int value) const
    {
        while (health().at(member) != value)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }

    Program program;

private:
    static std::vector<std::string> withCommand(std::vector<std::string> options)
    {
        options.insert(options.begin(), "serve");
        return options;
    }

    int portNumber = 0;
};

// A request for a picture of that size, with a hole in its middle of half its sides.
std::string eraseRequest(int side, const std::string& id = "a request")
{
    const auto picture =
        std::make_shared<_ImageData<PixelRGB<float>>>(_Size<int>(side, side), ColorProfileType::sRGB());
    const auto mask = std::make_shared<MaskImage>(picture->size(), 0.0f);
    mask->fillRect(1.0f, {side / 4, side / 4, side / 2, side / 2});
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
            const auto shade = static_cast<float>((x * 7 + y * 13 + x * y % 31) % 97) / 97.0f;
            picture->row(y)[x] = {shade, shade * 0.5f, 1.0f - shade};
        }
    service::PictureRequest request;
    request.id = id;
    request.width = side;
    request.image = imageToBase64(picture, {0, 8});
    request.mask = imageToBase64(mask, {0, 8});
    return requestText(request);
}

int statusOf(const std::string& message)
{
    return message.starts_with("HTTP/1.1 ") ? std::stoi(message.substr(9, 3)) : 0;
}

TEST(Serve, AnErasedPictureIsTheOneOfTheProcessItself)
{
    const TemporaryFolder folder;
    writeFrame(folder / "in.jpg", {.width = 240, .height = 160});
    const Served served;
    const auto erase = [&](const std::string& output, std::vector<std::string> more) {
        more.insert(more.begin(), {"erase", "in.jpg", "--box", "90,60,40,30", "--stroke", "20,20,5;60,30,8"});
        more.insert(more.end(), {"-o", output});
        return runOrvo(more, {.workingFolder = folder.path()}).exitCode;
    };
    ASSERT_EQ(erase("own.png", {}), 0);
    ASSERT_EQ(erase("served.png", {"--service", served.url()}), 0);
    EXPECT_TRUE(fileText(folder / "own.png") == fileText(folder / "served.png"));
    EXPECT_EQ(served.health().at("answered"), 1);
}

TEST(Serve, AnExpandedAndARestoredPictureToo)
{
    const TemporaryFolder folder;
    writeFrame(folder / "in.jpg", {.width = 120, .height = 80});
    const Served served;
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"expand", "in.jpg", "--add", "10,10,10,10"}, {"restore", "in.jpg"}}) {
        const auto run = [&](const std::string& output, const std::vector<std::string>& more) {
            auto all = words;
            all.insert(all.end(), more.begin(), more.end());
            all.insert(all.end(), {"-o", output});
            return runOrvo(all, {.workingFolder = folder.path()}).exitCode;
        };
        ASSERT_EQ(run("own.png", {}), 0);
        ASSERT_EQ(run("served.png", {"--service", served.url()}), 0);
        EXPECT_TRUE(fileText(folder / "own.png") == fileText(folder / "served.png")) << words[0];
    }
}

TEST(Serve, AnswersWithTheIdAndADataUrl)
{
    const Served served;
    const std::string answer = served.exchange(httpPost("/erase", eraseRequest(64)));
    EXPECT_EQ(statusOf(answer), 200);
    EXPECT_THAT(answer, HasSubstr("Content-Type: application/json"));
    const Json json = Json::parse(bodyOf(answer));
    EXPECT_EQ(json.at("id"), "a request");
    EXPECT_THAT(json.at("image").get<std::string>(), StartsWith("data:image/png;base64,"));
}

TEST(Serve, RequestsThatCannotBeAnswered)
{
    const Served served;
    const auto expect = [&](const std::string& message, int status, const std::string& words) {
        const std::string answer = served.exchange(message);
        EXPECT_EQ(statusOf(answer), status) << answer;
        EXPECT_THAT(Json::parse(bodyOf(answer)).at("error").get<std::string>(), HasSubstr(words));
    };
    expect(httpPost("/erase", eraseRequest(64), "text/plain"), 415, "application/json");
    expect(httpPost("/paint", eraseRequest(64)), 404, "there is no /paint");
    expect("GET /paint HTTP/1.1\r\n\r\n", 404, "there is no /paint");
    expect("PUT /erase HTTP/1.1\r\nContent-Length: 1\r\n\r\n1", 405, "PUT");
    expect("nonsense\r\n\r\n", 400, "cannot be read");
    expect(httpPost("/erase", "[1, 2"), 400, "no JSON object");
    expect(httpPost("/erase", "[1, 2]"), 400, "no JSON object");
    const auto edited = [](const char* member, const Json& value) {
        Json json = Json::parse(eraseRequest(64));
        if (value.is_null())
            json.erase(member);
        else
            json[member] = value;
        return httpPost("/erase", json.dump());
    };
    expect(edited("id", nullptr), 400, "\"id\"");
    expect(edited("id", ""), 400, "\"id\"");
    expect(edited("id", std::string(1000, 'x')), 400, "1000 characters");
    expect(edited("width", 63), 400, "64");
    expect(edited("width", "64"), 400, "64");
    expect(edited("image", "AAAA"), 400, "\"image\" is no PNG");
    expect(edited("mask", nullptr), 400, "\"mask\"");
    expect(edited("mask", Json::parse(eraseRequest(32)).at("mask")), 400, "32 x 32");
    const std::string image = Json::parse(eraseRequest(64)).at("image");
    expect(edited("image", image.substr(0, image.size() / 2)), 422, "cannot be decoded");
    expect(edited("mask", imageToBase64(std::make_shared<MaskImage>(_Size<int>(64, 64), 1.0f), {0, 8})), 422,
           "marks all");
    EXPECT_EQ(served.health().at("answered"), 0);
}

TEST(Serve, BodiesThatAreTooLarge)
{
    const Served served({"--max-body", "1"});
    const std::string large = Json{{"id", std::string(2 << 20, 'x')}}.dump();
    EXPECT_EQ(statusOf(served.exchange(httpPost("/erase", large))), 413);
    // Announced, and never sent.
    EXPECT_EQ(statusOf(served.exchange("POST /erase HTTP/1.1\r\nContent-Type: application/json\r\n"
                                       "Content-Length: 999999999999\r\n\r\n")),
              413);
    // Not announced.
    char length[16];
    std::snprintf(length, sizeof length, "%zx", large.size());
    EXPECT_EQ(statusOf(served.exchange("POST /erase HTTP/1.1\r\nContent-Type: application/json\r\n"
                                       "Transfer-Encoding: chunked\r\n\r\n" +
                                       std::string(length) + "\r\n" + large + "\r\n0\r\n\r\n")),
              413);
    // A client that asks first is not let send.
    EXPECT_EQ(statusOf(served.exchange("POST /erase HTTP/1.1\r\nContent-Type: application/json\r\n"
                                       "Expect: 100-continue\r\nContent-Length: 9999999\r\n\r\n")),
              417);
    EXPECT_EQ(statusOf(served.exchange(httpPost("/erase", eraseRequest(64)))), 200);
}

TEST(Serve, SlowClients)
{
    const Served served({"--timeout", "1"});
    const std::string request = httpPost("/erase", eraseRequest(64));
    {
        const Wire wire = Wire::to(served.port());
        wire.send(request.substr(0, request.size() - 10)); // and no more
        EXPECT_EQ(statusOf(wire.receiveAll()), 408);
    }
    {
        const Wire wire = Wire::to(served.port());
        wire.send("POST /erase HTT");
        EXPECT_THAT(wire.receiveAll(), IsEmpty()); // it is closed without an answer
    }
    { // one byte after the other does not help
        const Wire wire = Wire::to(served.port());
        wire.send("POST /erase HTTP/1.1\r\nX: ");
        std::atomic<bool> isClosed = false;
        std::thread drip([&] {
            while (!isClosed) {
                wire.send("x");
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        });
        EXPECT_EQ(statusOf(wire.receiveAll()), 400);
        isClosed = true;
        drip.join();
    }
    EXPECT_EQ(statusOf(served.exchange(request)), 200);
}

TEST(Serve, AsManyJobsAsAreAllowed)
{
    const Served served({"--jobs", "2", "--timeout", "3600"});
    const std::string request = httpPost("/erase", eraseRequest(64));
    const std::string half = request.substr(0, request.size() / 2);
    {
        const Wire first = Wire::to(served.port());
        first.send(half);
        served.waitUntil("running", 1);
        const Wire second = Wire::to(served.port());
        second.send(half);
        served.waitUntil("running", 2);
        const std::string refused = served.exchange(request);
        EXPECT_EQ(statusOf(refused), 503);
        EXPECT_THAT(refused, AllOf(HasSubstr("Retry-After: "), HasSubstr("all 2 jobs")));
        second.send(request.substr(half.size()));
        EXPECT_EQ(statusOf(second.receiveAll()), 200);
        served.waitUntil("running", 1);
        EXPECT_EQ(statusOf(served.exchange(request)), 200);
    }
    served.waitUntil("running", 0); // the first client went away in its request
}

TEST(Serve, WorkEndsWhenItsClientGoesAway)
{
    const Served served;
    {
        const Wire wire = Wire::to(served.port());
        wire.send(httpPost("/erase", eraseRequest(1200)));
        served.waitUntil("running", 1);
    }
    served.waitUntil("running", 0);
    const Json health = served.health();
    EXPECT_EQ(health.at("abandoned"), 1);
    EXPECT_EQ(health.at("answered"), 0);
}

TEST(Serve, EndsCleanlyWithWorkInFlight)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        Served served({"--timeout", "3600"});
        const Wire working = Wire::to(served.port());
        working.send(httpPost("/erase", eraseRequest(1200)));
        served.waitUntil("running", 1);
        const Wire sending = Wire::to(served.port());
        sending.send("POST /erase HTTP/1.1\r\n");
        served.program.send(signal);
        EXPECT_EQ(statusOf(working.receiveAll()), 503);
        (void)sending.receiveAll(); // it is closed, too, after an answer or without one
        const Finished run = served.program.wait();
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_THAT(run.out, HasSubstr("\nstopped\n"));
        EXPECT_THAT(run.err, IsEmpty());
    }
}

TEST(Serve, ARequestThatIsStillArrivingIsAnsweredWhenItStops)
{
    Served served({"--timeout", "3600"});
    const std::string request = httpPost("/erase", eraseRequest(200));
    const Wire arriving = Wire::to(served.port());
    arriving.send(request.substr(0, request.size() / 2));
    served.waitUntil("running", 1); // from its headers on
    served.program.send(SIGTERM);
    const std::string answer = arriving.receiveAll();
    EXPECT_EQ(statusOf(answer), 503);
    EXPECT_THAT(bodyOf(answer), HasSubstr("the service is being stopped"));
    EXPECT_EQ(served.program.wait().exitCode, 0);
}

TEST(Serve, PortsThatCannotBeUsed)
{
    const Served served;
    const Finished run = runOrvo({"serve", "--port", std::to_string(served.port())});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.err, AllOf(HasSubstr("cannot listen"), HasSubstr(std::to_string(served.port()))));
    EXPECT_EQ(runOrvo({"serve", "--address", "192.0.2.1"}).exitCode, 1); // reserved for documentation
    EXPECT_EQ(runOrvo({"serve", "--port", "70000"}).exitCode, 2);
    EXPECT_EQ(runOrvo({"serve", "--jobs", "0"}).exitCode, 2);
}

TEST(Serve, ReportsWhatItDoes)
{
    Served served;
    EXPECT_EQ(served.health(), Json::parse(R"({"status": "ok", "running": 0, "jobs": 1, "answered": 0, "refused": 0,
                                               "abandoned": 0})"));
    (void)served.exchange(httpPost("/erase", "{}"));
    (void)served.exchange(httpPost("/erase", eraseRequest(64, "line\nbreak")));
    served.program.send(SIGTERM);
    const Finished run = served.program.wait();
    EXPECT_THAT(run.out, AllOf(HasSubstr("\nerase: 400 in "), HasSubstr("\nerase line?break: 200 in ")));
}

} // namespace
} // namespace orvo::test
