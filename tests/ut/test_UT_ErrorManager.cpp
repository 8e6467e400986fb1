#include <ut/UT_ErrorManager.h>

#include <gtest/gtest.h>

namespace {

TEST(UT_ErrorManager, TableEntriesFixSeverityAndText)
{
    UT_ErrorManager list;
    list.addError("CH", 2, "lokc");
    EXPECT_EQ(list.getSeverity(), UT_ERROR_WARNING);
    list.addError("CH", 13, "");
    EXPECT_EQ(list.getSeverity(), UT_ERROR_WARNING); // unit and language warnings stay warnings
    list.addError("Common", 8, "CH_Segment");
    EXPECT_EQ(list.getSeverity(), UT_ERROR_WARNING);
    list.addError("CH", 12, "furlong");
    EXPECT_EQ(list.getSeverity(), UT_ERROR_ABORT);

    auto errors = list.getErrors();
    ASSERT_EQ(errors.size(), 4u);
    EXPECT_EQ(errors[0].text, "Unknown segment option \"lokc\"");
    EXPECT_EQ(errors[2].text, "Skipped an unknown packet: CH_Segment");
    EXPECT_EQ(errors[3].severity, UT_ERROR_ABORT);
    EXPECT_EQ(errors[3].argument, "furlong");
}

TEST(UT_ErrorManager, MessageCodeCarriesItsArgumentVerbatim)
{
    UT_ErrorManager list;
    list.addError("CH", 0, "Undefined variable (/obj/geo1/tx) 100%s");
    EXPECT_EQ(list.getErrors().at(0).text, "Undefined variable (/obj/geo1/tx) 100%s");
    EXPECT_EQ(list.getSeverity(), UT_ERROR_MESSAGE);
    EXPECT_EQ(list.getFormattedErrors(UT_ERROR_WARNING), "");
}

TEST(UT_ErrorManager, UnknownCodesAndHostTables)
{
    UT_ErrorManager list;
    list.addError("CH", 99, "x");
    EXPECT_EQ(list.getSeverity(), UT_ERROR_ABORT);
    EXPECT_NE(list.getErrors()[0].text.find("99"), std::string::npos);

    list.registerTable("HOST", {{1, UT_ERROR_FATAL, "Out of %s"}});
    list.addError("HOST", 1, "memory");
    EXPECT_EQ(list.getSeverity(), UT_ERROR_FATAL);
    EXPECT_EQ(list.getErrors()[1].text, "Out of memory");

    list.clear();
    EXPECT_EQ(list.getSeverity(), UT_ERROR_NONE);
    list.addError("CH", 13, "klingon", UT_ERROR_FATAL); // explicit severity wins
    EXPECT_EQ(list.getSeverity(), UT_ERROR_FATAL);
}

TEST(UT_ErrorManager, CapacityDropsAreCountedAndReported)
{
    UT_ErrorManager list;
    list.setCapacity(3);
    for (int i = 0; i < 5; ++i)
        list.addError("CH", 2, "w");
    list.addError("CH", 4, "late");
    EXPECT_EQ(list.getErrors().size(), 3u);
    EXPECT_EQ(list.getErrorCount(), 6u);
    EXPECT_EQ(list.getSeverity(), UT_ERROR_ABORT); // a dropped error still counts
    EXPECT_NE(list.getFormattedErrors().find("3 more error(s) not listed"), std::string::npos);
}

TEST(UT_ErrorManager, GlobalFunctionsShareOneList)
{
    UTclearErrors();
    UTaddError("Common", 11, "=");
    EXPECT_EQ(UTgetErrorSeverity(), UT_ERROR_ABORT);
    EXPECT_EQ(UT_ErrorManager::get().getFormattedErrors(), "Error: Syntax error: expected \"=\"\n");
    UTclearErrors();
    EXPECT_EQ(UTgetErrorSeverity(), UT_ERROR_NONE);
}

} // namespace
