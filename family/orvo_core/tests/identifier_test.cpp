#include <orvo_core/identifier.hpp>

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <unordered_map>

using namespace orvo;
using Key = std::shared_ptr<const Identifier>;

namespace {

template <typename Call>
std::string complaintOf(const Call& call)
{
    try {
        call();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

Key fresh() { return UUIDGenerator()(); }

std::vector<unsigned char> bytesOf(const Key& key)
{
    std::vector<unsigned char> bytes;
    key->serialize(bytes);
    return bytes;
}

} // namespace

TEST(Identifier, TwoFreshOnesDiffer)
{
    const Key a = fresh();
    const Key b = fresh();
    EXPECT_FALSE(*a == *b);
    EXPECT_TRUE(*a == *a);
    EXPECT_NE(a->text(), b->text());
    EXPECT_EQ(a->text().size(), 36u);
}

TEST(Identifier, SurvivesItsBytes)
{
    for (int i = 0; i < 20; ++i) {
        const Key original = fresh();
        const Key back = Identifier::deserialize(bytesOf(original));
        ASSERT_TRUE(back);
        EXPECT_TRUE(*back == *original);
        EXPECT_EQ(back->hash(), original->hash());
        EXPECT_EQ(back->text(), original->text());
        EXPECT_TRUE(PredEqual()(back, original));
    }
}

TEST(Identifier, SerializeAppends)
{
    std::vector<unsigned char> bytes = {7, 7};
    const Key key = fresh();
    key->serialize(bytes);
    ASSERT_EQ(bytes.size(), 2 + bytesOf(key).size());
    EXPECT_EQ(bytes[0], 7);
    EXPECT_EQ(std::vector<unsigned char>(bytes.begin() + 2, bytes.end()), bytesOf(key));
}

TEST(Identifier, GarbageDeserializesToNothing)
{
    EXPECT_FALSE(Identifier::deserialize({}));
    auto bytes = bytesOf(fresh());
    const std::vector<unsigned char> good = bytes;
    bytes.pop_back();
    EXPECT_FALSE(Identifier::deserialize(bytes));
    bytes = good;
    bytes.push_back(0);
    EXPECT_FALSE(Identifier::deserialize(bytes));
    bytes = good;
    bytes[0] = 200; // unknown kind
    EXPECT_FALSE(Identifier::deserialize(bytes));
    EXPECT_FALSE(Identifier::deserialize(std::vector<unsigned char>(1000, 255)));
}

TEST(Identifier, KeysRejectEmptyPointers)
{
    const Key key = fresh();
    EXPECT_EQ(complaintOf([] { (void)Hasher()(nullptr); }), "Hasher::operator(): identifier is empty");
    EXPECT_EQ(complaintOf([&] { (void)PredEqual()(nullptr, key); }), "PredEqual::operator(): lhs identifier is empty");
    EXPECT_EQ(complaintOf([&] { (void)PredEqual()(key, nullptr); }), "PredEqual::operator(): rhs identifier is empty");
    EXPECT_EQ(complaintOf([&] { (void)Comparator()(nullptr, key); }),
              "Comparator::operator(): lhs identifier is empty");
    EXPECT_EQ(complaintOf([&] { (void)Comparator()(key, nullptr); }),
              "Comparator::operator(): rhs identifier is empty");
    // If both are empty the message names the left one.
    EXPECT_EQ(complaintOf([] { (void)PredEqual()(nullptr, nullptr); }),
              "PredEqual::operator(): lhs identifier is empty");
    EXPECT_EQ(complaintOf([] { (void)Comparator()(nullptr, nullptr); }),
              "Comparator::operator(): lhs identifier is empty");
}

TEST(Identifier, HashMapFindsByValueAndRefusesEmptyPointers)
{
    std::unordered_map<Key, int, Hasher, PredEqual> map;
    const Key key = fresh();
    map[key] = 5;
    map[fresh()] = 6;
    EXPECT_EQ(map.at(Identifier::deserialize(bytesOf(key))), 5);
    EXPECT_EQ(map.count(fresh()), 0u);
    // Some libraries do not search an empty table; this one has entries.
    EXPECT_EQ(complaintOf([&] { (void)map.find(nullptr); }), "Hasher::operator(): identifier is empty");
}

TEST(Identifier, SetsAreOrderedByValue)
{
    std::set<Key, Comparator> set;
    std::vector<Key> keys;
    for (int i = 0; i < 50; ++i)
        keys.push_back(fresh());
    set.insert(keys.begin(), keys.end());
    EXPECT_EQ(set.size(), keys.size());
    for (const Key& key : keys)
        EXPECT_FALSE(set.insert(Identifier::deserialize(bytesOf(key))).second);
    for (auto it = std::next(set.begin()); it != set.end(); ++it) {
        EXPECT_TRUE(Comparator()(*std::prev(it), *it));
        EXPECT_FALSE(Comparator()(*it, *std::prev(it)));
    }
    EXPECT_EQ(complaintOf([&] { (void)set.find(nullptr); }).substr(0, 10), "Comparator");
}
