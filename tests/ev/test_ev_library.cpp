#include <ev/EV_Engine.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace {

const double thePi = std::acos(-1.0);
const double theNaN = std::numeric_limits<double>::quiet_NaN();

struct Val
{
    EV_SYMBOL sym;
    Val(double f) { sym.type = EV_TYPEFLOAT, sym.fval = f; }
    Val(int i) : Val(static_cast<double>(i)) {}
    Val(const char *s) { sym.type = EV_TYPESTRING, sym.sval = s; }
};

struct Out { double f; std::string s; int err; };

// Calls a registered function the way the engine does. argv is a heap
// array of exactly the declared size, so that a callback reading past its
// arguments trips AddressSanitizer. Unset results show as NaN / "<unset>".
Out call(const char *name, std::vector<Val> args)
{
    ev_InitFloat();
    ev_InitString();
    EV_FUNCTION *rec = ev_FindFunction(name);
    if (!rec || rec->getNArgs() != static_cast<int>(args.size())) {
        ADD_FAILURE() << name << ": not registered with " << args.size() << " arguments";
        return {theNaN, "<missing>", -1};
    }
    std::vector<EV_SYMBOL *> argv(args.size());
    for (std::size_t i = 0; i < args.size(); ++i) {
        EXPECT_EQ(args[i].sym.type, rec->getArgType(static_cast<int>(i))) << name << " arg " << i;
        argv[i] = &args[i].sym;
    }
    std::string store = "<unset>";
    EV_SYMBOL r;
    r.type = rec->getResultType(), r.fval = theNaN, r.sval = store.c_str(), r.storage = &store;
    ev_SetErrNo(0, 0);
    rec->getEvaluate()(rec, &r, argv.data(), 0);
    return {r.fval, r.getString(), ev_GetErrNo(0)};
}

// A call and its expected result, a number or a text.
struct Row { const char *name; std::vector<Val> args; Val want; };

void expectRows(const std::vector<Row> &rows)
{
    for (const Row &row : rows) {
        Out o = call(row.name, row.args);
        const double f = row.want.sym.fval;
        if (row.want.sym.type == EV_TYPESTRING)
            EXPECT_EQ(o.s, row.want.sym.sval) << row.name;
        else
            EXPECT_NEAR(o.f, f, 1e-12 * std::max(1.0, std::fabs(f))) << row.name;
        EXPECT_EQ(o.err, 0) << row.name;
    }
}

TEST(EvLibrary, EveryRecordIsDeclaredAsDocumented)
{
    // names sharing a signature: argument types (F float, S string), result
    const struct { const char *names, *args; char result; } groups[] = {
        {"abs sign floor ceil int frac round sqrt exp log log10 sin cos tan asin acos atan sinh cosh "
         "tanh deg rad rand", "F", 'F'},
        {"min max pow atan2 hypot", "FF", 'F'}, {"clamp fit01 fit10 fit11 lerp smooth if", "FFF", 'F'},
        {"fit", "FFFFF", 'F'}, {"strlen argc atof", "S", 'F'}, {"strcmp strmatch strindex", "SS", 'F'},
        {"upcase downcase", "S", 'S'}, {"strcat", "SS", 'S'}, {"substr", "SFF", 'S'}, {"ftoa", "F", 'S'},
        {"padzero", "FF", 'S'}, {"arg sprintf", "SF", 'S'}, {"strreplace", "SSS", 'S'},
    };
    int count = 0;
    for (const auto &group : groups) {
        std::istringstream names(group.names);
        for (std::string name; names >> name; ++count) {
            std::vector<Val> args;
            for (const char *t = group.args; *t; ++t)
                args.push_back(*t == 'S' ? Val("1") : Val(1.0));
            call(name.c_str(), args); // checks count and types, and runs it under ASan
            EV_FUNCTION *rec = ev_FindFunction(name.c_str());
            ASSERT_NE(rec, nullptr) << name;
            EXPECT_EQ(rec->getResultType(), group.result == 'S' ? EV_TYPESTRING : EV_TYPEFLOAT) << name;
            EXPECT_EQ(rec->getUserFlags(), 0u) << name;
            EXPECT_TRUE(rec->isDeterministic()) << name;
        }
    }
    EXPECT_EQ(count, 51);
}

TEST(EvLibrary, BadArgumentsGiveErrorFourAndAnEmptyResult)
{
    const double inf = std::numeric_limits<double>::infinity();
    const struct { const char *name; std::vector<Val> args; } rows[] = {
        {"sqrt", {-1}}, {"sqrt", {theNaN}}, {"log", {0}}, {"log", {-1}}, {"log10", {0}}, {"asin", {1.0001}},
        {"acos", {-2}}, {"pow", {-8, 1.0 / 3}}, {"tan", {90}}, {"tan", {-270}}, {"padzero", {3, inf}},
        {"padzero", {3, theNaN}},
        // sprintf wants exactly one d, i, f, e, g, E or G field
        {"sprintf", {"", 1}}, {"sprintf", {"abc", 1}}, {"sprintf", {"%%", 1}}, {"sprintf", {"%d %d", 1}},
        {"sprintf", {"%s", 1}}, {"sprintf", {"%n", 1}}, {"sprintf", {"%*d", 1}}, {"sprintf", {"%.*f", 1}},
        {"sprintf", {"%x", 1}}, {"sprintf", {"%ld", 1}}, {"sprintf", {"%", 1}}, {"sprintf", {"%5", 1}},
        {"sprintf", {"%F", 1}},
    };
    for (const auto &row : rows) {
        Out o = call(row.name, row.args);
        const std::string what = std::string(row.name) + " " + row.args[0].sym.getString();
        EXPECT_EQ(o.err, EV_ERRBADARG) << what;
        const EV_FUNCTION *rec = ev_FindFunction(row.name);
        EXPECT_TRUE(rec && (rec->getResultType() == EV_TYPESTRING ? o.s.empty() : o.f == 0)) << what;
    }
}

TEST(EvLibraryFloat, AgreesWithStandardMath)
{
    const double r = thePi / 180.0;
    expectRows({
        {"abs", {-2.5}, 2.5}, {"min", {3, -1}, -1}, {"max", {3, -1}, 3}, {"floor", {-1.5}, -2},
        {"ceil", {-1.5}, -1}, {"sqrt", {2}, std::sqrt(2.0)}, {"pow", {2, 0.5}, std::sqrt(2.0)},
        {"pow", {-2, 3}, -8}, {"exp", {1.5}, std::exp(1.5)}, {"log", {10}, std::log(10.0)},
        {"log10", {1000}, 3}, {"hypot", {3, 4}, 5}, {"sinh", {0.7}, std::sinh(0.7)},
        {"cosh", {0.7}, std::cosh(0.7)}, {"tanh", {0.7}, std::tanh(0.7)}, {"sin", {30}, std::sin(30 * r)},
        {"cos", {-200}, std::cos(-200 * r)}, {"tan", {10}, std::tan(10 * r)}, {"tan", {-135}, 1},
        {"sin", {1000.5}, std::sin(1000.5 * r)}, {"asin", {0.5}, 30}, {"acos", {-1}, 180}, {"atan", {1}, 45},
        {"atan2", {1, -1}, 135}, {"atan2", {-1, 0}, -90}, {"deg", {thePi}, 180}, {"rad", {90}, thePi / 2},
    });
}

TEST(EvLibraryFloat, EdgeRules)
{
    expectRows({
        {"sign", {0}, 0}, {"sign", {-1e-300}, -1}, {"sign", {7}, 1}, {"int", {-2.7}, -2}, {"int", {2.7}, 2},
        {"frac", {-0.25}, 0.75}, {"frac", {3.5}, 0.5}, {"round", {2.5}, 3}, {"round", {-2.5}, -3},
        {"round", {1.49}, 1}, {"clamp", {5, 0, 3}, 3}, {"clamp", {-1, 0, 3}, 0}, {"clamp", {5, 3, 0}, 3},
        {"clamp", {1, 0, 3}, 1}, {"lerp", {2, 4, 0.5}, 3}, {"lerp", {2, 4, 1.5}, 5},
        {"fit", {5, 0, 10, 100, 200}, 150}, {"fit", {20, 0, 10, 100, 200}, 200},
        {"fit", {-3, 0, 10, 100, 200}, 100}, {"fit", {2, 10, 0, 0, 1}, 0.8}, {"fit", {20, 0, 10, 1, 0}, 0},
        {"fit", {-5, 0, 10, 1, 0}, 1}, {"fit", {5, 4, 4, 7, 9}, 7}, {"fit01", {0.25, 10, 20}, 12.5},
        {"fit10", {0.25, 10, 20}, 17.5}, {"fit11", {0, 10, 20}, 15}, {"fit11", {-5, 10, 20}, 10},
        {"smooth", {0.25, 0, 1}, 0.15625}, {"smooth", {0.5, 0, 1}, 0.5}, {"smooth", {-1, 0, 1}, 0},
        {"smooth", {3, 0, 1}, 1}, {"smooth", {7.5, 10, 0}, 0.15625}, {"smooth", {1, 1, 1}, 1},
        {"smooth", {0.9, 1, 1}, 0}, {"if", {2, 10, 20}, 10}, {"if", {0, 10, 20}, 20},
    });
}

TEST(EvLibraryFloat, TrigonometryIsExactOnQuarterTurns)
{
    const struct { const char *name; double deg, want; } rows[] = {
        {"sin", 180, 0}, {"sin", -360, 0}, {"sin", 540, 0}, {"sin", 90, 1}, {"sin", -90, -1},
        {"cos", 90, 0}, {"cos", 270, 0}, {"cos", 180, -1}, {"cos", 720, 1}, {"tan", 180, 0},
    };
    for (const auto &row : rows) {
        Out o = call(row.name, {row.deg});
        EXPECT_EQ(o.f, row.want) << row.name << "(" << row.deg << ")";
        EXPECT_FALSE(o.f == 0 && std::signbit(o.f)) << row.name << "(" << row.deg << ")";
    }
}

TEST(EvLibraryFloat, RandIsAStableUniformHash)
{
    int buckets[10] = {};
    for (int i = 0; i < 10000; ++i) {
        const double v = call("rand", {i}).f;
        ASSERT_TRUE(v >= 0 && v < 1) << i;
        ASSERT_EQ(static_cast<double>(static_cast<float>(v)), v) << "stays below 1 as a float";
        EXPECT_EQ(call("rand", {i}).f, v);
        ++buckets[static_cast<int>(v * 10)];
    }
    for (int n : buckets)
        EXPECT_NEAR(n, 1000, 150);
    EXPECT_EQ(call("rand", {0.0}).f, call("rand", {-0.0}).f);
    EXPECT_NE(call("rand", {1.0}).f, call("rand", {1.0 + 1e-15}).f);
    // Saved scenes depend on these values: they must never change.
    EXPECT_EQ(call("rand", {0.0}).f * 16777216, 14819496);
    EXPECT_EQ(call("rand", {1.0}).f * 16777216, 8968131);
}

TEST(EvLibraryString, Results)
{
    expectRows({
        {"strlen", {"abc"}, 3}, {"strlen", {""}, 0}, {"strcmp", {"a", "b"}, -1}, {"strcmp", {"b", "a"}, 1},
        {"strcmp", {"x", "x"}, 0}, {"strcmp", {"abc", "ab"}, 1}, {"strcmp", {"\xe9", "z"}, 1},
        {"strmatch", {"t?", "tx"}, 1}, {"strmatch", {"t*", "rtx"}, 0}, {"strmatch", {"[a-c]z", "bz"}, 1},
        {"strmatch", {"T*", "tx"}, 0}, {"strindex", {"hello", "ll"}, 2}, {"strindex", {"hello", "z"}, -1},
        {"strindex", {"hello", ""}, 0}, {"atof", {"3.5abc"}, 3.5}, {"atof", {"abc"}, 0},
        {"argc", {"  a bb\tc\nd "}, 4}, {"argc", {""}, 0}, {"argc", {" \t\n"}, 0},
        {"substr", {"hello", 1, 3}, "ell"}, {"substr", {"hello", -2, 3}, "hel"},
        {"substr", {"hello", 3, 100}, "lo"}, {"substr", {"hello", 9, 2}, ""}, {"substr", {"hello", 1, -1}, ""},
        {"substr", {"hello", theNaN, 2}, "he"}, {"strcat", {"ab", "cd"}, "abcd"},
        {"upcase", {"aBz1\xe9"}, "ABZ1\xe9"}, {"downcase", {"AbZ1\xc9"}, "abz1\xc9"},
        {"ftoa", {0.5}, "0.5"}, {"ftoa", {1e6}, "1e+06"}, {"padzero", {4, 7}, "0007"},
        {"padzero", {4, -7}, "-007"}, {"padzero", {2, 1234}, "1234"}, {"padzero", {3, 12.9}, "012"},
        {"padzero", {3, -0.5}, "000"}, {"padzero", {-3, 5}, "5"}, {"padzero", {1, 1e20}, "100000000000000000000"},
        {"arg", {" a  bb\tc ", 1}, "bb"}, {"arg", {" a  bb\tc ", 2}, "c"}, {"arg", {"a b", 2}, ""},
        {"arg", {"a b", -1}, ""}, {"arg", {"a b", 0.9}, "a"}, {"strreplace", {"aaa", "a", "ab"}, "ababab"},
        {"strreplace", {"aaaa", "aa", "a"}, "aa"}, {"strreplace", {"a.b.c", ".", ""}, "abc"},
        {"strreplace", {"abc", "", "X"}, "abc"}, {"strreplace", {"a-a", "a", "xa"}, "xa-xa"},
    });
    EXPECT_EQ(call("padzero", {1e9, 1}).s.size(), 256u);
}

TEST(EvLibraryString, SprintfFormatsOneField)
{
    expectRows({
        {"sprintf", {"frame%04d.tif", 12}, "frame0012.tif"}, {"sprintf", {"%d", -2.9}, "-2"},
        {"sprintf", {"%i", 5}, "5"}, {"sprintf", {"%.2f", 3.14159}, "3.14"},
        {"sprintf", {"%-6.1f|", 2.5}, "2.5   |"}, {"sprintf", {"%+e", 1234.5}, "+1.234500e+03"},
        {"sprintf", {"%G", 1e-10}, "1E-10"}, {"sprintf", {"%g", 0.5}, "0.5"},
        {"sprintf", {"%#.3g", 1}, "1.00"}, {"sprintf", {"%5.f", 2}, "    2"},
        {"sprintf", {"100%% % d", 3}, "100%  3"}, {"sprintf", {"%#d", 5}, "5"},
        {"sprintf", {"%d", 1e30}, "9223372036854775807"}, {"sprintf", {"%d", theNaN}, "0"},
    });
    EXPECT_EQ(call("sprintf", {"%500d", 1}).s.size(), 100u);
    EXPECT_EQ(call("sprintf", {"%.500f", 1}).s.size(), 102u);
}

} // namespace
