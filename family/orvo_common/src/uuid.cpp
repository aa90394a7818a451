#include <orvo_common/uuid.hpp>

#include <uuid/uuid.h>

namespace orvo {

std::string generateUUID()
{
    uuid_t bytes;
    uuid_generate_random(bytes);
    char text[UUID_STR_LEN];
    uuid_unparse_lower(bytes, text);
    return text;
}

} // namespace orvo
