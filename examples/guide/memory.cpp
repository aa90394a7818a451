// memory FILE: enlarges a picture in memory, and the file with the same samples; both results are the same.
#include <orvo_extensions/orvo_extensions.hpp>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

/// A picture of an editor: rows of red, green, blue and alpha.
struct Layer
{
    std::vector<std::uint8_t> samples;
    int width = 0;
    int height = 0;
};

Layer drawnLayer()
{
    Layer layer{{}, 60, 40};
    for (int y = 0; y < layer.height; ++y)
        for (int x = 0; x < layer.width; ++x)
            for (const int sample : {4 * x, 6 * y, 128 + x - y, 255})
                layer.samples.push_back(static_cast<std::uint8_t>(sample));
    return layer;
}

orvo::UpscaleRequest requestOf(const orvo::PictureInput& picture)
{
    orvo::UpscaleRequest request;
    request.picture = picture;
    return request;
}

} // namespace

int main(int, char** argv)
{
    const Layer layer = drawnLayer();

    // [memory]
    orvo::MemoryPicture picture;
    picture.name = "layer 3"; // stands for a path in failures
    picture.data = layer.samples.data();
    picture.width = layer.width;
    picture.height = layer.height;
    picture.channels = 4;                                         // red, green, blue, alpha
    picture.samples = orvo::MemoryPicture::Samples::UInt8;        // or UInt16, Float32
    picture.rowBytes = static_cast<std::size_t>(layer.width) * 4; // from row to row
    picture.profile = orvo::ColorProfileType::sRGB();             // or ColorProfile::fromIcc(bytes)

    orvo::UpscaleRequest request;
    request.picture = picture; // a list may mix files and memory
    const orvo::OperationResult result = orvo::perform(request);
    // [memory]
    if (!result)
        return 1;

    orvo::_ImageData<orvo::PixelRGB<float>> same(orvo::_Size<int>(layer.width, layer.height),
                                                 orvo::ColorProfileType::sRGB());
    for (std::size_t i = 0; i < same.pixelCount(); ++i)
        same.data()[i] = {static_cast<float>(layer.samples[4 * i]) / 255.0f,
                          static_cast<float>(layer.samples[4 * i + 1]) / 255.0f,
                          static_cast<float>(layer.samples[4 * i + 2]) / 255.0f};
    orvo::ImageWriteSettings file = orvo::writeSettingsForPath(argv[1]);
    file.bits = 8;
    orvo::writeImage(argv[1], same, file);
    const orvo::OperationResult fromFile = orvo::perform(requestOf(argv[1]));
    if (!fromFile)
        return 1;
    const auto a = result.image->developedOriginalImageData({});
    const auto b = fromFile.image->developedOriginalImageData({});
    const bool equal =
        a->size() == b->size() && std::memcmp(a->data(), b->data(), a->pixelCount() * sizeof(*a->data())) == 0;
    std::printf("%d x %d, %s\n", a->width(), a->height(), equal ? "the same from the file" : "not the same");
    return equal ? 0 : 1;
}
