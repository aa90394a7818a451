/// The edits of a layer.
#pragma once

#include <orvo_common/export.hpp>
#include <orvo_extensions/document/edit.hpp>

#include <cstdint>
#include <limits>
#include <vector>

namespace orvo {

/// Edits in the order of application. A value: a copy has its own edits.
class ORVO_EXPORT EditCollection
{
public:
    /// An index that names no edit.
    static constexpr std::uint64_t NoEdit = std::numeric_limits<std::uint64_t>::max();

    EditCollection();
    virtual ~EditCollection();
    EditCollection(const EditCollection&);
    EditCollection& operator=(const EditCollection&);

    [[nodiscard]] std::uint64_t size() const { return edits.size(); }
    /// Returns the index of the new edit.
    std::uint64_t append(const Edit& edit);
    /// Throws std::out_of_range, always for NoEdit.
    [[nodiscard]] const Edit& at(std::uint64_t index) const { return edits.at(index); }
    [[nodiscard]] Edit& at(std::uint64_t index) { return edits.at(index); }
    /// The index of the first edit with this identity; NoEdit if there is none or `id` is empty.
    [[nodiscard]] std::uint64_t indexOf(const std::shared_ptr<const Identifier>& id) const;

private:
    std::vector<Edit> edits;
};

} // namespace orvo
