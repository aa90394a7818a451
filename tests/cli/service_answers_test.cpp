// orvo erase --service against services that behave well and badly.
#include "brackets.hpp"
#include "loopback.hpp"
#include "program.hpp"

#include <orvo_io/base64.hpp>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <service/built_in_answers.hpp>

#include <csignal>
#include <functional>

namespace orvo::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

using Json = nlohmann::json;

constexpr const char* kPngType = "Content-Type: image/png\r\n";
constexpr const char* kJsonType = "Content-Type: application/json\r\n";

// The request of a message, answered as the program itself would.
std::string pictureFor(const std::string& message)
{
    return service::builtInAnswer(service::parsedRequest(service::Tool::Erase, bodyOf(message)), RunControl::none());
}

std::string idOf(const std::string& message) { return Json::parse(bodyOf(message)).at("id").get<std::string>(); }

std::string pngOf(const std::string& base64)
{
    const auto bytes = bytesOfBase64(base64);
    return {bytes->begin(), bytes->end()};
}

class ServiceAnswers : public testing::Test
{
protected:
    ServiceAnswers() { writeFrame(folder / "in.jpg", {.width = 120, .height = 80}); }

    [[nodiscard]] Finished erase(const std::string& url, std::vector<std::string> more = {}) const
    {
        more.insert(more.begin(), {"erase", "in.jpg", "--box", "40,30,20,10", "--service", url});
        more.insert(more.end(), {"-o", "out.png"});
        return runOrvo(more, {.workingFolder = folder.path()});
    }

    // The program fails with one line that has all `words`, and leaves nothing.
    void expectFailure(const std::string& url, const std::vector<std::string>& words,
                       const std::vector<std::string>& more = {"--retries", "0"}) const
    {
        const Finished run = erase(url, more);
        EXPECT_EQ(run.exitCode, 1);
        ASSERT_EQ(run.errLines().size(), 1u) << run.err;
        EXPECT_THAT(run.err, HasSubstr(url + "/erase: "));
        for (const std::string& word : words)
            EXPECT_THAT(run.err, HasSubstr(word));
        EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{"in.jpg"})) << "something was left behind";
    }

    // A service that reads each request and answers with the bytes.
    void expectFailure(const std::function<std::string(const std::string&)>& answer,
                       const std::vector<std::string>& words,
                       const std::vector<std::string>& more = {"--retries", "0"}) const
    {
        const LoopbackService service([&](Wire& wire, int) { wire.send(answer(wire.receiveMessage())); });
        expectFailure(service.url(), words, more);
    }

    void expectSuccess(const std::function<std::string(const std::string&)>& answer) const
    {
        const LoopbackService service([&](Wire& wire, int) { wire.send(answer(wire.receiveMessage())); });
        const Finished run = erase(service.url());
        ASSERT_EQ(run.exitCode, 0) << run.err;
        EXPECT_THAT(run.err, IsEmpty());
        ASSERT_EQ(
            runOrvo({"erase", "in.jpg", "--box", "40,30,20,10", "-o", "own.png"}, {.workingFolder = folder.path()})
                .exitCode,
            0);
        EXPECT_TRUE(fileText(folder / "out.png") == fileText(folder / "own.png"));
    }

    TemporaryFolder folder;
};

TEST_F(ServiceAnswers, JsonADataUrlAndAPng)
{
    expectSuccess([](const std::string& message) {
        return httpAnswer("200 OK", kJsonType, service::answerText(idOf(message), pictureFor(message)));
    });
    expectSuccess([](const std::string& message) { // plain base64 in JSON
        return httpAnswer("200 OK", "", Json{{"id", idOf(message)}, {"image", pictureFor(message)}}.dump());
    });
    expectSuccess([](const std::string& message) {
        return httpAnswer("200 OK", "Content-Type: text/plain\r\n",
                          "data:image/png;base64," + pictureFor(message) + "\n");
    });
    expectSuccess(
        [](const std::string& message) { return httpAnswer("200 OK", kPngType, pngOf(pictureFor(message))); });
}

TEST_F(ServiceAnswers, InChunksAndUntilTheEnd)
{
    expectSuccess([](const std::string& message) {
        const std::string body = service::answerText(idOf(message), pictureFor(message));
        std::string chunks = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
        for (std::size_t at = 0; at < body.size(); at += 4096) {
            const std::string piece = body.substr(at, 4096);
            char length[16];
            std::snprintf(length, sizeof length, "%zx\r\n", piece.size());
            chunks += length + piece + "\r\n";
        }
        return chunks + "0\r\n\r\n";
    });
    expectSuccess([](const std::string& message) {
        return "HTTP/1.0 200 OK\r\n\r\n" + service::answerText(idOf(message), pictureFor(message));
    });
}

TEST_F(ServiceAnswers, TheRequestIsAsThePageSays)
{
    std::string message;
    const LoopbackService service([&](Wire& wire, int) {
        message = wire.receiveMessage();
        wire.send(httpAnswer("500 No", "", ""));
    });
    EXPECT_EQ(erase(service.url() + "/v1/paint?key=3", {"--retries", "0"}).exitCode, 1);
    EXPECT_THAT(message,
                AllOf(HasSubstr("POST /v1/paint?key=3 HTTP/1.1\r\n"), HasSubstr("Content-Type: application/json\r\n")));
    const Json json = Json::parse(bodyOf(message));
    EXPECT_EQ(json.size(), 4u);
    const std::string image = json.at("image");
    const std::string mask = json.at("mask");
    EXPECT_EQ(service::pngSize(image), service::pngSize(mask));
    EXPECT_EQ(service::pngSize(image).width, json.at("width"));
    EXPECT_THAT(json.at("id").get<std::string>(), testing::StartsWith("erase-"));
}

TEST_F(ServiceAnswers, NobodyIsThere)
{
    const std::string url = "http://127.0.0.1:" + std::to_string(unusedPort());
    expectFailure(url, {"cannot connect"});
    expectFailure(url, {"cannot connect", "2 attempts"}, {"--retries", "1"});
}

TEST_F(ServiceAnswers, Stalls)
{
    const LoopbackService service([](Wire& wire, int) { (void)wire.receiveAll(); }); // until the program gives up
    expectFailure(service.url(), {"no answer within 1 s"}, {"--timeout", "1"});
    EXPECT_EQ(service.connections(), 1); // the time is the user's: no second attempt
}

TEST_F(ServiceAnswers, StallsInTheAnswer)
{
    const LoopbackService service([](Wire& wire, int) {
        (void)wire.receiveMessage();
        wire.send("HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{");
        (void)wire.receiveAll();
    });
    expectFailure(service.url(), {"no answer within 1 s"}, {"--timeout", "1"});
}

TEST_F(ServiceAnswers, ClosesTooEarly)
{
    expectFailure([](const std::string&) { return std::string(); }, {"closed the connection without an answer"});
    expectFailure([](const std::string&) { return std::string("HTTP/1.1 200"); },
                  {"closed the connection without an answer"});
    expectFailure([](const std::string&) { return "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n0123456789"; },
                  {"in the middle of its answer", "after 10 of 1000 bytes"});
    expectFailure(
        [](const std::string&) { return "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n"; },
        {"in the middle of its answer"});
}

TEST_F(ServiceAnswers, KilledInTheRequest)
{
    const LoopbackService service([](Wire& wire, int) {
        (void)wire.receive();
        wire.abort();
    });
    expectFailure(service.url(), {"closed the connection"});
}

TEST_F(ServiceAnswers, Statuses)
{
    const auto answer = [](const std::string& status, const std::string& headers, const std::string& body) {
        return [=](const std::string&) { return httpAnswer(status, headers, body); };
    };
    expectFailure(answer("413 Payload Too Large", "", ""), {"too large for the service (413)", "MB"});
    expectFailure(answer("429 Too Many Requests", "Retry-After: 0\r\n", ""), {"no more requests for now (429)"});
    expectFailure(answer("429 Too Many Requests", "Retry-After: 0\r\n", ""), {"(429)", "3 attempts"},
                  {"--retries", "2"});
    expectFailure(answer("500 Internal Server Error", kJsonType, R"({"error": "the model\nis on fire."})"),
                  {"the service failed (500): the model is on fire"});
    expectFailure(answer("503 Service Unavailable", "", ""), {"not available (503)"});
    expectFailure(answer("404 Not Found", "", "<html>"), {"refuses the request (404)"});
    expectFailure(answer("302 Found", "Location: http://elsewhere/\r\n", ""), {"another address (302)", "elsewhere"});
    expectFailure(answer("204 No Content", "", ""), {"unexpected status (204)"});
}

TEST_F(ServiceAnswers, BodiesThatAreNoAnswer)
{
    const auto answer = [](const std::string& type, const std::string& body) {
        return [=](const std::string&) { return httpAnswer("200 OK", "Content-Type: " + type + "\r\n", body); };
    };
    expectFailure(answer("text/html; charset=utf-8", "<!doctype html><title>Sign in</title>"),
                  {"neither JSON, a data URL of a PNG nor a PNG", "text/html"});
    expectFailure(answer("application/json", ""), {"the answer is empty"});
    expectFailure(answer("application/json", "{\"id\": "), {"no JSON object"});
    expectFailure(answer("application/json", "{}"), {"has no text \"id\""});
    expectFailure(answer("application/json", R"({"error": "no credit left"})"), {"reports: no credit left"});
    expectFailure(answer("application/json", R"({"id": "erase-0", "image": "AAAA"})"), {"another request", "erase-0"});
    expectFailure(answer("text/plain", "data:image/png;base64,AAAA"), {"no PNG"});
}

TEST_F(ServiceAnswers, PicturesThatAreNoAnswer)
{
    const auto picture = [](const std::string& png) {
        return [=](const std::string&) { return httpAnswer("200 OK", kPngType, png); };
    };
    expectFailure(picture(pngHeader(30, 90)), {"30 x 90", "other proportions"});
    expectFailure(
        [](const std::string& message) { // the whole answer but its last bytes
            const std::string png = pngOf(pictureFor(message));
            return httpAnswer("200 OK", kPngType, png.substr(0, png.size() / 2));
        },
        {"damaged or cut off"});
    expectFailure(
        [](const std::string& message) { // a small file that would unfold into terabytes
            const auto size = service::pngSize(Json::parse(bodyOf(message)).at("image").get<std::string>());
            return httpAnswer("200 OK", kPngType,
                              pngHeader(static_cast<std::uint32_t>(size.width) * 10000,
                                        static_cast<std::uint32_t>(size.height) * 10000));
        },
        {"million are read"});
    expectFailure([](const std::string&) { return "HTTP/1.1 200 OK\r\nContent-Length: 10000000000000\r\n\r\n"; },
                  {"larger than"});
}

TEST_F(ServiceAnswers, ASecondAttemptMaySucceed)
{
    const LoopbackService service([](Wire& wire, int number) {
        const std::string message = wire.receiveMessage();
        if (number == 0)
            wire.send(httpAnswer("503 Service Unavailable", "Retry-After: 0\r\n", ""));
        else if (number == 1)
            wire.abort();
        else
            wire.send(httpAnswer("200 OK", kPngType, pngOf(pictureFor(message))));
    });
    const Finished run = erase(service.url());
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(service.connections(), 3);
}

TEST_F(ServiceAnswers, InterruptedWhileItWaits)
{
    for (const int status : {0, 429}) {
        std::atomic<bool> asked = false;
        const LoopbackService service([&](Wire& wire, int) {
            (void)wire.receiveMessage();
            asked = true;
            if (status == 0)
                (void)wire.receiveAll(); // no answer, until the program is gone
            else
                wire.send(httpAnswer("429 Too Many Requests", "Retry-After: 60\r\n", ""));
        });
        Program program({"erase", "in.jpg", "--box", "40,30,20,10", "--service", service.url(), "-o", "out.png"},
                        {.workingFolder = folder.path()});
        while (!asked)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        program.send(SIGINT);
        EXPECT_EQ(program.wait().exitCode, 130);
        EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{"in.jpg"}));
    }
}

TEST_F(ServiceAnswers, AddressesThatCannotBeUsed)
{
    for (const char* const url : {"localhost:80", "ftp://localhost/", "http://", "http://:80/", "http://me@host/",
                                  "http://host/a b", "http://host/#a"}) {
        const Finished run = erase(url);
        EXPECT_EQ(run.exitCode, 2) << url;
        EXPECT_THAT(run.errLines().at(0), HasSubstr("no address of a service")) << url;
    }
}

} // namespace
} // namespace orvo::test
