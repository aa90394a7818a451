#include <orvo_core/identifier.hpp>

#include <algorithm>
#include <random>
#include <stdexcept>
#include <string_view>

namespace orvo {
namespace {

// The first byte of the serialised form is the kind, so that other kinds can be added.
constexpr unsigned char kUuidKind = 1;

const Identifier& present(const std::shared_ptr<const Identifier>& identifier, const char* complaint)
{
    if (!identifier)
        throw std::runtime_error(complaint);
    return *identifier;
}

} // namespace

Identifier::~Identifier() = default;

std::shared_ptr<const Identifier> Identifier::deserialize(std::span<const unsigned char> bytes)
{
    UUIdentifier::Bytes value{};
    if (bytes.size() != 1 + value.size() || bytes[0] != kUuidKind)
        return nullptr;
    std::copy(bytes.begin() + 1, bytes.end(), value.begin());
    return std::make_shared<UUIdentifier>(value);
}

UUIdentifier::UUIdentifier(const Bytes& bytes) : value(bytes) {}

UUIdentifier::~UUIdentifier() = default;

bool UUIdentifier::equals(const Identifier& other) const
{
    const auto* const uuid = dynamic_cast<const UUIdentifier*>(&other);
    return uuid != nullptr && uuid->value == value;
}

std::size_t UUIdentifier::hash() const
{
    return std::hash<std::string_view>()({reinterpret_cast<const char*>(value.data()), value.size()});
}

void UUIdentifier::serialize(std::vector<unsigned char>& bytes) const
{
    bytes.push_back(kUuidKind);
    bytes.insert(bytes.end(), value.begin(), value.end());
}

std::string UUIdentifier::text() const
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string result;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            result.push_back('-');
        result.push_back(kDigits[value[i] >> 4]);
        result.push_back(kDigits[value[i] & 15]);
    }
    return result;
}

std::shared_ptr<const Identifier> UUIDGenerator::operator()() const
{
    thread_local std::random_device source;
    UUIdentifier::Bytes bytes{};
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
        const auto random = source();
        for (std::size_t k = 0; k < 4; ++k)
            bytes[i + k] = static_cast<unsigned char>(random >> (8 * k));
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40); // version 4: random
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80); // the variant of RFC 4122
    return std::make_shared<UUIdentifier>(bytes);
}

std::size_t Hasher::operator()(const std::shared_ptr<const Identifier>& identifier) const
{
    return present(identifier, "Hasher::operator(): identifier is empty").hash();
}

bool PredEqual::operator()(const std::shared_ptr<const Identifier>& lhs,
                           const std::shared_ptr<const Identifier>& rhs) const
{
    const Identifier& left = present(lhs, "PredEqual::operator(): lhs identifier is empty");
    return left.equals(present(rhs, "PredEqual::operator(): rhs identifier is empty"));
}

bool Comparator::operator()(const std::shared_ptr<const Identifier>& lhs,
                            const std::shared_ptr<const Identifier>& rhs) const
{
    const Identifier& left = present(lhs, "Comparator::operator(): lhs identifier is empty");
    const Identifier& right = present(rhs, "Comparator::operator(): rhs identifier is empty");
    std::vector<unsigned char> leftBytes;
    std::vector<unsigned char> rightBytes;
    left.serialize(leftBytes);
    right.serialize(rightBytes);
    return leftBytes < rightBytes;
}

} // namespace orvo
