#include <orvo_extensions/document/edit_collection.hpp>

#include <algorithm>

namespace orvo {

EditCollection::EditCollection() = default;
EditCollection::~EditCollection() = default;
EditCollection::EditCollection(const EditCollection&) = default;
EditCollection& EditCollection::operator=(const EditCollection&) = default;

std::uint64_t EditCollection::append(const Edit& edit)
{
    edits.push_back(edit);
    return edits.size() - 1;
}

std::uint64_t EditCollection::indexOf(const std::shared_ptr<const Identifier>& id) const
{
    const auto found = std::find_if(edits.begin(), edits.end(),
                                    [&](const Edit& edit) { return id && edit.getID() && *edit.getID() == *id; });
    return found == edits.end() ? NoEdit : static_cast<std::uint64_t>(found - edits.begin());
}

} // namespace orvo
