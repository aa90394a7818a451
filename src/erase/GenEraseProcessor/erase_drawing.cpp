// Drawing: the layer between the application and the brush.
#include "GenEraseProcessor/generative_erase_processor_impl.hpp"

#include <orvo_extensions/generative_erase.hpp>
#include <orvo_extensions/operations.hpp>
#include <orvo_logger/logstream.hpp>

#include <functional>
#include <utility>

namespace orvo {
namespace {

using BrushInfo = GenerativeEraseProcessorImpl::BrushInfo;

void warn(const std::string& operation, const char* text)
{
    LOG(__orvolog() << LogMessageType::Warning << operation << ": " << text);
}

// Adds `work` on the mask, which every operation holds by its own reference.
void add(GenerativeEraseProcessorImpl& impl, std::function<void(BrushInfo&)> work)
{
    impl.queue.addOperation(std::make_shared<opq::FunctionOperation>(
        [info = impl.brushInfo, work = std::move(work)] { work(*info); }, std::string()));
}

// Adds `work` within a phase; `complaint` is logged if none is open.
void addInPhase(GenerativeEraseProcessorImpl& impl, std::string operation, const char* complaint,
                std::function<void(DrawingController&)> work)
{
    add(impl, [operation = std::move(operation), complaint, work = std::move(work)](BrushInfo& info) {
        if (info.controller)
            work(*info.controller);
        else
            warn(operation, complaint);
    });
}

} // namespace

void GenerativeEraseProcessor::beginDrawing()
{
    if (!eraseImpl)
        return;
    add(*eraseImpl, [operation = functionSignature(), canvasSize = getCanvasSize()](BrushInfo& info) {
        if (info.controller) {
            warn(operation, "Drawing already started.");
            return;
        }
        const auto controller = info.mask ? std::make_shared<DrawingController>(info.mask)
                                          : std::make_shared<DrawingController>(canvasSize);
        controller->initialize();
        info.controller = controller;
        info.mask.reset();
    });
    renderAll();
}

void GenerativeEraseProcessor::finishDrawing()
{
    if (!eraseImpl)
        return;
    add(*eraseImpl, [operation = functionSignature()](BrushInfo& info) {
        if (!info.controller) {
            warn(operation, "Drawing not started yet.");
            return;
        }
        info.mask = info.controller->getMask();
        info.controller.reset();
    });
    renderAll();
}

void GenerativeEraseProcessor::startStroke(std::function<void()>, std::function<void()>)
{
    if (!eraseImpl)
        return;
    addInPhase(*eraseImpl, functionSignature(), "Drawing not started yet. Call beginDrawing before startStroke.",
               [](DrawingController& controller) { controller.startStroke(); });
    renderAll();
}

void GenerativeEraseProcessor::stroke(const _Point<float>& point, std::shared_ptr<const BaseBrushSettings> settings)
{
    strokePoints({point}, std::move(settings));
}

void GenerativeEraseProcessor::strokePoints(const std::vector<_Point<float>>& points,
                                            std::shared_ptr<const BaseBrushSettings> settings)
{
    if (!eraseImpl)
        return;
    const std::string operation = functionSignature();
    addInPhase(*eraseImpl, operation, "Drawing not started yet. Call beginDrawing before strokePoints.",
               [operation, points, settings = std::move(settings)](DrawingController& controller) {
                   const auto round = settings && settings->getType() == BrushSettingsType::Round
                                          ? std::dynamic_pointer_cast<const RoundBrushSettings>(settings)
                                          : nullptr;
                   if (!round) {
                       warn(operation, "Only RoundBrushSettings supported.");
                       return;
                   }
                   controller.setRoundBrushSettings(round->getRadius(), round->getSoftness());
                   controller.setBrushOpacity(round->getOpacity());
                   controller.stroke(points);
               });
    renderMain();
}

void GenerativeEraseProcessor::finishStroke(std::function<void()>, std::function<void()>)
{
    if (!eraseImpl)
        return;
    addInPhase(*eraseImpl, functionSignature(), "Drawing not started yet. Call beginDrawing before finishStroke.",
               [](DrawingController& controller) { controller.finishStroke(); });
    renderAll();
}

void GenerativeEraseProcessor::setDrawingMode(const DrawingMode& mode)
{
    if (!eraseImpl)
        return;
    addInPhase(*eraseImpl, functionSignature(), "Drawing not started yet. Call beginDrawing before setDrawingMode.",
               [mode](DrawingController& controller) { controller.setDrawingMode(mode); });
}

void GenerativeEraseProcessor::setShowMask(bool show)
{
    if (!eraseImpl)
        return;
    add(*eraseImpl, [show](BrushInfo& info) { info.showMask = show; });
    renderAll();
}

void GenerativeEraseProcessor::clearMask()
{
    if (!eraseImpl)
        return;
    addInPhase(*eraseImpl, functionSignature(), "Drawing not started yet. Call beginDrawing before clearMask.",
               [](DrawingController& controller) { controller.fillMask(0.0f); });
    renderAll();
}

std::vector<unsigned char> GenerativeEraseProcessor::storeMask()
{
    if (!eraseImpl)
        return {};
    const auto id = UUIDGenerator()();
    add(*eraseImpl, [operation = functionSignature(), id](BrushInfo& info) {
        if (!info.controller) {
            warn(operation, "Drawing not started yet. Call beginDrawing before storeMask.");
            return;
        }
        info.storeDrawingState(info.controller->getState(), id);
    });
    std::vector<unsigned char> bytes;
    id->serialize(bytes);
    return bytes;
}

void GenerativeEraseProcessor::restoreMask(const std::vector<unsigned char>& state)
{
    if (!eraseImpl)
        return;
    add(*eraseImpl, [operation = functionSignature(), id = Identifier::deserialize(state)](BrushInfo& info) {
        if (!id) {
            warn(operation, "Invalid identifier for restoreMask");
            return;
        }
        if (!info.controller) {
            warn(operation, "Drawing not started yet. Call beginDrawing before restoreMask.");
            return;
        }
        if (const auto found = info.findDrawingState(id))
            info.controller->applyState(*found);
    });
    renderAll();
}

} // namespace orvo
