#include "frame/managed_mat.hpp"

#include <orvo_common/memory_manager.hpp>

#include <opencv2/core.hpp>

#include <memory>

namespace orvo {
namespace {

class ManagedMatAllocator final : public cv::MatAllocator
{
public:
    explicit ManagedMatAllocator(bool isSparse_) : isSparse(isSparse_) {}

    // `data` is set when a UMat is created from an existing matrix; nothing is allocated then, and OpenCV's own
    // allocator handles it.
    cv::UMatData* allocate(int dims, const int* sizes, int type, void* data, std::size_t* step, cv::AccessFlag flags,
                           cv::UMatUsageFlags usage) const override
    {
        if (data != nullptr)
            return cv::Mat::getStdAllocator()->allocate(dims, sizes, type, data, step, flags, usage);
        std::size_t total = CV_ELEM_SIZE(type);
        for (int i = dims - 1; i >= 0; --i) { // rows without gaps
            if (step != nullptr)
                step[i] = total;
            total *= static_cast<std::size_t>(sizes[i]);
        }
        auto made = std::make_unique<cv::UMatData>(this);
        MemoryManager& memory = MemoryManager::instance();
        void* const plane = isSparse ? memory.allocateSparse(total) : memory.allocate(total, false);
        made->data = made->origdata = static_cast<uchar*>(plane);
        made->size = total;
        return made.release();
    }

    bool allocate(cv::UMatData* data, cv::AccessFlag, cv::UMatUsageFlags) const override { return data != nullptr; }

    void deallocate(cv::UMatData* data) const override
    {
        if (data == nullptr)
            return;
        MemoryManager::instance().free(data->origdata);
        delete data; // NOLINT(cppcoreguidelines-owning-memory): created in allocate(), passed through OpenCV
    }

private:
    bool isSparse; // zeros that take memory where they are overwritten
};

cv::Mat matrixOf(cv::MatAllocator& allocator, int rows, int cols, int type)
{
    cv::Mat mat;
    mat.allocator = &allocator;
    mat.create(rows, cols, type);
    return mat;
}

} // namespace

// The allocators are never deleted: static matrices may outlive any other static object.

cv::Mat managedMat(int rows, int cols, int type)
{
    static cv::MatAllocator* const allocator = new ManagedMatAllocator(false);
    return matrixOf(*allocator, rows, cols, type);
}

cv::Mat managedZeros(int rows, int cols, int type)
{
    static cv::MatAllocator* const allocator = new ManagedMatAllocator(true);
    return matrixOf(*allocator, rows, cols, type);
}

} // namespace orvo
