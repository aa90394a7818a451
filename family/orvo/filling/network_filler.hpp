/// Filling by an inpainting network.
#pragma once

#include <orvo/filling.hpp>

#include <filesystem>
#include <memory>

namespace orvo::details {

/// See orvo::networkFiller(). The network is tried when it is loaded, which shows whether it counts full scale as 1 or
/// as 255: published ones do either.
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
