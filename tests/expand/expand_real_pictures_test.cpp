// A photograph expanded three times in a row, with the filler as the service, and taken back to each state.
#include "expand_tool.hpp"

#include <orvo/documents.hpp>
#include <orvo/filling.hpp>
#include <orvo_extensions/generative_expand.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>

namespace orvo::test {
namespace {

constexpr int kRim = 64; // pixels of the known picture that fade into the new border at most

std::shared_ptr<const Picture> photograph()
{
    const char* const data = std::getenv("ORVO_TEST_DATA");
    if (data == nullptr)
        return nullptr;
    const auto image = openNoEmpty(std::filesystem::path(data) / "panorama" / "weir" / "weir_1.jpg", {}, {});
    return image->developedModifiedImageData(ResizeParameters{{}, {}, true});
}

// What the service of the program answers.
std::string filled(const Request& request)
{
    const auto gray = convertToImageData(request.mask);
    MaskImage mask(gray->size());
    for (std::size_t i = 0; i < gray->pixelCount(); ++i)
        mask.data()[i] = gray->data()[i].r > 0.0f ? 1.0f : 0.0f;
    return answerText(patchFiller()->fill(*convertToImageData(request.image), mask, RunControl::none()));
}

// Widths of the border, in shares of the sides.
struct Border
{
    double left, top, right, bottom;
};

_Rect<int> cropOf(_Size<int> size, const Border& border)
{
    const auto part = [](int side, double share) { return static_cast<int>(std::lround(side * share)); };
    const int left = part(size.width, border.left);
    const int top = part(size.height, border.top);
    return {-left, -top, size.width + left + part(size.width, border.right),
            size.height + top + part(size.height, border.bottom)};
}

// The mean step between column `x` and the one before it.
double stepAt(const Picture& picture, int x)
{
    double sum = 0.0;
    for (int y = 0; y < picture.height(); ++y)
        sum += std::abs(static_cast<double>(picture.row(y)[x].g) - static_cast<double>(picture.row(y)[x - 1].g));
    return sum / picture.height();
}

TEST(ExpandRealPictures, ThreeInARowGoBackToEach)
{
    auto picture = photograph();
    if (!picture)
        GTEST_SKIP() << "ORVO_TEST_DATA is not set to a folder of real pictures";
    ExpandTool tool(picture);
    std::vector<Bytes> states = {tool.storeState()};
    std::vector<std::shared_ptr<const Picture>> pictures = {tool.picture()};
    for (const Border& border :
         {Border{0.15, 0.0, 0.0, 0.0}, Border{0.0, 0.25, 0.0, 0.15}, Border{0.05, 0.05, 0.05, 0.05}}) {
        const _Rect<int> rect = cropOf(picture->size(), border);
        const Request request = tool.request(test::cropOf(rect.x, rect.y, rect.width, rect.height));
        ASSERT_TRUE(request.valid);
        tool.applyGeneratedResponse(filled(request), convertToImageData(request.image)->size());
        const auto expanded = tool.picture();
        ASSERT_EQ(expanded->size(), rect.size());

        const _Rect<int> kept(kRim, kRim, picture->width() - 2 * kRim, picture->height() - 2 * kRim);
        EXPECT_TRUE(sameBytes(*picture->copy(kept),
                              *expanded->copy({kept.x - rect.x, kept.y - rect.y, kept.width, kept.height})));
        std::size_t gray = 0;
        for (std::size_t i = 0; i < expanded->pixelCount(); ++i)
            gray += expanded->data()[i] == PixelRGB<float>{0.5f, 0.5f, 0.5f} ? 1 : 0;
        EXPECT_EQ(gray, 0u) << "pixels of the border were not painted";
        if (rect.x < 0) {
            // No column of the joint steps more than the columns of the picture do.
            double usual = 0.0;
            double joint = 0.0;
            for (int x = -rect.x + kRim; x < -rect.x + 5 * kRim; ++x)
                usual += stepAt(*expanded, x) / (4 * kRim);
            for (int x = -rect.x - 2; x <= -rect.x + 2; ++x)
                joint = std::max(joint, stepAt(*expanded, x));
            EXPECT_LT(joint, 1.5 * usual);
        }
        states.push_back(tool.storeState());
        pictures.push_back(expanded);
        picture = expanded;
    }
    for (const std::size_t i : {2u, 0u, 3u, 1u}) {
        EXPECT_EQ(tool.restored(states[i]).state, states[i]);
        EXPECT_EQ(tool.getCanvasSize(), pictures[i]->size());
        EXPECT_TRUE(sameBytes(*tool.picture(), *pictures[i])) << i;
    }
}

} // namespace
} // namespace orvo::test
