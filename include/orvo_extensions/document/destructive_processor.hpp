/// Processors of edits that change pixels permanently.
#pragma once

#include <orvo_common/export.hpp>

#include <memory>

namespace orvo {

class ImageProvider;

/// Copies share the source.
class ORVO_EXPORT DestructiveProcessor
{
public:
    /// `provider`: the source to process; may be empty.
    explicit DestructiveProcessor(std::shared_ptr<ImageProvider> provider);
    virtual ~DestructiveProcessor();
    DestructiveProcessor(const DestructiveProcessor&);
    DestructiveProcessor& operator=(const DestructiveProcessor&);

    [[nodiscard]] std::shared_ptr<ImageProvider> getImageProvider() const { return imageProvider; }

private:
    std::shared_ptr<ImageProvider> imageProvider;
};

/// The same, for a complete picture.
class ORVO_EXPORT DestructiveImageProcessor : public DestructiveProcessor
{
public:
    explicit DestructiveImageProcessor(std::shared_ptr<ImageProvider> provider);
    ~DestructiveImageProcessor() override;
    DestructiveImageProcessor(const DestructiveImageProcessor&);
    DestructiveImageProcessor& operator=(const DestructiveImageProcessor&);
};

} // namespace orvo
