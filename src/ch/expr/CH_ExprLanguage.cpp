#include "CH_ExprLanguage.h"

#include <cstring>

namespace
{
// Indexed by CH_StringMeaning.
const char *const theMeaningKeywords[] = {
    "literal", "orvish-expr", "python", "autodetect-orvish-expr", "default-lang"};
constexpr int theMeaningCount = sizeof(theMeaningKeywords) / sizeof(theMeaningKeywords[0]);

// 0 for "orvish", 1 for "python", -1 for anything else (null included).
int languageFromKeyword(const char *text)
{
    if (!text)
        return -1;
    if (std::strcmp(text, "orvish") == 0)
        return 0;
    if (std::strcmp(text, "python") == 0)
        return 1;
    return -1;
}
} // namespace

const char *CHexprLanguageAsString(CH_ExprLanguage language)
{
    return language == CH_PYTHON ? "python" : "orvish";
}

const char *COrvishLanguageAsString(CH_ScriptLanguage language)
{
    return language == CH_SCRIPT_PYTHON ? "python" : "orvish";
}

const char *COrvishLanguageAsLabel(CH_ScriptLanguage language)
{
    return language == CH_SCRIPT_PYTHON ? "Python" : "Orvish";
}

bool CHstringToExprLanguage(const char *text, CH_ExprLanguage &language)
{
    int value = languageFromKeyword(text);
    if (value < 0)
        return false;
    language = static_cast<CH_ExprLanguage>(value);
    return true;
}

bool CHstringToScriptLanguage(const char *text, CH_ScriptLanguage &language)
{
    int value = languageFromKeyword(text);
    if (value < 0)
        return false;
    language = static_cast<CH_ScriptLanguage>(value);
    return true;
}

char CHexprLanguageAsChar(CH_ExprLanguage language)
{
    return language == CH_PYTHON ? 'p' : 'o';
}

bool CHcharToExprLanguage(char c, CH_ExprLanguage &language)
{
    if (c == 'o')
        language = CH_ORVISH;
    else if (c == 'p')
        language = CH_PYTHON;
    else
        return false;
    return true;
}

CH_StringMeaning CHexprLanguageToStringMeaning(CH_ExprLanguage language)
{
    return language == CH_PYTHON ? CH_STRING_PYTHON_EXPR : CH_STRING_ORVISH_EXPR;
}

CH_ExprLanguage CHstringMeaningToExprLanguage(CH_StringMeaning meaning)
{
    return meaning == CH_STRING_PYTHON_EXPR ? CH_PYTHON : CH_ORVISH;
}

const char *CHmeaningToString(CH_StringMeaning meaning)
{
    int index = static_cast<int>(meaning);
    if (index < 0 || index >= theMeaningCount)
        index = CH_STRING_AUTODETECT_ORVISH_EXPR;
    return theMeaningKeywords[index];
}

bool CHstringToMeaning(const char *text, CH_StringMeaning &meaning)
{
    if (!text)
        return false;
    for (int i = 0; i < theMeaningCount; ++i) {
        if (std::strcmp(text, theMeaningKeywords[i]) == 0) {
            meaning = static_cast<CH_StringMeaning>(i);
            return true;
        }
    }
    return false;
}
