// orvo restore
#include "brackets.hpp"
#include "loopback.hpp"
#include "program.hpp"

#include <orvo_io/base64_image.hpp>
#include <orvo_io/image_reader.hpp>
#include <orvo_io/image_writer.hpp>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <service/built_in_answers.hpp>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <random>

namespace orvo::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

using Picture = _ImageData<PixelRGB<float>>;

class Restore : public testing::Test
{
protected:
    // Soft shapes and stripes as wide as `stripe`, with noise.
    static std::shared_ptr<Picture> scene(_Size<int> size, float noise, int stripe = 3)
    {
        auto picture = std::make_shared<Picture>(size, ColorProfileType::sRGB());
        std::mt19937 random(11);
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x) {
                const float shape = 0.5f + 0.2f * std::sin(0.02f * float(x)) * std::cos(0.03f * float(y));
                const float fine = x / 200 % 2 == 1 && x / stripe % 2 == 1 ? 0.15f : 0.0f;
                const auto grain = [&] { // the mean of four even deviates
                    float sum = 0.0f;
                    for (int i = 0; i < 4; ++i)
                        sum += float(random() % 1024) / 1024.0f - 0.5f;
                    return noise * sum;
                };
                picture->row(y)[x] = {shape + fine + grain(), shape + fine + grain(), 0.4f + fine + grain()};
            }
        return picture;
    }

    void write(const std::string& name, const Picture& picture) const
    {
        ImageWriteSettings settings = writeSettingsForPath(folder / name);
        settings.bits = 8;
        writeImage(folder / name, picture, settings);
    }

    [[nodiscard]] Finished restore(std::vector<std::string> more) const
    {
        more.insert(more.begin(), {"restore", "in.png"});
        return runOrvo(more, {.workingFolder = folder.path()});
    }

    [[nodiscard]] std::shared_ptr<Picture> read(const std::string& name) const
    {
        const auto image =
            ImageReader::instance().open({folder / name, {}}, {}, ImageReaderOpenFlag::None, nullptr, {}, -1);
        return image ? image->imageData({}, {}, true) : nullptr;
    }

    static double rms(const Picture& a, const Picture& b)
    {
        double sum = 0.0;
        for (std::size_t i = 0; i < a.pixelCount(); ++i) {
            const double d = static_cast<double>(a.data()[i].g) - static_cast<double>(b.data()[i].g);
            sum += d * d;
        }
        return std::sqrt(sum / static_cast<double>(a.pixelCount()));
    }

    // A service that gives every picture back as it came.
    static std::string echo(const std::string& message)
    {
        const auto request = service::parsedRequest(service::Tool::Restore, bodyOf(message));
        return httpAnswer("200 OK", "", service::answerText(request.id, request.image));
    }

    TemporaryFolder folder;
};

TEST_F(Restore, TakesNoiseAwayAndKeepsDetail)
{
    const _Size<int> size(600, 400);
    const auto clean = scene(size, 0.0f);
    write("in.png", *scene(size, 0.08f));
    const Finished run = restore({"-o", "out.png", "--bits", "8"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_THAT(run.err, IsEmpty());
    EXPECT_LT(rms(*read("out.png"), *clean), 0.75 * rms(*read("in.png"), *clean));
}

TEST_F(Restore, ALargePictureKeepsItsSizeAndItsFineDetail)
{
    const _Size<int> size(3000, 300); // more than a request holds
    const auto clean = scene(size, 0.0f, 1);
    write("in.png", *clean);
    ASSERT_EQ(restore({"-o", "as_is.png", "--as-is"}).exitCode, 0);
    EXPECT_EQ(read("as_is.png")->size(), _Size<int>(2700, 270));

    // An answer that changes nothing gives the picture back, although it does not show the pattern as it is.
    const LoopbackService service([](Wire& wire, int) { wire.send(echo(wire.receiveMessage())); });
    const Finished run = restore({"-o", "out.png", "--bits", "8", "--service", service.url()});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto after = read("out.png");
    ASSERT_EQ(after->size(), size);
    EXPECT_LT(rms(*after, *clean), 0.02); // that of the stripes is 0.05
}

TEST_F(Restore, AnAnswerWithoutChangeIsThePicture)
{
    Picture wide({120, 80}, ColorProfileType::melissaRGB()); // colours that sRGB does not have
    for (int y = 0; y < 80; ++y)
        for (int x = 0; x < 120; ++x)
            wide.row(y)[x] = {0.05f, float(x) / 120.0f, float(y) / 80.0f};
    ImageWriteSettings settings = writeSettingsForPath(folder / "in.png");
    settings.profile = ColorProfileType::melissaRGB();
    settings.bits = 16;
    writeImage(folder / "in.png", wide, settings);
    const LoopbackService service([](Wire& wire, int) { wire.send(echo(wire.receiveMessage())); });
    ASSERT_EQ(restore({"-o", "out.png", "--bits", "16", "--service", service.url()}).exitCode, 0);
    EXPECT_LT(rms(*read("out.png"), *read("in.png")), 2.0 / 65535);
}

TEST_F(Restore, AnAnswerOfAnotherScale)
{
    write("in.png", *scene({300, 200}, 0.0f));
    for (const _Size<int> size : {_Size<int>(150, 100), {600, 400}}) {
        const LoopbackService service([&](Wire& wire, int) {
            const auto request = service::parsedRequest(service::Tool::Restore, bodyOf(wire.receiveMessage()));
            const auto picture = convertToImageData(request.image)->resize(size, {}, true);
            wire.send(httpAnswer("200 OK", "", service::answerText(request.id, imageToBase64(picture, {0, 8}))));
        });
        ASSERT_EQ(restore({"-o", "out.png", "--service", service.url()}).exitCode, 0);
        EXPECT_EQ(read("out.png")->size(), _Size<int>(300, 200));
        EXPECT_LT(rms(*read("out.png"), *read("in.png")), 0.03);
        ASSERT_EQ(restore({"-o", "out.png", "--as-is", "--service", service.url()}).exitCode, 0);
        EXPECT_EQ(read("out.png")->size(), size);
    }
}

TEST_F(Restore, InHalvesTheSameBytes)
{
    write("in.png", *scene({200, 150}, 0.08f));
    ASSERT_EQ(restore({"-o", "own.png"}).exitCode, 0);
    ASSERT_EQ(restore({"--request-only", "request.json"}).exitCode, 0);
    EXPECT_EQ(nlohmann::json::parse(fileText(folder / "request.json")).size(), 3u); // no mask
    const auto request = service::parsedRequest(service::Tool::Restore, fileText(folder / "request.json"));
    std::ofstream(folder / "answer.json")
        << service::answerText(request.id, service::builtInAnswer(request, RunControl::none()));
    ASSERT_EQ(restore({"--response", "answer.json", "-o", "halves.png"}).exitCode, 0);
    EXPECT_TRUE(fileText(folder / "halves.png") == fileText(folder / "own.png"));
    ASSERT_EQ(restore({"-o", "as_is.png", "--as-is"}).exitCode, 0);
    EXPECT_EQ(ImageReader::readMetadata(folder / "as_is.png")->fileProfile->hash(), ColorProfileType::sRGB()->hash());
}

TEST_F(Restore, WhatCannotBeRestored)
{
    writeText(folder / "in.png", "Dear photographer");
    const Finished run = restore({"-o", "out.png"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.err, HasSubstr("in.png"));
    EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{"in.png"}));
}

} // namespace
} // namespace orvo::test
