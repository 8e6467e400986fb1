// Collections: the name and alias tables against a plain model, paths,
// patterns, ranges, the language switch and the tables of variables.
#include <ch/channel/CH_Channel.h>
#include <ch/channel/CH_Segment.h>
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Manager.h>

#include <ev/EV_Engine.h>
#include <ut/UT_EnvControl.h>

#include <support/chTestChannelBuilder.h>

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

// Resolves collection paths from a map, refuses edits on request and
// records its change events.
class chPathCollection : public CH_Collection
{
public:
    using CH_Collection::CH_Collection;
    CH_Collection *findCollection(const char *path) const override
    {
        auto it = paths.find(path ? path : "");
        return it == paths.end() ? CH_Collection::findCollection(path) : it->second;
    }
    int canAccessChannel(unsigned mask, const CH_Channel *c) const override
    {
        asked.push_back(mask);
        return refuse ? 0 : CH_Collection::canAccessChannel(mask, c);
    }
    void setChanged(CH_CHANGE_TYPE type, void *data) override
    {
        events.emplace_back(type, data);
        CH_Collection::setChanged(type, data);
    }
    std::map<std::string, CH_Collection *> paths;
    bool refuse = false;
    mutable std::vector<unsigned> asked;
    std::vector<std::pair<int, void *>> events;
};

class CHCollection : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mgr.setContext();
        mgr.setRootCollection(&root);
        for (chPathCollection *c : {&a, &b}) {
            c->paths["/obj/a"] = &a;
            c->paths["/obj/b"] = &b;
        }
    }
    CH_Manager mgr;
    chPathCollection root{&mgr};
    chPathCollection a{&mgr, &root, "a"};
    chPathCollection b{&mgr, &root, "b"};
};

// What the tables must say: every name and alias to its channel.
struct chModel
{
    std::map<std::string, CH_Channel *> names;
    std::map<CH_Channel *, std::string> aliases;

    CH_Channel *holder(const std::string &n) const
    {
        auto it = names.find(n);
        if (it != names.end())
            return it->second;
        for (const auto &e : aliases)
            if (e.second == n)
                return e.first;
        return nullptr;
    }
    bool freeFor(const std::string &n, CH_Channel *c) const
    {
        CH_Channel *h = holder(n);
        return !h || h == c;
    }
    void erase(CH_Channel *c)
    {
        names.erase(c->getName());
        aliases.erase(c);
    }
};

bool chValid(const std::string &n)
{
    for (unsigned char ch : n)
        if (!(std::isalnum(ch) && ch < 128) && ch != '-' && ch != '_' && ch != ':')
            return false;
    return true;
}

TEST_F(CHCollection, RandomEditsKeepTheTablesInAgreementWithAModel)
{
    const std::vector<std::string> pool = {"tx", "ty", "tz", "rx", "a_b", "n-1", "k:2", "", "bad name",
                                           "caf\xc3\xa9", "x/y", "tx ", "LongChannelName_0123456789"};
    chModel model[2];
    chPathCollection *coll[2] = {&a, &b};
    std::mt19937 rng(1234);
    auto pick = [&](const std::vector<std::string> &v) { return v[rng() % v.size()]; };
    auto anyChannel = [&](int k) -> CH_Channel * {
        int n = coll[k]->getChannelCount();
        return n ? coll[k]->getChannel(static_cast<int>(rng() % n)) : nullptr;
    };
    for (int step = 0; step < 4000; ++step) {
        const int k = rng() % 2;
        chPathCollection &c = *coll[k];
        chModel &m = model[k];
        c.refuse = rng() % 6 == 0;
        const std::string n1 = pick(pool), n2 = pick(pool);
        switch (rng() % 7) {
        case 0: { // add
            CH_Channel *held = m.holder(n1);
            CH_Channel *got = c.addChannel(n1.c_str());
            if (!chValid(n1))
                EXPECT_EQ(got, nullptr) << n1;
            else if (held)
                EXPECT_EQ(got, held) << n1;
            else {
                ASSERT_NE(got, nullptr) << n1;
                m.names[n1] = got;
            }
            break;
        }
        case 1: { // duplicate a channel of the other collection
            CH_Channel *from = anyChannel(1 - k);
            if (!from)
                break;
            const bool taken = m.holder(from->getName()) ||
                               (from->hasAlias() && m.holder(from->getAlias()));
            CH_Channel *got = c.dupChannel(*from);
            if (taken) {
                EXPECT_EQ(got, nullptr);
            } else {
                ASSERT_NE(got, nullptr);
                EXPECT_EQ(got->getCollection(), &c);
                m.names[got->getName()] = got;
                if (got->hasAlias())
                    m.aliases[got] = got->getAlias();
            }
            break;
        }
        case 2: { // rename, with or without an alias
            CH_Channel *ch = anyChannel(k);
            if (!ch)
                break;
            const std::string alias = rng() % 2 ? n2 : std::string();
            const bool aliased = !alias.empty() && alias != n1;
            const bool ok = !c.refuse && chValid(n1) && m.freeFor(n1, ch) &&
                            (!aliased || (chValid(alias) && m.freeFor(alias, ch)));
            const std::string old = ch->getName();
            EXPECT_EQ(c.rename(old.c_str(), n1.c_str(), alias.c_str()), ok ? 1 : 0) << n1 << "|" << alias;
            if (ok) {
                m.names.erase(old);
                m.aliases.erase(ch);
                m.names[n1] = ch;
                if (aliased)
                    m.aliases[ch] = alias;
            }
            break;
        }
        case 3: { // alias
            CH_Channel *ch = anyChannel(k);
            if (!ch)
                break;
            const bool none = n1.empty() || n1 == ch->getName();
            const bool ok = !c.refuse && (none || (chValid(n1) && m.freeFor(n1, ch)));
            EXPECT_EQ(c.setChannelAlias(*ch, n1.c_str()), ok) << n1;
            if (ok && none)
                m.aliases.erase(ch);
            else if (ok)
                m.aliases[ch] = n1;
            break;
        }
        case 4: { // delete, by name (or alias), pointer or index
            CH_Channel *ch = anyChannel(k);
            if (!ch)
                break;
            m.erase(ch);
            switch (rng() % 3) {
            case 0: c.deleteChannel(rng() % 2 && ch->hasAlias() ? ch->getAlias() : ch->getName()); break;
            case 1: c.deleteChannel(ch); break;
            default: c.deleteChannel(static_cast<unsigned>(c.getChannels().find(ch))); break;
            }
            break;
        }
        default: // lookups only
            break;
        }
        // The tables agree with the model, by name, by alias and by path.
        for (const std::string &n : pool) {
            ASSERT_EQ(c.getChannel(n.c_str()), m.holder(n)) << "step " << step << " name '" << n << "'";
            std::string path = std::string(k ? "/obj/b/" : "/obj/a/") + n;
            ASSERT_EQ(a.findChannel(path.c_str()), m.holder(n)) << path;
        }
        ASSERT_EQ(c.getChannelCount(), static_cast<int>(m.names.size()));
        for (CH_Channel *ch : c.getChannels()) {
            ASSERT_EQ(m.names.count(ch->getName()), 1u);
            auto al = m.aliases.find(ch);
            ASSERT_EQ(ch->hasAlias(), al != m.aliases.end());
            if (ch->hasAlias())
                ASSERT_EQ(al->second, ch->getAlias());
        }
    }
    // Every refused edit asked with the edit mask.
    for (unsigned mask : a.asked)
        EXPECT_EQ(mask, 0x92u);
}

TEST_F(CHCollection, AddingAnnouncesOnceAndDeletingRemovesNameAndAlias)
{
    CH_Channel *tx = a.addChannel("tx");
    EXPECT_EQ(a.addChannel("tx"), tx);
    EXPECT_EQ(a.events.size(), 1u); // the second add raised nothing
    CH_Channel *empty = a.addChannel("");
    ASSERT_NE(empty, nullptr); // the empty name is valid
    EXPECT_EQ(a.addChannel("t x"), nullptr);
    EXPECT_EQ(a.addChannel(static_cast<const char *>(nullptr)), nullptr);
    EXPECT_EQ(a.addChannel(static_cast<CH_Channel *>(nullptr)), nullptr);
    EXPECT_EQ(a.getChannel(static_cast<const char *>(nullptr)), nullptr);
    ASSERT_TRUE(a.setChannelAlias(*tx, "translateX"));
    EXPECT_EQ(a.getChannel("translateX"), tx);
    EXPECT_EQ(a.addChannel("translateX"), tx); // an alias is taken too
    UT_String path;
    a.getFullPath(tx, path, true);
    EXPECT_STREQ(path, "/a/translateX");
    a.getFullPath(tx, path, false);
    EXPECT_STREQ(path, "/a/tx");
    a.events.clear();
    a.deleteChannel("translateX");
    ASSERT_EQ(a.events.size(), 1u);
    EXPECT_EQ(a.events[0], std::make_pair(int(CH_CHANNELS_DELETED), static_cast<void *>(tx)));
    EXPECT_EQ(a.getChannel("tx"), nullptr);
    EXPECT_EQ(a.getChannel("translateX"), nullptr);
    EXPECT_NE(a.addChannel("translateX"), nullptr); // both names free again
}

TEST_F(CHCollection, AdoptingAndDuplicatingByPath)
{
    CH_Channel *src = a.addChannel("ry");
    chTestChannelBuilder::build(*src, {{0, 1}, {1, 5}});
    CH_Channel *copy = b.dupChannel("/obj/a/ry");
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->getCollection(), &b);
    EXPECT_EQ(b.evaluate(copy, 0.5f, false, 0), a.evaluate(src, 0.5f, false, 0));
    EXPECT_EQ(b.dupChannel("/obj/a/ry"), nullptr);   // the name is taken in b
    EXPECT_EQ(b.dupChannel("/nowhere/ry"), nullptr); // no such collection
    // A channel still listed elsewhere is not adopted; a free one is.
    EXPECT_EQ(b.addChannel(src), nullptr);
    auto *loose = new CH_Channel(&a, "loose");
    EXPECT_EQ(b.addChannel(loose), loose);
    EXPECT_EQ(loose->getCollection(), &b);
    EXPECT_EQ(b.findChannel("loose"), loose);
    // findOrCreateChannel creates in the collection the path names.
    CH_Channel *made = a.findOrCreateChannel("/obj/b/made");
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->getCollection(), &b);
    EXPECT_EQ(a.findOrCreateChannel("/obj/b/made"), made);
    EXPECT_EQ(a.findOrCreateChannel("/nowhere/made"), nullptr);
}

TEST_F(CHCollection, PatternsVisitInOrderOrReversedAndGroupsNeverMatchNames)
{
    for (const char *n : {"tx", "ty", "rx", "group1"})
        a.addChannel(n);
    auto names = [&](const char *pattern) {
        UT_PtrArray<CH_Channel *> found;
        int n = a.getChannels(found, pattern);
        std::string s;
        for (CH_Channel *c : found)
            s += std::string(c->getName()) + " ";
        EXPECT_EQ(n, found.entries());
        return s;
    };
    EXPECT_EQ(names("t*"), "tx ty ");
    EXPECT_EQ(names("rx, t?"), "tx ty rx ");
    UT_EnvControl::setInt(UT_EnvControl::REVERSE_CHANNEL_SEARCH, 1);
    EXPECT_EQ(names("*x"), "rx tx ");
    UT_EnvControl::setInt(UT_EnvControl::REVERSE_CHANNEL_SEARCH, 0);
    EXPECT_EQ(names("*x"), "tx rx ");
    EXPECT_EQ(names("@group1"), ""); // a group pattern, not a channel name
    int calls = 0;
    EXPECT_EQ(a.channelFind("/a/t*", [](CH_Channel *, void *d) { ++*static_cast<int *>(d); }, &calls), 2);
    EXPECT_EQ(calls, 2);
}

TEST_F(CHCollection, RangeSkipsSingleConstantKeysAndEvaluatesEveryChannel)
{
    CH_Channel *moving = a.addChannel("moving");
    chTestChannelBuilder::build(*moving, {{1, 0}, {3, 2}});
    CH_Channel *held = a.addChannel("held");
    chTestChannelBuilder::build(*held, {{10, 7, 0, 0, "constant()"}}); // one constant key: no range
    float start = -1, end = -1;
    bool td = true;
    EXPECT_TRUE(a.getCollectionRange(start, end, td, 0));
    EXPECT_EQ(start, 1.0f);
    EXPECT_EQ(end, 3.0f);
    EXPECT_TRUE(td); // the linear channel reads time
    CH_Channel *late = a.addChannel("late");
    chTestChannelBuilder::build(*late, {{2, 0, 0, 0, "1"}, {8, 1}}); // two keys: counts
    EXPECT_TRUE(a.getCollectionRange(start, end, td, 0));
    EXPECT_EQ(start, 1.0f);
    EXPECT_EQ(end, 8.0f);
    chPathCollection only{&mgr, &root, "only"};
    chTestChannelBuilder::build(*only.addChannel("c"), {{4, 1, 0, 0, "constant()"}});
    EXPECT_FALSE(only.getCollectionRange(start, end, td, 0));
    EXPECT_FALSE(td);
}

TEST_F(CHCollection, LanguageSwitchesOnlyAnimationFunctionSegments)
{
    mgr.setDefaultExprLanguage(CH_PYTHON);
    chPathCollection fresh{&mgr, &root, "fresh"};
    EXPECT_EQ(fresh.getExprLanguage(), CH_PYTHON); // starts as the manager's default
    mgr.setDefaultExprLanguage(CH_ORVISH);
    CH_Channel *c = a.addChannel("c");
    chTestChannelBuilder::build(*c, {{0, 0}, {1, 1, 0, 0, "$F * 2"}, {2, 0, 0, 0, "easep(0.3)"}, {3, 0}});
    a.setExprLanguage(CH_PYTHON);
    EXPECT_EQ(a.getExprLanguage(), CH_PYTHON);
    EXPECT_EQ(c->getSegment(0u)->getExprLanguage(), CH_PYTHON);
    EXPECT_EQ(c->getSegment(1u)->getExprLanguage(), CH_ORVISH);
    EXPECT_EQ(c->getSegment(2u)->getExprLanguage(), CH_ORVISH); // a call with arguments is not one
    a.setExprLanguage(CH_ORVISH);
    EXPECT_EQ(c->getSegment(0u)->getExprLanguage(), CH_ORVISH);
}

// Variables a host adds: answered by its subclass, found after the
// collection's own, in the order added.
class chVariableCollection : public chPathCollection
{
public:
    using chPathCollection::chPathCollection;
    float getVariableValue(int table, int id, int thread) override
    {
        if (table >= 2)
            return static_cast<float>(table * 100 + id);
        return CH_Collection::getVariableValue(table, id, thread);
    }
    using CH_Collection::getVariableValue;
};

TEST_F(CHCollection, AddedVariableTablesComeAfterTheOwnInOrder)
{
    static const CH_LocalVariable first[] = {{"SIZE", 1, 0}, {"IV", 9, 0}, {nullptr, 0, 0}};
    static const CH_LocalVariable second[] = {{"SIZE", 2, 0}, {"DEPTH", 3, 0}, {nullptr, 0, 0}};
    chVariableCollection node{&mgr, &root, "node"};
    CH_Channel *c = node.addChannel("c");
    chTestChannelBuilder::build(*c, {{0, 4, 0, 0, "$DEPTH + $SIZE"}, {1, 4}});
    EXPECT_EQ(node.evaluate(c, 0.5f, false, 0), 0.0f); // unknown names yet
    ev_SetErrNo(0, 0);
    node.addLocalVariables(first);
    node.addDynamicVariables(second);
    int table;
    const CH_LocalVariable *v;
    bool dynamic;
    ASSERT_TRUE(node.resolveVariable("IV", table, v, dynamic));
    EXPECT_EQ(table, 1); // the own table first
    ASSERT_TRUE(node.resolveVariable("SIZE", table, v, dynamic));
    EXPECT_EQ(table, 2);
    EXPECT_FALSE(dynamic);
    ASSERT_TRUE(node.resolveVariable("DEPTH", table, v, dynamic));
    EXPECT_EQ(table, 3);
    EXPECT_TRUE(dynamic);
    EXPECT_FALSE(node.resolveVariable("F", table, v, dynamic)); // a global
    // The compiled text looks its names up again: 303 + 201.
    EXPECT_EQ(node.evaluate(c, 0.5f, false, 0), 504.0f);
    EXPECT_TRUE(c->isTimeDependent()); // a dynamic variable was read
}

TEST_F(CHCollection, IdsRootsAndTheBaseFindCollection)
{
    EXPECT_NE(a.getUniqueId(), b.getUniqueId());
    EXPECT_EQ(a.getRoot(), &root);
    EXPECT_EQ(root.getRoot(), &root);
    CH_Collection plain(&mgr, &a, "plain");
    EXPECT_EQ(plain.findCollection(".."), &a);
    EXPECT_EQ(plain.findCollection("."), &plain);
    EXPECT_EQ(plain.findCollection("/obj/a"), nullptr);
    EXPECT_EQ(plain.castToOPChannels(), nullptr);
    EXPECT_EQ(plain.getXformOrder(), UT_XformOrder(UT_XformOrder::XYZ));
}

} // namespace
