// Scope flags and their announcements, groups, time groups and global
// parameters as the manager keeps them.
#include <ch/io/CH_Collection.h>
#include <ch/manager/CH_Group.h>
#include <ch/manager/CH_Manager.h>
#include <ch/manager/CH_TimeGroup.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <cstring>
#include <vector>

namespace {

// Records what it is told.
class chRecorder : public CH_Collection
{
public:
    using CH_Collection::CH_Collection;
    void setChanged(CH_CHANGE_TYPE type, void *data) override
    {
        events.push_back(type);
        CH_Collection::setChanged(type, data);
    }
    std::vector<int> events;
};

// Paths are "<node id>/<name>"; nodes from 100 up are not exposed.
class chTestManager : public CH_Manager
{
public:
    bool buildChanRef(CH_ChannelRef &ref, const char *path) const override
    {
        const char *slash = path ? std::strchr(path, '/') : nullptr;
        if (!slash)
            return false;
        ref.setChannelRef(std::atoi(path), slash + 1, false);
        return true;
    }
    bool isOwnerExposed(const CH_ChannelRef &ref) const override { return ref.getNodeId() < 100; }
};

class CHManagerScope : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mgr.setContext();
        mgr.setRootCollection(&root);
    }
    std::vector<int> take()
    {
        std::vector<int> e;
        e.swap(root.events);
        return e;
    }
    chTestManager mgr;
    chRecorder root{&mgr};
    CH_ChannelRef a{1, "tx", false}, b{2, "ty", false}, hidden{100, "tz", false};
};

TEST_F(CHManagerScope, FlagsAndTheirAnnouncements)
{
    mgr.scopeChannel(a, true);
    EXPECT_EQ(mgr.getChannelFlags(a), CH_FLAG_SCOPED | CH_FLAG_DISPLAYED);
    EXPECT_EQ(take(), std::vector<int>{CH_SCOPE_CHANGED});

    // Selecting an unscoped channel scopes it; selection goes out as 18.
    mgr.selectChannel(b);
    EXPECT_EQ(mgr.getChannelFlags(b), CH_FLAG_SCOPED | CH_FLAG_SELECTED);
    EXPECT_EQ(take(), (std::vector<int>{CH_SCOPE_CHANGED, CH_SCOPE_PIN_CHANGED}));
    mgr.deselectChannel(CH_ChannelRef(3, "rx", false));
    EXPECT_TRUE(take().empty());
    EXPECT_FALSE(mgr.isChannelScoped("3/rx"));

    // Flags never remove scope; rescoping keeps the other bits.
    mgr.setChannelFlags(b, CH_FLAG_SCOPED, false);
    mgr.scopeChannel(b, true);
    EXPECT_EQ(mgr.getChannelFlags(b), CH_FLAG_SCOPED | CH_FLAG_SELECTED | CH_FLAG_DISPLAYED);
    EXPECT_TRUE(mgr.isChannelSelected("2/ty"));

    // Pinned channels can be neither unscoped nor cleared away.
    UT_RefArray<CH_ChannelRef> pin;
    pin.append(a);
    take();
    mgr.pinChannels(pin);
    EXPECT_EQ(take(), std::vector<int>{CH_SCOPE_SELECTION_CHANGED}); // pin goes out as 17
    EXPECT_TRUE(mgr.scopeChannelInternal(a, false));
    mgr.clearChannelScope();
    EXPECT_TRUE(mgr.isChannelScoped(a));
    EXPECT_FALSE(mgr.isChannelScoped(b));
    take();
    mgr.unpinAllScopedChannels();
    mgr.unpinAllScopedChannels(); // nothing pinned now: silent
    EXPECT_EQ(take(), std::vector<int>{CH_SCOPE_SELECTION_CHANGED});
    mgr.clearDisplayedChannels();
    mgr.clearDisplayedChannels(); // announced even with nothing displayed
    EXPECT_EQ(take(), (std::vector<int>{CH_SCOPE_DISPLAY_CHANGED, CH_SCOPE_DISPLAY_CHANGED}));

    std::ostringstream os;
    CHdisplayFlags(CH_FLAG_SCOPED | CH_FLAG_SELECTED | CH_FLAG_TEMPLATED, os);
    EXPECT_EQ(os.str(), "S  T");
}

TEST_F(CHManagerScope, BlockingReplaysOnceAndSendFalseDefersNothing)
{
    mgr.blockModifyScope(1);
    mgr.blockModifyScope(1);
    mgr.scopeChannel(a, true);
    UT_RefArray<CH_ChannelRef> pin;
    pin.append(b);
    mgr.pinChannels(pin);
    mgr.displayChannel(b);
    mgr.selectChannel(a, false);
    mgr.blockModifyScope(0);
    EXPECT_TRUE(take().empty());
    mgr.blockModifyScope(0);
    EXPECT_EQ(take(), (std::vector<int>{CH_SCOPE_CHANGED, CH_SCOPE_SELECTION_CHANGED,
                                        CH_SCOPE_DISPLAY_CHANGED}));
    mgr.blockModifyScope(0);
    EXPECT_EQ(mgr.getScopeBlockDepth(), 0);
}

TEST_F(CHManagerScope, UnexposedEntriesSkippedByQueriesButChangedByAll)
{
    mgr.scopeChannel(a, true);
    mgr.scopeChannel(hidden, true);
    UT_RefArray<CH_ChannelRef> refs;
    mgr.getScopedChanRefs(refs);
    ASSERT_EQ(refs.entries(), 1);
    EXPECT_EQ(refs(0), a);
    mgr.selectAllScopedChannels();
    EXPECT_TRUE(mgr.getChannelFlags(hidden) & CH_FLAG_SELECTED);
    mgr.clearSelectedChannels();
    EXPECT_FALSE(mgr.getChannelFlags(a) & CH_FLAG_SELECTED);
    EXPECT_TRUE(mgr.getChannelFlags(hidden) & CH_FLAG_SELECTED);

    // The track flag takes no part in the key.
    EXPECT_TRUE(mgr.isChannelScoped(CH_ChannelRef(1, "tx", true)));
    mgr.unscopeChannelsWithNodeId(1, false);
    EXPECT_EQ(mgr.getNumScopedChanRefs(), 1);
}

TEST_F(CHManagerScope, GroupStatusFollowsScopeFlags)
{
    CH_Group *top = mgr.getTopGroup();
    ASSERT_TRUE(top && top->isRoot());
    EXPECT_EQ(mgr.getScopeBlockDepth(), 0);
    EXPECT_EQ(mgr.findGroup("a/b"), nullptr);
    CH_Group *ab = mgr.findGroup("a/b", true);
    ASSERT_NE(ab, nullptr);
    EXPECT_EQ(mgr.findGroup("//a//b/"), ab);
    UT_String path;
    ab->getFullPath(path);
    EXPECT_EQ(path, "a/b");
    EXPECT_TRUE(top->isEventualParentOf(ab));
    EXPECT_EQ(top->getScopeFlags(31), 0u); // empty groups report nothing

    UT_String name("my group/1"), gpath("a/b c"), empty;
    EXPECT_TRUE(CH_Manager::makeGroupNameValid(name));
    EXPECT_EQ(name, "my_group_1");
    EXPECT_TRUE(CH_Manager::makeGroupPathValid(gpath));
    EXPECT_EQ(gpath, "a/b_c");
    EXPECT_TRUE(CH_Manager::makeGroupNameValid(empty));
    EXPECT_EQ(empty, "group");

    EXPECT_EQ(mgr.getCurrentGroup(), top);
    mgr.updateCurrentGroup(ab, nullptr);
    mgr.updateCurrentGroup(ab, nullptr);
    EXPECT_EQ(mgr.getCurrentGroup(), ab);
    EXPECT_EQ(take(), std::vector<int>{CH_GROUP_CURCHANGED});
}

TEST_F(CHManagerScope, TimeGroupNamesStayUnique)
{
    mgr.addTimeGroup(new CH_TimeGroup("walk", 1.0f));
    mgr.addTimeGroup(new CH_TimeGroup("walk", 2.0f));
    mgr.addTimeGroup(new CH_TimeGroup("jump", 0.0f));
    ASSERT_EQ(mgr.getTimeGroups().entries(), 3);
    EXPECT_STREQ(mgr.getTimeGroups()(0)->getName(), "jump"); // sorted by name
    EXPECT_STREQ(mgr.getTimeGroups()(2)->getName(), "walk1");
    mgr.renameTimeGroup(mgr.getTimeGroup("jump"), "walk");
    EXPECT_NE(mgr.getTimeGroup("walk2"), nullptr);
    mgr.renameTimeGroup(mgr.getTimeGroup("walk2"), "run", true); // forced: numbered
    EXPECT_NE(mgr.getTimeGroup("run1"), nullptr);
    EXPECT_EQ(mgr.getTimeGroupIdx("nothing"), -1);
    mgr.destroyTimeGroup(-1);
    mgr.destroyTimeGroup(mgr.getTimeGroup("run1"));
    EXPECT_EQ(mgr.getTimeGroups().entries(), 2);
}

TEST_F(CHManagerScope, GlobalParamsPublishUpTheChainAndNotifyReaders)
{
    chRecorder parent(&mgr, &root, "obj"), child(&mgr, &parent, "geo"), reader(&mgr, &root, "cam");
    float v = 0;
    EXPECT_EQ(mgr.setGlobalFloatParam("scale", 2.0f, nullptr), -1);
    EXPECT_EQ(mgr.setGlobalFloatParam("scale", 2.0f, &child), 1);
    EXPECT_EQ(mgr.setGlobalFloatParam("scale", 2.0f, &child), 0);

    // The reader finds the value published at the root, and depends on it.
    mgr.setEvalCollection(&reader, 0);
    mgr.getGlobalParamF("scale", &reader, v, 7.0f, 0, true);
    EXPECT_EQ(v, 2.0f);
    mgr.getGlobalParamF("missing", &reader, v, 7.0f, 0, false);
    EXPECT_EQ(v, 7.0f);
    mgr.setEvalCollection(nullptr, 0);
    reader.events.clear();
    EXPECT_EQ(mgr.setGlobalFloatParam("scale", 3.0f, &child), 1);
    EXPECT_EQ(reader.events, std::vector<int>{CH_CHANNELS_MAJOR_CHANGE});

    UT_String s;
    mgr.getGlobalParamS("label", &child, s, "none", 0, false);
    EXPECT_EQ(s, "none");
    mgr.removeGlobalParamOwner(&root);
    mgr.getGlobalParamF("scale", &reader, v, 5.0f, 0, false);
    EXPECT_EQ(v, 5.0f);
}

} // namespace
