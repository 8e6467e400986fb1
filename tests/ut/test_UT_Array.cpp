#include <ut/UT_FloatArray.h>
#include <ut/UT_IntArray.h>
#include <ut/UT_PtrArray.h>
#include <ut/UT_RefArray.h>
#include <ut/UT_StringArray.h>
#include <ut/UT_SymbolTable.h>
#include <ut/UT_Vector3.h>
#include <ut/UT_WorkBuffer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

std::vector<int> contents(const UT_IntArray &a) { return a.toStdVector(); }

TEST(UT_Array, MoveMatchesEraseThenInsertEverywhere)
{
    // Ground truth: moving = erase at 'from', insert at 'to'.
    for (int from = 0; from < 6; ++from) {
        for (int to = 0; to < 6; ++to) {
            UT_IntArray a{0, 1, 2, 3, 4, 5};
            std::vector<int> expect{0, 1, 2, 3, 4, 5};
            int v = expect[from];
            expect.erase(expect.begin() + from);
            expect.insert(expect.begin() + to, v);
            ASSERT_TRUE(a.move(from, to));
            EXPECT_EQ(contents(a), expect) << from << " -> " << to;
        }
    }
    UT_IntArray a{1, 2};
    EXPECT_FALSE(a.move(0, 2));
    EXPECT_FALSE(a.move(-1, 0));
    EXPECT_EQ(contents(a), (std::vector<int>{1, 2}));
}

TEST(UT_Array, EditingCallsRejectBadIndicesWithoutChange)
{
    UT_IntArray a{1, 2, 3};
    EXPECT_EQ(a.insert(9, 4), -1);
    EXPECT_EQ(a.insert(9, -1), -1);
    EXPECT_EQ(a.removeIndex(3), -1);
    EXPECT_EQ(a.remove(42), -1);
    EXPECT_EQ(contents(a), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(a.insert(9, 3), 3); // at the end is an append
    EXPECT_EQ(a.remove(2), 1);
    EXPECT_EQ(contents(a), (std::vector<int>{1, 3, 9}));
    EXPECT_EQ(a.find(9, 1), 2);
    EXPECT_EQ(a.find(1, 1), -1);
}

TEST(UT_Array, UniqueSortedInsertKeepsSortedSetOfPointers)
{
    int cells[64];
    std::vector<int *> pointers;
    for (int &c : cells)
        pointers.push_back(&c);
    std::mt19937 rng(7);
    UT_PtrArray<int *> set;
    for (int i = 0; i < 500; ++i) {
        int *p = pointers[rng() % pointers.size()];
        int at = set.uniqueSortedInsert(p);
        ASSERT_EQ(set(at), p);
    }
    EXPECT_TRUE(std::is_sorted(set.begin(), set.end(), std::less<int *>()));
    EXPECT_EQ(std::adjacent_find(set.begin(), set.end()), set.end());
    for (int *p : set)
        EXPECT_EQ(set(set.sortedFind(p)), p);
    EXPECT_EQ(set.sortedFind(nullptr), -1);
}

TEST(UT_Array, QsortStyleSortIsStable)
{
    struct Item { int key; int order; bool operator==(const Item &o) const { return key == o.key && order == o.order; } };
    UT_RefArray<Item> items;
    for (int i = 0; i < 40; ++i)
        items.append(Item{(i * 7) % 5, i});
    items.sort([](const Item *a, const Item *b) { return a->key - b->key; });
    for (int i = 1; i < items.entries(); ++i) {
        ASSERT_LE(items(i - 1).key, items(i).key);
        if (items(i - 1).key == items(i).key) {
            EXPECT_LT(items(i - 1).order, items(i).order);
        }
    }
}

TEST(UT_Array, StringArrayOwnsItsTexts)
{
    UT_StringArray names;
    {
        std::string temporary = "tz";
        names.append(temporary.c_str());
        temporary[1] = 'x';
        names.append(temporary.c_str());
    }
    names.append("ry");
    names.sort();
    EXPECT_STREQ(names(0).buffer(), "ry");
    EXPECT_EQ(names.find("tz"), 2);
    EXPECT_EQ(names.find("nope"), -1);
}

TEST(UT_SymbolTable, CaseSensitiveLookupRenameAndTraversal)
{
    int a = 1, b = 2;
    UT_SymbolTable<int *> table;
    table.addSymbol("tx", &a);
    table.addSymbol("TX", &b);
    EXPECT_EQ(table.findSymbol("tx"), &a);
    EXPECT_EQ(table.findSymbol("TX"), &b);
    EXPECT_EQ(table.findSymbol("Tx"), nullptr);
    EXPECT_FALSE(table.renameSymbol("tx", "TX")); // taken
    EXPECT_TRUE(table.renameSymbol("tx", "ty"));
    EXPECT_EQ(table.findSymbol("tx"), nullptr);
    EXPECT_EQ(table.findSymbol("ty"), &a);
    int sum = 0;
    table.traverse([&](const char *, int *p) { sum += *p; });
    EXPECT_EQ(sum, 3);
    EXPECT_TRUE(table.deleteSymbol("ty"));
    EXPECT_FALSE(table.deleteSymbol("ty"));
    EXPECT_EQ(table.entries(), 1);
}

TEST(UT_Vector3, CrossIsOrthogonalAndNormalizeHandlesZero)
{
    UT_Vector3 x(1, 0, 0), y(0, 1, 0);
    EXPECT_EQ(x.cross(y), UT_Vector3(0, 0, 1));
    UT_Vector3 u(1, 2, 3), v(-4, 0.5f, 2);
    UT_Vector3 w = u.cross(v);
    EXPECT_FLOAT_EQ(w.dot(u), 0.0f);
    EXPECT_FLOAT_EQ(w.dot(v), 0.0f);
    UT_Vector3 zero;
    EXPECT_EQ(zero.normalize(), 0.0f);
    EXPECT_EQ(zero, UT_Vector3());
    UT_Vector3 n(3, 0, 4);
    EXPECT_FLOAT_EQ(n.normalize(), 5.0f);
    EXPECT_FLOAT_EQ(n.length(), 1.0f);
}

TEST(UT_WorkBuffer, FormattingNeverTruncates)
{
    std::string big(5000, 'q');
    UT_WorkBuffer buf;
    EXPECT_EQ(buf.sprintf("<%s>", big.c_str()), 5002);
    EXPECT_EQ(buf.appendSprintf("%d", 42), 2);
    EXPECT_EQ(buf.toStdString(), "<" + big + ">42");
    buf.backup(3);
    EXPECT_EQ(buf.length(), 5001u);
    buf.backup(1u << 20);
    EXPECT_TRUE(buf.isEmpty());
}

} // namespace
