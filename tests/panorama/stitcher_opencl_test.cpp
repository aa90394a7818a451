// OpenCL compared with the CPU. A separate program: OpenCV chooses its device once.
#include "panorama/compute_device.hpp"
#include "panorama_truth.hpp"

#include <orvo_logger/log_capture.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/core/ocl.hpp>

#include <cstdlib>

using namespace orvo;
using namespace orvo::test;
using scenes::SphereScene;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;

namespace {

// A device on the CPU is sufficient: it runs the same kernels.
const int kDeviceChosen = setenv("OPENCV_OPENCL_DEVICE", ":CPU:", 0);

// OpenCL samples at exact positions, the CPU at 1/32 of a pixel.
constexpr double kUsual = 0.006;
constexpr double kWorstMean = 0.03;

class StitcherOpenCl : public testing::Test
{
protected:
    SphereScene scene;
    std::vector<scenes::SphereView> views = smallRow();
    PanoSource source;

    void SetUp() override
    {
        ASSERT_EQ(kDeviceChosen, 0);
        if (!cv::ocl::haveOpenCL() || !cv::ocl::useOpenCL() || cv::ocl::Device::getDefault().globalMemSize() == 0)
            GTEST_SKIP() << "no OpenCL device here (the package pocl-opencl-icd brings one)";
        forceCpu() = false;
    }
    void TearDown() override { forceCpu() = false; }

    // The whole sphere at half resolution, on the device or on the CPU, with all steps done there.
    cv::Rect draw(bool onCpu, cv::Mat& picture, cv::Mat& mask) const
    {
        forceCpu() = onCpu;
        PanoramaStitcher stitcher(source);
        cv::ocl::setUseOpenCL(!onCpu);
        EXPECT_TRUE(stitcher.estimateCameras(seen(scene, views)));
        cv::ocl::setUseOpenCL(true);
        const cv::Rect sphere = stitcher.projectionBounds();
        return stitcher.makePanoramaRaw(sphere, {sphere.width / 2, sphere.height / 2}, picture, mask, never);
    }

    void expectSame(const cv::Rect& a, const cv::Mat& pictureA, const cv::Mat& maskA, const cv::Rect& b,
                    const cv::Mat& pictureB, const cv::Mat& maskB) const
    {
        ASSERT_FALSE(a.empty());
        EXPECT_LE(std::abs(a.x - b.x) + std::abs(a.y - b.y), 2);
        EXPECT_LE(std::abs(a.width - b.width) + std::abs(a.height - b.height), 3);
        const cv::Rect common = a & b;
        const cv::Mat one = matrixOf(*imageDataFromCVMat(pictureA(common - a.tl())));
        const cv::Mat two = matrixOf(*imageDataFromCVMat(pictureB(common - b.tl())));
        const Agreement agreement = agreementOf(one, maskA(common - a.tl()) & maskB(common - b.tl()), two, 4);
        EXPECT_GT(agreement.pixels, 40000);
        EXPECT_GT(agreement.psnr, -20.0 * std::log10(kUsual));
        EXPECT_LT(agreement.worstMean, kWorstMean);
    }
};

} // namespace

TEST_F(StitcherOpenCl, DrawsWhatTheCpuDraws)
{
    cv::Mat onDevice;
    cv::Mat maskOnDevice;
    cv::Mat onCpu;
    cv::Mat maskOnCpu;
    const LogCapture capture;
    const cv::Rect a = draw(false, onDevice, maskOnDevice);
    EXPECT_FALSE(forceCpu()) << "nothing failed";
    EXPECT_THAT(capture.texts(LogMessageType::Progress), IsEmpty()) << "not on the CPU";
    EXPECT_THAT(capture.texts(LogMessageType::Warning), IsEmpty());
    const cv::Rect b = draw(true, onCpu, maskOnCpu);
    EXPECT_THAT(capture.texts(LogMessageType::Progress), Contains("Trying to make panorama on CPU"));
    expectSame(a, onDevice, maskOnDevice, b, onCpu, maskOnCpu);
}

TEST_F(StitcherOpenCl, RemovesVignettingLikeTheCpu)
{
    for (auto& view : views)
        view.vignetting = {0.5, 0.0, 0.0};
    source.settings.devignette = true;
    cv::Mat onDevice;
    cv::Mat maskOnDevice;
    cv::Mat onCpu;
    cv::Mat maskOnCpu;
    const cv::Rect a = draw(false, onDevice, maskOnDevice);
    EXPECT_FALSE(forceCpu());
    const cv::Rect b = draw(true, onCpu, maskOnCpu);
    expectSame(a, onDevice, maskOnDevice, b, onCpu, maskOnCpu);
}

TEST_F(StitcherOpenCl, WorkTooLargeForTheDeviceMovesToTheCpuPermanently)
{
    PanoramaStitcher stitcher(source);
    ASSERT_TRUE(stitcher.estimateCameras(seen(scene, views)));
    const cv::Rect sphere = stitcher.projectionBounds();
    const cv::Rect part(sphere.x + sphere.width / 2 - 50, sphere.y + sphere.height / 2 - 50, 100, 100);
    // One row, so that it costs nothing, but the estimate, which counts columns, exceeds one allocation.
    const auto largest = static_cast<double>(cv::ocl::Device::getDefault().maxMemAllocSize());
    const double bytesPerColumn = 400.0 * 300.0 * 6.0 / 400.0;
    const double columns = 1.1 * largest / bytesPerColumn;
    ASSERT_LT(columns, 2e9);
    cv::Mat picture;
    cv::Mat mask;
    const LogCapture capture;
    (void)stitcher.makePanoramaRaw({sphere.x - 2000, sphere.y, 1000, 1}, {static_cast<int>(columns), 1}, picture, mask,
                                   [] { return true; });
    EXPECT_TRUE(forceCpu());
    EXPECT_FALSE(stitcher.makePanoramaRaw(part, {50, 50}, picture, mask, never).empty());
    EXPECT_THAT(capture.texts(LogMessageType::Progress), testing::SizeIs(2));
    EXPECT_TRUE(cv::ocl::useOpenCL()) << "switched back on for the caller";
}

TEST_F(StitcherOpenCl, ReprojectsWhatTheDeviceDrew)
{
    PanoramaStitcher stitcher(source);
    ASSERT_TRUE(stitcher.estimateCameras(seen(scene, views)));
    stitcher.setWarpType(1);
    stitcher.beginViewAdjust();
    stitcher.setViewShift({0.02f, 0.01f});
    stitcher.endViewAdjust();
    const cv::Rect bounds = stitcher.projectionBounds();
    const _Size<int> size{bounds.width / 2, bounds.height / 2};
    const Panorama panorama = stitcher.makePanorama({0, 0, bounds.width, bounds.height}, size, true, never);
    EXPECT_FALSE(forceCpu());
    ASSERT_NE(panorama.image, nullptr);
    Drawing drawing;
    drawing.kind = 1;
    drawing.rect = bounds;
    drawing.size = {size.width, size.height};
    drawing.view = cv::Matx33f(stitcher.getViewRotation());
    const Agreement agreement =
        agreementOf(matrixOf(*panorama.image), maskOf(*panorama.mask), truthOf(scene, stitcher, views, drawing), 8);
    EXPECT_GT(agreement.psnr, 30.0);
}
