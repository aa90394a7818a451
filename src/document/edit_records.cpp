#include <orvo_extensions/document/edit_records.hpp>

namespace orvo {

EditInfo::EditInfo() = default;
EditInfo::~EditInfo() = default;
EditInfo::EditInfo(const EditInfo&) = default;
EditInfo& EditInfo::operator=(const EditInfo&) = default;
EditInfo::EditInfo(EditInfo&&) noexcept = default;
EditInfo& EditInfo::operator=(EditInfo&&) noexcept = default;

} // namespace orvo
