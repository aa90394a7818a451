#include <jobs/upscale_network.hpp>
#include <orvo_common/wide_path.hpp>
#include <orvo_io/settings.hpp>

namespace orvo::jobs {
namespace {

constexpr const char* kKey = "Upscale.model";

}

UpscaleNetwork::UpscaleNetwork(const std::filesystem::path& model)
    : before(orvosettings().get<std::string>(kKey, "")), changed(!model.empty() && pathText(model) != before)
{
    if (changed)
        orvosettings().set<std::string>(kKey, pathText(model));
}

UpscaleNetwork::~UpscaleNetwork()
{
    if (changed && before.empty())
        orvosettings().remove(kKey);
    else if (changed)
        orvosettings().set(kKey, before);
}

} // namespace orvo::jobs
