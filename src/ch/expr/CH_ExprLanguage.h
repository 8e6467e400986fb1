#ifndef CH_EXPRLANGUAGE_H
#define CH_EXPRLANGUAGE_H

// The languages an expression can be written in, how the text of a string
// parameter is to be taken, and their keywords as used in files and by the
// host's parameter code.

/// Language of a channel expression.
enum CH_ExprLanguage : int
{
    CH_ORVISH = 0,
    CH_PYTHON = 1
};

/// Language of a script; same values as CH_ExprLanguage.
enum CH_ScriptLanguage : int
{
    CH_SCRIPT_ORVISH = 0,
    CH_SCRIPT_PYTHON = 1
};

/// How the text of a string parameter is to be taken.
enum CH_StringMeaning : int
{
    CH_STRING_LITERAL = 0,
    CH_STRING_ORVISH_EXPR = 1,
    CH_STRING_PYTHON_EXPR = 2,
    CH_STRING_AUTODETECT_ORVISH_EXPR = 3,
    CH_STRING_DEFAULT_LANG = 4
};

/// "python" for CH_PYTHON; "orvish" for any other value.
const char *CHexprLanguageAsString(CH_ExprLanguage language);
/// Same keywords as CHexprLanguageAsString, for script languages.
const char *COrvishLanguageAsString(CH_ScriptLanguage language);
/// "Python" for CH_SCRIPT_PYTHON; "Orvish" for any other value.
const char *COrvishLanguageAsLabel(CH_ScriptLanguage language);

/// Exact, case-sensitive "orvish" or "python". False for null or any other
/// text, leaving 'language' untouched.
bool CHstringToExprLanguage(const char *text, CH_ExprLanguage &language);
bool CHstringToScriptLanguage(const char *text, CH_ScriptLanguage &language);

/// 'p' for CH_PYTHON; 'o' for any other value.
char CHexprLanguageAsChar(CH_ExprLanguage language);
/// 'o' or 'p'; false for any other character, leaving 'language' untouched.
bool CHcharToExprLanguage(char c, CH_ExprLanguage &language);

/// CH_PYTHON gives CH_STRING_PYTHON_EXPR; anything else CH_STRING_ORVISH_EXPR.
CH_StringMeaning CHexprLanguageToStringMeaning(CH_ExprLanguage language);
/// CH_STRING_PYTHON_EXPR gives CH_PYTHON; every other meaning CH_ORVISH.
CH_ExprLanguage CHstringMeaningToExprLanguage(CH_StringMeaning meaning);

/// The keyword of a meaning; unknown values read as autodetection.
const char *CHmeaningToString(CH_StringMeaning meaning);
/// Exact, case-sensitive match against the five keywords; false for null or
/// any other text, leaving 'meaning' untouched.
bool CHstringToMeaning(const char *text, CH_StringMeaning &meaning);

#endif
