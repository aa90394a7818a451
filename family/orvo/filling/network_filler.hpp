/// Filling by an inpainting network.
#pragma once

#include <orvo/filling.hpp>

#include <filesystem>
#include <memory>

namespace orvo::details {

/// See orvo::networkFiller(). A trial run at load time shows whether the network uses 1 or 255 as full scale; published
/// ones differ.
class NetworkFiller : public Filler
{
public:
    /// Throws FailureError.
    explicit NetworkFiller(const std::filesystem::path& model);
    ~NetworkFiller() override;

    [[nodiscard]] std::shared_ptr<_ImageData<PixelRGB<float>>> fill(const _ImageData<PixelRGB<float>>& picture,
                                                                    const _ImageData<float>& mask,
                                                                    const RunControl& control) const override;

private:
    using Result = std::shared_ptr<_ImageData<PixelRGB<float>>>;
    [[nodiscard]] Result filled(const _ImageData<PixelRGB<float>>& picture, const _ImageData<float>& mask,
                                const RunControl& control) const;

    struct State;
    std::unique_ptr<State> state;
};

} // namespace orvo::details
