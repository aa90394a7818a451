#include <orvo_common/console_trace.hpp>

namespace grfx {

ConsoleTrace cout;

} // namespace grfx
