// The life of an erase tool in an editor: draw, request, answer, view, undo, redo, save.
// erase_editor INPUT OUTPUT X Y RADIUS

#include <orvo_extensions/generative_erase.hpp>
#include <orvo_io/base64_image.hpp>
#include <orvo_io/image_writer.hpp>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <future>
#include <stdexcept>
#include <string>

namespace {

using orvo::GenerativeEraseProcessor;
using Bytes = std::vector<unsigned char>;
using Picture = orvo::_ImageData<orvo::PixelRGB<float>>;
using Request = GenerativeEraseProcessor::RequestInput;

// A callback that fulfils a future. The tools call back from their own threads.
template <typename Value>
struct Answer
{
    std::shared_ptr<std::promise<Value>> promise = std::make_shared<std::promise<Value>>();
    std::future<Value> future = promise->get_future();
    [[nodiscard]] std::function<void(Value)> callback() const
    {
        return [promise = promise](Value value) { promise->set_value(std::move(value)); };
    }
};

// Replaces the remote service of a real editor: paints the mean of the unmasked pixels.
std::string service(const Request& request)
{
    const auto picture = orvo::convertToImageData(request.image);
    const auto mask = orvo::convertToImageData(request.mask);
    if (!picture || !mask)
        throw std::runtime_error("the request cannot be read");
    double sums[3] = {};
    double count = 0.0;
    for (std::size_t i = 0; i < picture->pixelCount(); ++i) {
        if (mask->data()[i].r > 0.0f)
            continue;
        const auto& pixel = picture->data()[i];
        sums[0] += pixel.r;
        sums[1] += pixel.g;
        sums[2] += pixel.b;
        count += 1.0;
    }
    if (count == 0.0)
        throw std::runtime_error("the whole picture is painted over");
    const auto mean = [&](int channel) { return static_cast<float>(sums[channel] / count); };
    for (std::size_t i = 0; i < picture->pixelCount(); ++i)
        if (mask->data()[i].r > 0.0f)
            picture->data()[i] = {mean(0), mean(1), mean(2)};
    return "data:image/png;base64," + orvo::imageToBase64(picture, {0, 8});
}

// A stroke from the left of `place` to its right, as drawn with a mouse.
void paint(GenerativeEraseProcessor& erase, orvo::_Point<float> place, float radius)
{
    const auto brush = std::make_shared<orvo::RoundBrushSettings>(radius, 0.3f, 1.0f);
    erase.beginDrawing();
    erase.startStroke({}, {});
    for (const float step : {-0.5f, 0.0f, 0.5f})
        erase.stroke({place.x + step * radius, place.y}, brush);
    const Bytes before = erase.storeMask();
    erase.stroke({place.x + 20 * radius, place.y}, brush); // a slip of the hand ...
    erase.finishStroke({}, {});
    erase.restoreMask(before); // ... taken back
    erase.finishDrawing();
}

std::shared_ptr<const Picture> exported(GenerativeEraseProcessor& erase)
{
    Answer<orvo::RenderedData> answer;
    erase.generateDataForExport(answer.callback());
    return answer.future.get().image;
}

bool goTo(GenerativeEraseProcessor& erase, const Bytes& state)
{
    Answer<GenerativeEraseProcessor::OutState> answer;
    erase.restoreState(state, answer.callback());
    return answer.future.get().state == state;
}

void run(const char* input, const char* output, orvo::_Point<float> place, float radius)
{
    GenerativeEraseProcessor erase(orvo::StateSource{input, {}, {}});
    const auto canvas = erase.getCanvasSize();
    if (canvas == orvo::_Size<int>())
        throw std::runtime_error(std::string(input) + " cannot be opened");

    // The view: an editor would show each render in its window.
    erase.initRender(
        [](const orvo::NoAlphaRender::Data& view) {
            std::printf("view %d x %d\n", view.image->width(), view.image->height());
        },
        {{600, 400}, {0, 0, canvas.width, canvas.height}});

    paint(erase, place, radius);
    const Bytes before = erase.storeState();
    Answer<Request> asked;
    erase.generateRequest("erase 1", {}, asked.callback());
    const Request request = asked.future.get();
    if (!request.valid)
        throw std::runtime_error("nothing was painted");
    const auto sent = orvo::convertToImageData(request.image)->size();
    erase.applyGeneratedResponse(service(request), sent);
    const Bytes after = erase.storeState();
    const auto result = exported(erase);

    if (!goTo(erase, before) || !erase.isInInitialState())
        throw std::runtime_error("undo failed");
    if (!goTo(erase, after) || erase.isInInitialState())
        throw std::runtime_error("redo failed");
    orvo::writeImage(output, *result, orvo::writeSettingsForPath(output));
    std::printf("%s: request of %d x %d pixels for \"%s\"\n", output, sent.width, sent.height, request.id.c_str());
}

} // namespace

int main(int count, char** words)
{
    if (count != 6) {
        std::fputs("erase_editor INPUT OUTPUT X Y RADIUS\n", stderr);
        return 2;
    }
    try {
        run(words[1], words[2], {std::strtof(words[3], nullptr), std::strtof(words[4], nullptr)},
            std::strtof(words[5], nullptr));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "erase_editor: %s\n", error.what());
        return 1;
    }
}
