#include "codecs.hpp"

#include <orvo_core/chromaticities.hpp>

#include <algorithm>

namespace orvo::io {

namespace {

std::string sizeText(std::int64_t width, std::int64_t height)
{
    return std::to_string(width) + " x " + std::to_string(height);
}

} // namespace

void checkSize(const ReadJob& job, std::int64_t width, std::int64_t height)
{
    constexpr std::int64_t kLongestSide = 1 << 24; // pixels; products of two fit easily in 64 bits
    const std::string size = sizeText(width, height);
    if (width < 1 || height < 1)
        throw ReadFailure("expected a picture, found one of " + size + " pixels");
    if (width > kLongestSide || height > kLongestSide || width * height > job.maxPixels)
        throw ReadFailure("the picture of " + size + " pixels is larger than the limit of " +
                          std::to_string(job.maxPixels) + " pixels");
}

void checkExtent(const SourceFile& file, const ReadJob& job, std::int64_t width, std::int64_t height,
                 std::int64_t leastBytes)
{
    checkSize(job, width, height);
    if (job.depth != ReadDepth::Facts && leastBytes > file.size())
        throw ReadFailure("the file announces a picture of " + sizeText(width, height) + " pixels but has only " +
                          std::to_string(file.size()) + " bytes, expected at least " + std::to_string(leastBytes));
}

void refuseParts(const ReadJob& job)
{
    if (!job.part.empty() || job.index > 0)
        throw ReadFailure("picture " + (job.part.empty() ? std::to_string(job.index) : "\"" + job.part + "\"") +
                          " was requested, the file has only one");
}

std::shared_ptr<ColorProfile> settleProfile(std::span<const unsigned char> icc, int colors, const ReadJob& job,
                                            BlockFacts& facts)
{
    std::shared_ptr<ColorProfile> profile = icc.empty() ? nullptr : ColorProfile::fromIcc(icc);
    if (profile) {
        const int described = profile->channelCount();
        const bool fits = colors == 4 ? described == 4 : described == 3 || (described == 1 && colors == 1);
        if (!fits)
            profile = nullptr;
    }
    if (profile) {
        try {
            const RowConverter trial(profile, colors, ColorProfileType::sRGB());
        } catch (const std::exception&) {
            profile = nullptr; // its tables are not usable: treated as missing
        }
    }
    if (!profile && colors != 4)
        profile = job.assume ? job.assume : facts.adobe ? adobeRGB() : ColorProfileType::sRGB();
    facts.record.fileProfile = profile ? profile : ColorProfileType::sRGB();
    return profile;
}

void settleRecord(_Size<int> stored, const ReadJob& job, BlockFacts& facts)
{
    if (job.orientation != 0)
        facts.orientation = job.orientation;
    const _Size<int> size = facts.orientation >= 5 ? _Size<int>(stored.height, stored.width) : stored;
    if (job.known) {
        const auto profile = facts.record.fileProfile;
        const auto embedded = facts.record.embedded;
        facts.record = *job.known;
        facts.record.fileProfile = profile;
        if (!facts.record.embedded)
            facts.record.embedded = embedded;
        if (!job.wants(ImageReaderOpenFlag::Embedded))
            facts.record.embedded = nullptr;
    }
    facts.record.size = size;
}

PictureSink makeSink(const SampleLayout& layout, const ReadJob& job, const BlockFacts& facts,
                     const std::shared_ptr<ColorProfile>& source)
{
    SinkSettings settings;
    settings.source = source;
    settings.run = job.run;
    settings.orientation = job.wants(ImageReaderOpenFlag::Upright) ? facts.orientation : 1;
    if (job.keepsSRGB && source && source->icc() == ColorProfileType::sRGB()->icc())
        settings.target = source;
    else if (job.wants(ImageReaderOpenFlag::WorkingSpace))
        settings.target = job.target ? job.target : ColorProfileType::melissaRGB();
    else // a picture has three colours: ink is always converted, gray is repeated
        settings.target =
            layout.colors == 4 || !source || source->channelCount() != 3 ? ColorProfileType::sRGB() : source;
    if (job.depth == ReadDepth::Reduced && job.side > 0) {
        // Keeps twice the requested side for the final resize, so that the incomplete square at the right and lower
        // edge shifts nothing by more than half a pixel.
        settings.reduction = std::max(1, std::max(layout.width, layout.height) / (2 * job.side));
    }
    return PictureSink(layout, std::move(settings));
}

void noteDamage(const std::string& text, const ReadJob& job, ReadAnswer& answer)
{
    if (job.wants(ImageReaderOpenFlag::Complete))
        throw ReadFailure(text);
    answer.cutOff = text;
}

void noteCutOff(int rowsThere, int rows, const std::string& cause, const ReadJob& job, ReadAnswer& answer)
{
    std::string text =
        "the picture is truncated: " + std::to_string(rowsThere) + " of " + std::to_string(rows) + " rows are there";
    if (!cause.empty())
        text += " (" + cause + ")";
    noteDamage(text, job, answer);
}

} // namespace orvo::io
