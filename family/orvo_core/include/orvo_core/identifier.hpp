/// Identifiers as values, and as keys of maps.
#pragma once

#include <orvo_common/export.hpp>

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace orvo {

/// A polymorphic, immutable value, shared as std::shared_ptr<const Identifier>.
class ORVO_EXPORT Identifier
{
public:
    virtual ~Identifier();

    [[nodiscard]] virtual bool equals(const Identifier& other) const = 0;
    [[nodiscard]] virtual std::size_t hash() const = 0;
    /// Appends the bytes from which deserialize() creates an equal identifier.
    virtual void serialize(std::vector<unsigned char>& bytes) const = 0;
    [[nodiscard]] virtual std::string text() const = 0;

    bool operator==(const Identifier& other) const { return equals(other); }

    /// An identifier from serialize()'s bytes; empty for any other bytes. Never throws on garbage.
    [[nodiscard]] static std::shared_ptr<const Identifier> deserialize(std::span<const unsigned char> bytes);
};

/// Sixteen random bytes.
class ORVO_EXPORT UUIdentifier final : public Identifier
{
public:
    using Bytes = std::array<unsigned char, 16>;
    explicit UUIdentifier(const Bytes& bytes);
    ~UUIdentifier() override;

    [[nodiscard]] bool equals(const Identifier& other) const override;
    [[nodiscard]] std::size_t hash() const override;
    void serialize(std::vector<unsigned char>& bytes) const override;
    /// The 36-character form.
    [[nodiscard]] std::string text() const override;

private:
    Bytes value;
};

/// Creates new identifiers.
struct ORVO_EXPORT UUIDGenerator
{
    [[nodiscard]] std::shared_ptr<const Identifier> operator()() const;
};

// Function objects for maps with identifiers as keys. They throw std::runtime_error on an empty pointer: a map that
// silently accepted one would return one owner's data to another.

struct ORVO_EXPORT Hasher
{
    std::size_t operator()(const std::shared_ptr<const Identifier>& identifier) const;
};

struct ORVO_EXPORT PredEqual
{
    bool operator()(const std::shared_ptr<const Identifier>& lhs, const std::shared_ptr<const Identifier>& rhs) const;
};

/// A strict order, the same in every run.
struct ORVO_EXPORT Comparator
{
    bool operator()(const std::shared_ptr<const Identifier>& lhs, const std::shared_ptr<const Identifier>& rhs) const;
};

} // namespace orvo
