// Real files through the decoder: exact frame numbers in all containers, upright pictures, true colours, and files that
// are not videos.
#include "sources/mf_capture.hpp"
#include "videos.hpp"

#include <orvo_core/parallel.hpp>
#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

using namespace orvo;
using namespace orvo::test;
using scenes::VideoCodec;
using scenes::VideoFileSettings;
using scenes::VideoMatrix;

// The HEVC encoder of some of these videos keeps its parameters when it closes, and the codecs are built without the
// thread sanitizer, so it cannot see how their threads synchronise.
extern "C" {
__attribute__((visibility("default"))) const char* __lsan_default_suppressions();
__attribute__((visibility("default"))) const char* __tsan_default_suppressions();
}
const char* __lsan_default_suppressions() { return "leak:libx265\n"; }
const char* __tsan_default_suppressions()
{
    return "race:libavutil\nrace:libavcodec\nrace:libavformat\nrace:libswscale\nrace:libx264\nrace:libx265\n";
}

namespace {

// All numbers of a video, in order.
std::vector<std::uint32_t> allNumbers(const std::filesystem::path& path)
{
    std::vector<std::uint32_t> numbers;
    std::optional<MFCapture> video = openCapture(path);
    if (!video)
        return numbers;
    for (;;) {
        cv::Mat frame;
        video->readFrame(video->framePosition(), frame);
        const auto number = numberOf(frame);
        if (!number)
            return numbers;
        numbers.push_back(*number);
    }
}

std::vector<std::uint32_t> countingTo(std::size_t count)
{
    std::vector<std::uint32_t> numbers(count);
    for (std::size_t i = 0; i < count; ++i)
        numbers[i] = static_cast<std::uint32_t>(i);
    return numbers;
}

std::string bytesOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::filesystem::path written(const std::filesystem::path& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

// Expects a failure with its documented log line.
void expectRefused(const std::filesystem::path& path)
{
    const LogCapture log;
    EXPECT_FALSE(openCapture(path)) << path;
    const auto lines = log.texts(LogMessageType::Error);
    ASSERT_EQ(lines.size(), 1u) << path;
    EXPECT_THAT(lines[0], testing::ContainsRegex(
                              "MFCapture.*: Failed initializing media foundation reader with error code -[0-9]+$"));
}

// An MP3 with a one-pixel cover picture, which FFmpeg reports as a video stream.
std::string soundWithCover()
{
    static constexpr char kPng[] = "\x89\x50\x4e\x47\x0d\x0a\x1a\x0a\x00\x00\x00\x0d\x49\x48\x44\x52\x00"
                                   "\x00\x00\x01\x00\x00\x00\x01\x08\x00\x00\x00\x00\x3a\x7e\x9b\x55\x00"
                                   "\x00\x00\x0a\x49\x44\x41\x54\x78\x9c\x63\x68\x00\x00\x00\x82\x00\x81"
                                   "\x77\xcd\x72\xb6\x00\x00\x00\x00\x49\x45\x4e\x44\xae\x42\x60\x82";
    const std::string picture = std::string("\0image/png\0\3\0", 13) + std::string(kPng, sizeof(kPng) - 1);
    const auto sizeByte = [](std::size_t size) { return static_cast<char>(size); };
    const std::string frame = std::string("APIC\0\0\0", 7) + sizeByte(picture.size()) + std::string(2, '\0') + picture;
    // Sizes in a tag have seven bits per byte.
    std::string file =
        std::string("ID3\3\0\0\0\0", 8) + sizeByte(frame.size() >> 7) + sizeByte(frame.size() & 0x7f) + frame;
    constexpr std::size_t kFrameBytes = 417; // 128 kbit/s at 44100 Hz
    for (int i = 0; i < 40; ++i)
        file += std::string("\xff\xfb\x90\x00", 4) + std::string(kFrameBytes - 4, '\0'); // silence
    return file;
}

struct Kind
{
    std::string name;
    std::string ending;
    VideoFileSettings settings;
};

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

VideoFileSettings kind(VideoCodec codec, int numerator = 30, int denominator = 1, int bFrames = 3)
{
    VideoFileSettings settings;
    settings.codec = codec;
    settings.rateNumerator = numerator;
    settings.rateDenominator = denominator;
    settings.bFrames = bFrames;
    return settings;
}

VideoFileSettings tenBits(VideoFileSettings settings)
{
    settings.tenBits = true;
    return settings;
}

class VideoKinds : public testing::TestWithParam<Kind>
{
protected:
    TemporaryFolder folder;
};

std::string nameOf(const testing::TestParamInfo<Kind>& info) { return info.param.name; }

} // namespace

TEST_P(VideoKinds, EveryFrameHasItsNumber)
{
    constexpr std::size_t kFrames = 40;
    const auto path = writeNumbered(folder / ("numbers." + GetParam().ending), kFrames, GetParam().settings);
    EXPECT_EQ(allNumbers(path), countingTo(kFrames));
}

TEST_P(VideoKinds, AFrameFarAheadHasItsNumber)
{
    const auto path = writeNumbered(folder / ("numbers." + GetParam().ending), 40, GetParam().settings);
    for (const std::uint64_t index : {0u, 1u, 11u, 12u, 29u, 39u}) {
        std::optional<MFCapture> video = openCapture(path);
        ASSERT_TRUE(video);
        cv::Mat frame;
        video->readFrame(index, frame);
        EXPECT_EQ(numberOf(frame), index);
        EXPECT_EQ(video->framePosition(), index + 2);
    }
    std::optional<MFCapture> video = openCapture(path);
    cv::Mat frame;
    video->readFrame(40, frame);
    EXPECT_TRUE(frame.empty());
}

TEST_P(VideoKinds, GoingBackAfterTheEndBeginsWithTheFirstFrame)
{
    const auto path = writeNumbered(folder / ("numbers." + GetParam().ending), 20, GetParam().settings);
    std::optional<MFCapture> video = openCapture(path);
    ASSERT_TRUE(video);
    cv::Mat frame;
    video->readFrame(25, frame);
    EXPECT_TRUE(frame.empty());
    const std::uint64_t position = video->framePosition();
    video->readFrame(position - 1, frame); // goes back and reads nothing
    EXPECT_TRUE(frame.empty());
    const std::uint64_t ahead = video->framePosition();
    video->readFrame(ahead, frame);
    EXPECT_EQ(numberOf(frame), 0u);
    video->readFrame(ahead + 2 + 4, frame);
    EXPECT_EQ(numberOf(frame), 5u);
}

TEST_P(VideoKinds, HasItsFrameRate)
{
    const auto path = writeNumbered(folder / ("numbers." + GetParam().ending), 40, GetParam().settings);
    std::optional<MFCapture> video = openCapture(path);
    ASSERT_TRUE(video);
    const auto& settings = GetParam().settings;
    const double rate = static_cast<double>(settings.rateNumerator) / settings.rateDenominator;
    constexpr double kOneTick = 1e-4; // MKV's milliseconds relative to the whole video
    EXPECT_NEAR(video->getFps(), rate, rate * kOneTick);
}

INSTANTIATE_TEST_SUITE_P(, VideoKinds,
                         testing::Values(Kind{"H264Mp4At24", "mp4", kind(VideoCodec::H264, 24)},
                                         Kind{"H264Mp4At29", "mp4", kind(VideoCodec::H264, 30000, 1001)},
                                         Kind{"H264MkvAt60", "mkv", kind(VideoCodec::H264, 60)},
                                         Kind{"H264MovWithoutB", "mov", kind(VideoCodec::H264, 25, 1, 0)},
                                         Kind{"HevcMp4At25", "mp4", kind(VideoCodec::Hevc, 25)},
                                         Kind{"HevcMkvAt30", "mkv", kind(VideoCodec::Hevc, 30)},
                                         Kind{"Mpeg4Mp4At25", "mp4", kind(VideoCodec::Mpeg4, 25, 1, 2)},
                                         Kind{"Mpeg4AviAt30", "avi", kind(VideoCodec::Mpeg4, 30, 1, 0)},
                                         Kind{"H264TsAt25", "ts", kind(VideoCodec::H264, 25)},
                                         Kind{"HevcMp4TenBits", "mp4", tenBits(kind(VideoCodec::Hevc))},
                                         Kind{"Ffv1MkvAt30", "mkv", kind(VideoCodec::Ffv1, 30)}),
                         nameOf);

class VideoFile : public testing::Test
{
protected:
    TemporaryFolder folder;
};

TEST_F(VideoFile, VariableFrameRateCountsFramesNotTime)
{
    for (const char* ending : {"mp4", "mkv"}) {
        VideoFileSettings settings;
        std::int64_t time = 0;
        for (int i = 0; i < 30; ++i) {
            settings.timesMs.push_back(time);
            time += i % 7 == 3 ? 700 : i % 2 == 0 ? 16 : 41;
        }
        const auto path = writeNumbered(folder / ("variable." + std::string(ending)), 30, settings);
        EXPECT_EQ(allNumbers(path), countingTo(30)) << ending;
    }
}

TEST_F(VideoFile, VariableFrameRateReturnsItsMean)
{
    for (const char* ending : {"mp4", "mkv", "ts"}) {
        VideoFileSettings settings;
        for (int i = 0; i < 60; ++i)
            settings.timesMs.push_back(i * 41 + i % 2 * 9);
        std::optional<MFCapture> video =
            openCapture(writeNumbered(folder / ("mean." + std::string(ending)), 60, settings));
        ASSERT_TRUE(video);
        EXPECT_NEAR(video->getFps(), 1000.0 / 41.0, 0.5) << ending;
        cv::Mat frame;
        video->readFrame(0, frame); // measuring the rate consumed no frame
        EXPECT_EQ(numberOf(frame), 0u);
    }
}

TEST_F(VideoFile, WithoutAFrameRateCountsAs30)
{
    VideoFileSettings settings;
    settings.timesMs = {0};
    const LogCapture log;
    std::optional<MFCapture> video = openCapture(writeNumbered(folder / "still.mkv", 1, settings));
    ASSERT_TRUE(video);
    EXPECT_EQ(video->getFps(), 30.0f);
    EXPECT_THAT(log.texts(LogMessageType::Warning),
                testing::ElementsAre(testing::EndsWith(": Error reading video fps")));
}

TEST_F(VideoFile, AnEditListRemovesFramesFromThePresentation)
{
    VideoFileSettings settings;
    for (int i = 0; i < 30; ++i)
        settings.timesMs.push_back((i - 5) * 40); // five frames are before the start
    const auto path = writeNumbered(folder / "edited.mp4", 30, settings);
    std::vector<std::uint32_t> expected = countingTo(30);
    expected.erase(expected.begin(), expected.begin() + 5);
    EXPECT_EQ(allNumbers(path), expected);

    std::optional<MFCapture> video = openCapture(path);
    ASSERT_TRUE(video);
    cv::Mat frame;
    video->readFrame(3, frame);
    EXPECT_EQ(numberOf(frame), 8u);
    frame.release();
    video->readFrame(0, frame); // goes back
    video->readFrame(video->framePosition(), frame);
    EXPECT_EQ(numberOf(frame), 5u);
}

TEST_F(VideoFile, LateStartTimesDoNotMatter)
{
    VideoFileSettings settings;
    for (int i = 0; i < 20; ++i)
        settings.timesMs.push_back(3600000 + i * 40);
    for (const char* ending : {"mp4", "mkv"})
        EXPECT_EQ(allNumbers(writeNumbered(folder / ("late." + std::string(ending)), 20, settings)), countingTo(20))
            << ending;
}

TEST_F(VideoFile, SoundBeforeThePictureIsSkipped)
{
    VideoFileSettings settings;
    settings.sound = true;
    EXPECT_EQ(allNumbers(writeNumbered(folder / "loud.mkv", 20, settings)), countingTo(20));
}

TEST_F(VideoFile, OneFrameIsAVideo) { EXPECT_EQ(allNumbers(writeNumbered(folder / "one.mp4", 1)), countingTo(1)); }

TEST_F(VideoFile, TheSameForAnyNumberOfThreads)
{
    const auto path = writeNumbered(folder / "threads.mp4", 20);
    const auto readAll = [&path](int threads) {
        const WorkerLimit limit(threads);
        std::vector<cv::Mat> frames;
        std::optional<MFCapture> video = openCapture(path);
        for (int i = 0; i < 20; ++i)
            video->readFrame(video->framePosition(), frames.emplace_back());
        return frames;
    };
    const auto one = readAll(1);
    const auto many = readAll(3);
    for (std::size_t i = 0; i < one.size(); ++i) {
        ASSERT_FALSE(one[i].empty());
        EXPECT_EQ(cv::norm(one[i], many[i], cv::NORM_INF), 0.0) << i;
    }
}

TEST_F(VideoFile, QuarterTurnsSwapWidthAndHeight)
{
    for (const int degrees : {0, 90, 180, 270})
        for (const bool mirrored : {false, true}) {
            VideoFileSettings settings;
            settings.rotationDegrees = degrees;
            settings.mirrored = mirrored;
            const auto path = writeNumbered(folder / "turned.mp4", 5, settings);
            std::optional<MFCapture> video = openCapture(path);
            ASSERT_TRUE(video);
            cv::Mat frame;
            video->readFrame(3, frame);
            ASSERT_FALSE(frame.empty());
            const bool swapped = degrees % 180 != 0;
            EXPECT_EQ(frame.cols, swapped ? kNumberedSize.height : kNumberedSize.width) << degrees;
            EXPECT_EQ(frame.rows, swapped ? kNumberedSize.width : kNumberedSize.height) << degrees;
            EXPECT_EQ(numberOf(frame), 3u) << degrees << (mirrored ? " mirrored" : "");
        }
}

TEST_F(VideoFile, OddSizesComeWithoutPadding)
{
    // Rows that are not a multiple of the vector width; the last row must not overrun.
    const _Size<int> size(322, 18);
    VideoFileSettings settings;
    settings.codec = VideoCodec::Ffv1;
    const auto draw = [&](std::size_t, std::uint8_t* bgr) {
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x, bgr += 3)
                std::fill_n(bgr, 3, static_cast<std::uint8_t>(30 + x * 200 / size.width));
    };
    scenes::writeVideo(folder / "odd.mkv", size, 2, draw, settings);
    std::optional<MFCapture> video = openCapture(folder / "odd.mkv");
    ASSERT_TRUE(video);
    cv::Mat frame;
    video->readFrame(1, frame);
    ASSERT_EQ(frame.size(), cv::Size(size.width, size.height));
    EXPECT_EQ(frame.type(), CV_8UC3);
    EXPECT_TRUE(frame.isContinuous());
    for (int x = 0; x < size.width; ++x)
        EXPECT_NEAR(frame.at<cv::Vec3b>(size.height - 1, x)[0], 30 + x * 200 / size.width, 2) << x;
}

TEST_F(VideoFile, ColoursSurviveEveryMatrixAndRange)
{
    const std::vector<cv::Vec3b> patches = {{0, 0, 255},     {0, 255, 0}, {255, 0, 0},   {255, 255, 255},
                                            {128, 128, 128}, {0, 0, 0},   {40, 90, 200}, {200, 60, 30}};
    const _Size<int> size(256, 64);
    const auto draw = [&](std::size_t, std::uint8_t* bgr) {
        cv::Mat picture(size.height, size.width, CV_8UC3, bgr);
        for (int x = 0; x < size.width; ++x)
            picture.col(x).setTo(patches[static_cast<std::size_t>(x) * patches.size() / 256]);
    };
    for (const VideoMatrix matrix : {VideoMatrix::Unnamed, VideoMatrix::Bt601, VideoMatrix::Bt709})
        for (const bool fullRange : {false, true})
            for (const int planes : {0, 1, 2}) { // as usual, full colour planes, 10 bits
                VideoFileSettings settings;
                settings.codec = VideoCodec::Ffv1;
                settings.matrix = matrix;
                settings.fullRange = fullRange;
                settings.fullColourPlanes = planes == 1;
                settings.tenBits = planes == 2;
                scenes::writeVideo(folder / "colour.mkv", size, 1, draw, settings);
                std::optional<MFCapture> video = openCapture(folder / "colour.mkv");
                ASSERT_TRUE(video);
                cv::Mat frame;
                video->readFrame(0, frame);
                ASSERT_FALSE(frame.empty());
                for (std::size_t i = 0; i < patches.size(); ++i) {
                    const auto found = frame.at<cv::Vec3b>(32, static_cast<int>(i) * 32 + 16);
                    constexpr int kTwoRoundings = 3; // to 8-bit luminance and colour differences, and back
                    for (int channel = 0; channel < 3; ++channel)
                        EXPECT_NEAR(found[channel], patches[i][channel], kTwoRoundings)
                            << "matrix " << static_cast<int>(matrix) << " full range " << fullRange << " patch " << i;
                }
            }
}

TEST_F(VideoFile, ATruncatedFileKeepsWhatIsWhole)
{
    for (const char* ending : {"mkv", "avi", "ts"}) {
        VideoFileSettings settings;
        settings.codec = std::string(ending) == "avi" ? VideoCodec::Mpeg4 : VideoCodec::H264;
        const auto whole = bytesOf(writeNumbered(folder / ("whole." + std::string(ending)), 60, settings));
        const auto cut = written(folder / ("cut." + std::string(ending)), whole.substr(0, whole.size() * 6 / 10));
        const auto numbers = allNumbers(cut);
        EXPECT_GE(numbers.size(), 10u) << ending;
        EXPECT_LT(numbers.size(), 60u) << ending;
        // The last frame may exist without the frames that are predicted from it.
        ASSERT_FALSE(numbers.empty()) << ending;
        EXPECT_EQ(std::vector(numbers.begin(), numbers.end() - 1), countingTo(numbers.size() - 1)) << ending;
        EXPECT_GE(numbers.back(), numbers.size() - 1) << ending;
    }
    // The index of this one is at its end.
    const auto whole = bytesOf(writeNumbered(folder / "whole.mp4", 60));
    expectRefused(written(folder / "cut.mp4", whole.substr(0, whole.size() * 6 / 10)));
}

TEST_F(VideoFile, DamageInTheMiddleNeitherCrashesNorShiftsNumbers)
{
    for (const char* ending : {"mkv", "mp4"}) {
        std::string bytes = bytesOf(writeNumbered(folder / ("sound." + std::string(ending)), 60));
        for (std::size_t i = bytes.size() / 2; i < bytes.size() / 2 + 200; ++i)
            bytes[i] = static_cast<char>(i * 37);
        const auto numbers = allNumbers(written(folder / ("hurt." + std::string(ending)), bytes));
        ASSERT_GE(numbers.size(), 10u) << ending;
        for (std::size_t i = 0; i < 10; ++i)
            EXPECT_EQ(numbers[i], i) << ending;
    }
}

TEST_F(VideoFile, NoiseInEveryPlaceNeverCrashes)
{
    const std::string whole = bytesOf(writeNumbered(folder / "sound.mp4", 12));
    cv::RNG random(5);
    for (int round = 0; round < 60; ++round) {
        std::string bytes = whole;
        for (int i = 0; i < 20; ++i)
            bytes[static_cast<std::size_t>(random.uniform(0, static_cast<int>(bytes.size())))] =
                static_cast<char>(random.uniform(0, 256));
        EXPECT_LE(allNumbers(written(folder / "noise.mp4", bytes)).size(), 100u);
    }
}

TEST_F(VideoFile, FilesThatAreNoVideosAreRefused)
{
    expectRefused(folder / "missing.mp4");
    expectRefused(folder.path());
    expectRefused(written(folder / "empty.mp4", ""));
    expectRefused(written(folder / "text.mp4", std::string("Dear all,\nthis is a letter.\n\nRegards\n")));
    std::string longText;
    for (int i = 0; i < 5000; ++i)
        longText += "line " + std::to_string(i) + " of a long letter\n";
    expectRefused(written(folder / "long.mp4", longText));
    expectRefused(written(folder / "one.mp4", "x"));
    scenes::writeSound(folder / "sound.wav");
    expectRefused(folder / "sound.wav");
    scenes::writeSound(folder / "sound.mkv");
    expectRefused(folder / "sound.mkv");
    expectRefused(written(folder / "cover.mp3", soundWithCover()));
    ASSERT_EQ(mkfifo((folder / "pipe.mp4").c_str(), 0600), 0);
    expectRefused(folder / "pipe.mp4"); // and does not wait for a writer
}

TEST_F(VideoFile, ItsNameIsNoAddressAndMayBeAnyText)
{
    std::filesystem::create_directory(folder / "http:");
    for (const std::string name :
         {"concat:a.mp4", "pan 50%d.mp4", "http:/pan.mp4", "Übersicht 東京.mp4", "latin \xe4.mp4"})
        EXPECT_EQ(allNumbers(writeNumbered(folder / name, 3)), countingTo(3)) << name;
}

TEST_F(VideoFile, APlaylistDoesNotOpenOtherFiles)
{
    writeNumbered(folder / "part.ts", 10);
    expectRefused(
        written(folder / "list.m3u8", "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\npart.ts\n#EXT-X-ENDLIST\n"));
    expectRefused(written(folder / "list.mp4", "ffconcat version 1.0\nfile part.ts\n"));
}

TEST_F(VideoFile, GiganticClaimsAreRefused)
{
    // A YUV4MPEG header: 60000 by 60000 pixels, with almost no data.
    expectRefused(written(folder / "huge.y4m", "YUV4MPEG2 W60000 H60000 F30:1 Ip A1:1 C420jpeg\nFRAME\n0123456789"));
    // The same for the size in an MP4: track header and sample description.
    std::string bytes = bytesOf(writeNumbered(folder / "true.mp4", 5, kind(VideoCodec::Mpeg4)));
    const std::size_t description = bytes.find("mp4v");
    ASSERT_NE(description, std::string::npos);
    constexpr std::size_t kWidthAfterName = 28;
    for (std::size_t i = 0; i < 4; ++i)
        bytes[description + kWidthAfterName + i] = static_cast<char>(0xff);
    EXPECT_LE(allNumbers(written(folder / "claims.mp4", bytes)).size(), 5u);
}

TEST_F(VideoFile, TheLogHasTheReasonAndStandardErrorStaysEmpty)
{
    const LogCapture log;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(openCapture(written(folder / "letter.mp4", "Dear all\n")));
    const std::string whole = bytesOf(writeNumbered(folder / "whole.mkv", 60));
    EXPECT_FALSE(allNumbers(written(folder / "cut.mkv", whole.substr(0, whole.size() / 2))).empty());
    std::fflush(stderr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(
        log.texts(LogMessageType::Warning),
        testing::Contains(testing::AllOf(testing::HasSubstr("letter.mp4"), testing::HasSubstr("Invalid data"))));
}

TEST_F(VideoFile, DamageIsAWarning)
{
    for (const std::string ending : {"mkv", "avi", "mp4"}) { // a transport stream has no end
        VideoFileSettings settings;
        settings.codec = ending == "avi" ? VideoCodec::Mpeg4 : VideoCodec::H264;
        const auto whole = writeNumbered(folder / ("whole." + ending), 60, settings);
        const LogCapture log;
        EXPECT_EQ(allNumbers(whole).size(), 60u);
        EXPECT_THAT(log.texts(LogMessageType::Warning), testing::IsEmpty()) << ending;
        std::string bytes = bytesOf(whole);
        if (ending == "mp4") // its index is at the end
            std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2), 400, '\xff');
        else
            bytes.resize(bytes.size() * 6 / 10);
        const auto cut = written(folder / ("cut." + ending), bytes);
        std::optional<MFCapture> capture = openCapture(cut);
        ASSERT_TRUE(capture) << ending;
        cv::Mat frame;
        do
            capture->readFrame(capture->framePosition(), frame);
        while (!frame.empty());
        EXPECT_THAT(
            log.texts(LogMessageType::Warning),
            testing::ElementsAre(testing::AllOf(testing::HasSubstr(cut.native()), testing::HasSubstr("damaged"))))
            << ending;
    }
}

TEST_F(VideoFile, FilesAreClosedAgain)
{
    const auto openFiles = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto path = writeNumbered(folder / "closed.mp4", 5);
    const auto letter = written(folder / "letter.mp4", "Dear all\n");
    const auto before = openFiles();
    EXPECT_EQ(allNumbers(path).size(), 5u);
    EXPECT_FALSE(openCapture(letter));
    EXPECT_EQ(openFiles(), before);
}
