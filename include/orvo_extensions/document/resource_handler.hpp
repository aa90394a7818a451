/// A store of temporary files and the texts that belong to it.
#pragma once

#include <orvo/resource_manager.hpp>
#include <orvo_common/export.hpp>

#include <string>

namespace orvo {

/// A record. Copies share the files. The texts are only passed on here.
struct ORVO_EXPORT ResourceHandler
{
    std::wstring first;
    std::wstring second;
    ResourceManager resources;
};

} // namespace orvo
