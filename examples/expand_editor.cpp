// The life of an expand tool in an editor: a canvas, a request, its answer, undo, a second canvas, save.
// expand_editor INPUT OUTPUT BORDER

#include <orvo/filling.hpp>
#include <orvo_extensions/generative_expand.hpp>
#include <orvo_io/base64_image.hpp>
#include <orvo_io/image_writer.hpp>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <future>
#include <stdexcept>
#include <string>

namespace {

using orvo::GenerativeExpandProcessor;
using Bytes = std::vector<unsigned char>;
using Picture = orvo::_ImageData<orvo::PixelRGB<float>>;
using Request = GenerativeExpandProcessor::RequestInput;

// A callback that answers a future. The tools call back from threads of their own.
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

// Stands for the remote service: the border is filled with patches of the picture. The mask may fade; everything above
// 0 is new.
std::string service(const Request& request)
{
    const auto picture = orvo::convertToImageData(request.image);
    const auto gray = orvo::convertToImageData(request.mask);
    if (!picture || !gray)
        throw std::runtime_error("the request cannot be read");
    orvo::MaskImage mask(gray->size());
    for (std::size_t i = 0; i < gray->pixelCount(); ++i)
        mask.data()[i] = gray->data()[i].r > 0.0f ? 1.0f : 0.0f;
    const auto painted = orvo::patchFiller()->fill(*picture, mask, orvo::RunControl::none());
    return "data:image/png;base64," + orvo::imageToBase64(painted, {0, 8});
}

// Adds `border` pixels on every side.
void expandBy(GenerativeExpandProcessor& expand, int border)
{
    const auto size = expand.getCanvasSize();
    orvo::CropDescription crop;
    crop.rect = {-border, -border, size.width + 2 * border, size.height + 2 * border};
    Answer<Request> asked;
    expand.generateRequest("expand", crop, {}, asked.callback());
    const Request request = asked.future.get();
    if (!request.valid)
        throw std::runtime_error("there is nothing to paint");
    expand.applyGeneratedResponse(service(request), orvo::convertToImageData(request.image)->size());
    // The canvas has another size now: the main view needs a new context.
    const auto canvas = expand.getCanvasSize();
    expand.setRenderContext({scaleSizeToMax(canvas, 600), {0, 0, canvas.width, canvas.height}}, true);
    std::printf("canvas %d x %d\n", canvas.width, canvas.height);
}

bool goTo(GenerativeExpandProcessor& expand, const Bytes& state)
{
    Answer<GenerativeExpandProcessor::OutState> answer;
    expand.restoreState(state, answer.callback());
    return answer.future.get().state == state;
}

void run(const char* input, const char* output, int border)
{
    GenerativeExpandProcessor expand(orvo::StateSource{input, {}, {}});
    const auto size = expand.getCanvasSize();
    if (size == orvo::_Size<int>())
        throw std::runtime_error(std::string(input) + " cannot be opened");
    expand.initRender([](const orvo::NoAlphaRender::Data&) {}, {size, {0, 0, size.width, size.height}});

    const Bytes before = expand.storeState();
    expandBy(expand, border);
    const Bytes once = expand.storeState();
    expandBy(expand, border); // the canvas grows from answer to answer
    if (!goTo(expand, before) || !(expand.getCanvasSize() == size))
        throw std::runtime_error("undo failed");
    if (!goTo(expand, once) || expand.getCanvasSize().width != size.width + 2 * border)
        throw std::runtime_error("redo failed");

    Answer<orvo::RenderedData> exported;
    expand.generateDataForExport(exported.callback());
    const auto result = exported.future.get().image;
    orvo::writeImage(output, *result, orvo::writeSettingsForPath(output));
    std::printf("%s: %d x %d pixels\n", output, result->width(), result->height());
}

} // namespace

int main(int count, char** words)
{
    if (count != 4) {
        std::fputs("expand_editor INPUT OUTPUT BORDER\n", stderr);
        return 2;
    }
    try {
        run(words[1], words[2], std::atoi(words[3]));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "expand_editor: %s\n", error.what());
        return 1;
    }
}
