// Any picture with any mask, filled by patches: known pixels stay, the hole comes from them, threads do not matter.
#include "fuzz_target.hpp"

#include <orvo/filling.hpp>
#include <orvo_core/parallel.hpp>

#include <cstring>

namespace {

using orvo::fuzz::Arguments;
using orvo::fuzz::require;
using Pixel = orvo::PixelRGB<float>;
using Picture = orvo::_ImageData<Pixel>;
using Mask = orvo::_ImageData<float>;

constexpr int kMostSide = 40;

float sample(Arguments& arguments)
{
    const int kind = arguments.byte();
    return kind == 255 ? arguments.real() : static_cast<float>(kind) / 254.0f;
}

// A few rectangles, or any sample by itself.
void draw(Arguments& arguments, Mask& mask)
{
    if (arguments.number(0, 3) == 0) {
        for (std::size_t i = 0; i < mask.pixelCount(); ++i)
            mask.data()[i] = sample(arguments);
        return;
    }
    const float background = arguments.number(0, 3) == 0 ? 1.0f : 0.0f;
    mask.fillRect(background, {0, 0, mask.width(), mask.height()});
    for (int count = arguments.number(0, 4); count > 0; --count) {
        const int x = arguments.number(0, kMostSide);
        const int y = arguments.number(0, kMostSide);
        const int width = arguments.number(1, kMostSide);
        mask.fillRect(1.0f - background, {x, y, width, arguments.number(1, kMostSide)});
    }
}

std::shared_ptr<Picture> filled(const Picture& picture, const Mask& mask, int threads)
{
    const orvo::WorkerLimit limit(threads);
    return orvo::patchFiller()->fill(picture, mask, orvo::RunControl::none());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Arguments arguments({data, size});
    const auto side = [&] { return arguments.number(0, 15) == 0 ? 0 : arguments.number(1, kMostSide); };
    const int width = side();
    Picture picture({width, side()}, nullptr);
    const bool alike = arguments.number(0, 1) == 0;
    const int maskWidth = alike ? picture.width() : side();
    Mask mask({maskWidth, alike ? picture.height() : side()}, nullptr);
    draw(arguments, mask);
    for (std::size_t i = 0; i < picture.pixelCount(); ++i) {
        const float red = sample(arguments);
        const float green = sample(arguments);
        picture.data()[i] = {red, green, sample(arguments)};
    }
    try {
        const auto result = filled(picture, mask, 1);
        require(result && result->size() == picture.size(), "the result has the size of the picture");
        for (int y = 0; y < picture.height(); ++y)
            for (int x = 0; x < picture.width(); ++x) {
                const float mark = mask.row((2 * y + 1) * mask.height() /
                                            (2 * picture.height()))[(2 * x + 1) * mask.width() / (2 * picture.width())];
                if (!(mark >= 0.5f))
                    require(std::memcmp(&picture.row(y)[x], &result->row(y)[x], sizeof(Pixel)) == 0,
                            "known pixels come back bit for bit");
            }
        const auto again = filled(picture, mask, 0);
        require(std::memcmp(result->data(), again->data(), result->pixelCount() * sizeof(Pixel)) == 0,
                "the number of threads does not matter");
    } catch (const orvo::FailureError&) {
        bool known = false;
        for (std::size_t i = 0; i < mask.pixelCount(); ++i)
            known = known || !(mask.data()[i] >= 0.5f);
        // A mask that is larger than the picture may be known only where no pixel looks.
        const bool covered = mask.width() <= picture.width() && mask.height() <= picture.height();
        require(picture.pixelCount() == 0 || mask.pixelCount() == 0 || !known || !covered,
                "only what has no pixels or is all hole is refused");
    }
    return 0;
}
