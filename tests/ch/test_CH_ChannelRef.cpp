#include <ch/manager/CH_ChannelRef.h>
#include <ut/UT_SharedString.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace {

// ---- Helpers ---------------------------------------------------------------

// The packed word is the record's first member; reading the object's bytes
// is the only way to see the spare bit, which nothing in the interface reads.
static_assert(std::is_standard_layout<CH_ChannelRef>::value, "the packed word must sit at offset 0");

std::uint32_t wordOf(const CH_ChannelRef &ref)
{
    std::uint32_t word;
    std::memcpy(&word, reinterpret_cast<const unsigned char *>(&ref), sizeof(word));
    return word;
}

void setSpareBit(CH_ChannelRef &ref)
{
    std::uint32_t word = wordOf(ref) | 0x80000000u;
    std::memcpy(reinterpret_cast<unsigned char *>(&ref), &word, sizeof(word));
}

bool hasSpareBit(const CH_ChannelRef &ref) { return (wordOf(ref) & 0x80000000u) != 0; }

// What a 30-bit two's complement field holds for 'id', worked out with
// 64-bit arithmetic rather than bit tricks.
int expectedStoredId(long long id)
{
    long long m = ((id % (1LL << 30)) + (1LL << 30)) % (1LL << 30); // 0 .. 2^30-1
    return static_cast<int>(m >= (1LL << 29) ? m - (1LL << 30) : m);
}

// The reference hash, written out plainly in 64 bits and reduced after each
// step. Name bytes count as signed, the node id is the sign-extended value.
std::uint32_t expectedHash(long long id, const std::string &name)
{
    const unsigned long long mask = 0xffffffffULL;
    unsigned long long h = 0;
    for (char c : name) {
        long long byte = static_cast<unsigned char>(c);
        if (byte >= 128)
            byte -= 256;
        h = (h * 37 + static_cast<unsigned long long>(byte)) & mask;
    }
    unsigned long long k = static_cast<unsigned long long>(expectedStoredId(id)) & mask;
    k = (k + (~(k << 16) & mask)) & mask;
    k ^= k >> 5;
    k = (k + (k << 3)) & mask;
    k ^= k >> 13;
    k = (k + (~(k << 9) & mask)) & mask;
    k ^= k >> 17;
    return static_cast<std::uint32_t>(k ^ h);
}

// ---- Bit packing -------------------------------------------------------------

TEST(CH_ChannelRef, NodeIdKeepsThirtyBitsAndSignExtends)
{
    struct Case
    {
        long long given;
        int read;
    };
    const Case cases[] = {
        {0, 0},
        {1, 1},
        {-1, -1},
        {-5, -5},
        {(1 << 29) - 1, (1 << 29) - 1}, // largest positive
        {-(1 << 29), -(1 << 29)},       // most negative
        {1 << 29, -(1 << 29)},          // one past the largest wraps
        {(1 << 30) - 1, -1},            // all 30 bits set: "no node"
        {1 << 30, 0},                   // only bit 30 set: drops out
        {(1 << 30) + 5, 5},
        {INT_MAX, -1},
        {INT_MIN, 0},
        {INT_MIN + 7, 7},
        {-(1 << 29) - 1, (1 << 29) - 1},
    };
    for (const Case &c : cases) {
        ASSERT_EQ(expectedStoredId(c.given), c.read) << c.given; // the helper itself
        int id = static_cast<int>(c.given);
        for (bool track : {false, true}) {
            CH_ChannelRef built(id, "tx", track);
            EXPECT_EQ(built.getNodeId(), c.read) << c.given;
            EXPECT_EQ(built.isTrack(), track) << c.given;

            CH_ChannelRef set(12345, "tx", track);
            set.setNodeId(id);
            EXPECT_EQ(set.getNodeId(), c.read) << c.given;
            EXPECT_EQ(set.isTrack(), track) << "setNodeId touched the track flag, id " << c.given;
            EXPECT_STREQ(set.getName(), "tx");
        }
    }
}

TEST(CH_ChannelRef, SpareBitSurvivesEverySetter)
{
    CH_ChannelRef ref(7, "ry", true);
    setSpareBit(ref);
    // Nothing visible changes with it.
    EXPECT_EQ(ref.getNodeId(), 7);
    EXPECT_TRUE(ref.isTrack());
    EXPECT_EQ(ref, CH_ChannelRef(7, "ry", true));
    EXPECT_FALSE(ref < CH_ChannelRef(7, "ry", true));
    EXPECT_FALSE(ref > CH_ChannelRef(7, "ry", true));
    EXPECT_EQ(ref.hash(), CH_ChannelRef(7, "ry", true).hash());

    ref.setNodeId(-1);
    EXPECT_EQ(wordOf(ref), 0xffffffffu) << "setNodeId";
    ref.setNodeId(INT_MIN);
    EXPECT_TRUE(hasSpareBit(ref)) << "setNodeId";
    ref.setChannelRef(3, "sx", false);
    EXPECT_TRUE(hasSpareBit(ref)) << "setChannelRef";
    EXPECT_EQ(wordOf(ref), 0x80000003u);
    ref.clear();
    EXPECT_TRUE(hasSpareBit(ref)) << "clear";
    EXPECT_EQ(ref.getNodeId(), -1);

    // Assignment copies id, track and name but leaves the spare bit where it
    // was, in both directions.
    ref = CH_ChannelRef(9, "sz", true);
    EXPECT_EQ(wordOf(ref), 0xc0000009u) << "assignment into a marked reference";
    EXPECT_EQ(ref, CH_ChannelRef(9, "sz", true));
    CH_ChannelRef plain(1, "p", false);
    plain = ref;
    EXPECT_FALSE(hasSpareBit(plain)) << "assignment from a marked reference";
    EXPECT_EQ(plain, ref);

    // A copy is the whole record.
    CH_ChannelRef copy(ref);
    EXPECT_TRUE(hasSpareBit(copy));
    EXPECT_EQ(copy, ref);
}

// ---- Names -------------------------------------------------------------------

TEST(CH_ChannelRef, DefaultAndClearedReferences)
{
    CH_ChannelRef def;
    EXPECT_EQ(def.getNodeId(), -1);
    EXPECT_FALSE(def.isTrack());
    ASSERT_NE(def.getName(), nullptr);
    EXPECT_STREQ(def.getName(), "");

    CH_ChannelRef cleared(42, "tz", true);
    cleared.clear();
    EXPECT_EQ(cleared.getNodeId(), -1);
    EXPECT_FALSE(cleared.isTrack());
    EXPECT_EQ(cleared.getName(), def.getName());
    EXPECT_EQ(cleared, def);
}

TEST(CH_ChannelRef, EmptyNamesShareOneStaticTextOthersAreInterned)
{
    const char *empty = CH_ChannelRef().getName();
    CH_ChannelRef set(1, "x", false);
    std::size_t before = UT_SharedString::getEntryCount();
    EXPECT_EQ(CH_ChannelRef(3, "", false).getName(), empty);
    EXPECT_EQ(CH_ChannelRef(3, nullptr, true).getName(), empty);
    set.setChannelRef(2, "", true);
    EXPECT_EQ(set.getName(), empty);
    // The empty name is not one of the pool's texts.
    EXPECT_EQ(UT_SharedString::getEntryCount(), before);

    std::string a = "chref-name/rx", b = "chref-name/rx";
    CH_ChannelRef ra(1, a.c_str(), false), rb(2, b.c_str(), true);
    EXPECT_EQ(ra.getName(), rb.getName());
    EXPECT_NE(ra.getName(), a.c_str());
    EXPECT_EQ(ra.getName(), UT_SharedString::intern("chref-name/rx"));
    a[0] = '#';
    EXPECT_STREQ(ra.getName(), "chref-name/rx");
}

// ---- Equality, ordering, hashing -------------------------------------------

struct Ref
{
    int id;
    const char *name;
    bool track;
};

TEST(CH_ChannelRef, EqualityOrderingAndHashTreatTheTrackFlagDifferently)
{
    enum Order { LESS = -1, SAME = 0, MORE = 1 };
    struct Case
    {
        Ref a, b;
        bool equal;
        Order order;
        bool sameHash;
    };
    const Case cases[] = {
        {{4, "tx", false}, {4, "tx", false}, true, SAME, true},
        // Only the track flag differs: unequal, yet unordered and one hash.
        {{4, "tx", false}, {4, "tx", true}, false, SAME, true},
        {{-1, "", true}, {-1, "", false}, false, SAME, true},
        {{4, "tx", false}, {5, "tx", false}, false, LESS, false},
        {{4, "ty", true}, {4, "tx", true}, false, MORE, false},
        // Ids agree modulo 2^30, so they are the same id.
        {{(1 << 30) + 4, "tx", false}, {4, "tx", false}, true, SAME, true},
    };
    for (const Case &c : cases) {
        CH_ChannelRef a(c.a.id, c.a.name, c.a.track), b(c.b.id, c.b.name, c.b.track);
        SCOPED_TRACE(std::string(c.a.name) + " vs " + c.b.name);
        EXPECT_EQ(a == b, c.equal);
        EXPECT_EQ(b == a, c.equal);
        EXPECT_EQ(a != b, !c.equal);
        EXPECT_EQ(a < b, c.order == LESS);
        EXPECT_EQ(a > b, c.order == MORE);
        EXPECT_EQ(b < a, c.order == MORE);
        EXPECT_EQ(b > a, c.order == LESS);
        EXPECT_EQ(a.hash() == b.hash(), c.sameHash);
    }
}

TEST(CH_ChannelRef, OrderingByIdThenUnsignedNameBytes)
{
    // Each row: a is strictly before b.
    const std::pair<Ref, Ref> rows[] = {
        {{-1, "z", false}, {0, "a", false}},               // signed ids: -1 first
        {{-(1 << 29), "z", false}, {(1 << 29) - 1, "a", false}},
        {{(1 << 29), "a", false}, {0, "a", false}},        // wraps to the most negative id
        {{0, "zzz", true}, {1, "", false}},                // id decides before the name
        {{3, "", false}, {3, "a", false}},                 // empty name first
        {{3, "ab", false}, {3, "abc", false}},             // a prefix is smaller
        {{3, "abc", false}, {3, "abd", false}},
        {{3, "Z", false}, {3, "a", false}},
        {{3, "z", false}, {3, "\x80", false}},             // high bytes after ASCII
        {{3, "\x7f", false}, {3, "\xff", false}},
        {{3, "\xe9t", false}, {3, "\xe9\xe9", false}},
        {{3, "abc\x7f", false}, {3, "abc\x80", false}},
        {{3, "abc\xff", true}, {3, "abd", false}},
    };
    for (const auto &row : rows) {
        CH_ChannelRef a(row.first.id, row.first.name, row.first.track);
        CH_ChannelRef b(row.second.id, row.second.name, row.second.track);
        SCOPED_TRACE(std::to_string(row.first.id) + " " + row.first.name + " / " +
                     std::to_string(row.second.id) + " " + row.second.name);
        EXPECT_TRUE(a < b);
        EXPECT_TRUE(b > a);
        EXPECT_FALSE(b < a);
        EXPECT_FALSE(a > b);
        EXPECT_FALSE(a == b);
    }
}

std::string randomName(std::mt19937 &rng)
{
    // Few distinct bytes and short names, so that shared prefixes, equal
    // names and bytes on both sides of 0x80 all come up often.
    static const char alphabet[] = {'a', 'b', 'Z', '/', '\x7f', '\x80', '\xe9', '\xff'};
    std::uniform_int_distribution<int> length(0, 4), pick(0, sizeof(alphabet) - 1);
    std::string s(length(rng), ' ');
    for (char &c : s)
        c = alphabet[pick(rng)];
    return s;
}

TEST(CH_ChannelRef, OrderingMatchesIdThenByteStringOrder)
{
    std::mt19937 rng(2024);
    std::uniform_int_distribution<int> smallId(-2, 2);
    std::vector<std::pair<int, std::string>> model;
    std::vector<CH_ChannelRef> refs;
    for (int i = 0; i < 300; ++i) {
        model.emplace_back(smallId(rng), randomName(rng));
        refs.emplace_back(model.back().first, model.back().second.c_str(), (i & 1) != 0);
    }
    // std::string compares through char_traits<char>, which orders bytes as
    // unsigned char: the same order the references promise.
    for (std::size_t i = 0; i < refs.size(); ++i)
        for (std::size_t j = 0; j < refs.size(); ++j) {
            bool less = model[i] < model[j], more = model[j] < model[i];
            ASSERT_EQ(refs[i] < refs[j], less) << i << " " << j;
            ASSERT_EQ(refs[i] > refs[j], more) << i << " " << j;
            // Same id and name means the same interned pointer.
            bool sameName = model[i] == model[j];
            ASSERT_EQ(refs[i] == refs[j], sameName && refs[i].isTrack() == refs[j].isTrack());
        }
}

TEST(CH_ChannelRef, HashOfKnownReferences)
{
    // Worked out separately (unsigned 32-bit, signed name bytes).
    struct Case
    {
        int id;
        const char *name;
        std::uint32_t hash;
    };
    const Case cases[] = {
        {-1, "", 0xee985707u},
        {0, "", 0xac85e9bdu},
        {0, "tx", 0xac85f881u},
        {7, "rz", 0x46a53e7bu},
        {-5, "scale", 0xa5dfac78u},
        {(1 << 29) - 1, "\xe9t\xe9", 0xead6c771u},
        {-(1 << 29), "\xff", 0x690ab37au},
        {123456, "a/b/c", 0xad1b9234u},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(CH_ChannelRef(c.id, c.name, false).hash(), c.hash) << c.id << " " << c.name;
        EXPECT_EQ(CH_ChannelRef(c.id, c.name, true).hash(), c.hash) << c.id << " " << c.name;
        EXPECT_EQ(expectedHash(c.id, c.name), c.hash) << "test helper, " << c.id;
    }
    EXPECT_EQ(CH_ChannelRef().hash(), 0xee985707u);
}

TEST(CH_ChannelRef, HashMatchesPlainRecomputationOverManyReferences)
{
    std::mt19937 rng(77);
    std::uniform_int_distribution<int> anyId(INT_MIN, INT_MAX), coin(0, 1);
    std::uniform_int_distribution<int> anyByte(1, 255), length(0, 24);
    for (int i = 0; i < 5000; ++i) {
        int id = (i % 4 == 0) ? i / 4 - 300 : anyId(rng); // small ids and any ids
        std::string name(length(rng), ' ');
        for (char &c : name)
            c = static_cast<char>(anyByte(rng));
        CH_ChannelRef ref(id, name.c_str(), coin(rng) != 0);
        ASSERT_EQ(ref.hash(), expectedHash(id, name)) << "id " << id << " name length " << name.size();

        // Changing only the id changes the hash as recomputed from scratch.
        int other = anyId(rng);
        ref.setNodeId(other);
        ASSERT_EQ(ref.hash(), expectedHash(other, name)) << "after setNodeId(" << other << ")";
    }
}

} // namespace
