// Scans arbitrary text with callbacks that answer, refuse and recurse, and
// checks the invariants that hold whatever the text.
#include <ut/UT_ExprVariableScan.h>
#include <ut/UT_WorkBuffer.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

struct FuzzState
{
    int depth = 0;
};

// Upper-case names are known, their values carrying characters the scanner
// must not expand again; everything else is refused.
bool fuzzVariable(const char *name, UT_WorkBuffer &value, void *)
{
    if (!value.isEmpty())
        std::abort();
    if (name[0] < 'A' || name[0] > 'Z')
        return false;
    value.append("<$");
    value.append(name);
    value.append("`>");
    return true;
}

// Re-expands its text like the channel manager does, up to a small depth;
// texts starting with '!' are refused.
bool fuzzExpression(const char *text, UT_WorkBuffer &value, void *data)
{
    auto *state = static_cast<FuzzState *>(data);
    if (!value.isEmpty())
        std::abort();
    if (text[0] == '!' || state->depth >= 3)
        return false;
    ++state->depth;
    UTExprVariableScan(text, fuzzVariable, fuzzExpression, data, value);
    --state->depth;
    return true;
}

bool refuse(const char *, UT_WorkBuffer &, void *)
{
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // Stop at the first NUL, as any C caller's text would.
    std::string text(reinterpret_cast<const char *>(data), size);
    text.resize(std::strlen(text.c_str()));

    FuzzState state;
    UT_WorkBuffer result;
    bool changed = UTExprVariableScan(text.c_str(), fuzzVariable, fuzzExpression, &state, result);
    if (changed != (result.toStdString() != text) || state.depth != 0)
        std::abort();

    // Without callbacks nothing is interpreted.
    changed = UTExprVariableScan(text.c_str(), nullptr, nullptr, nullptr, result);
    if (changed || result.toStdString() != text)
        std::abort();

    // Refusals keep every reference as written, so only escapes can change
    // the text.
    changed = UTExprVariableScan(text.c_str(), refuse, refuse, nullptr, result);
    if (text.find('\\') == std::string::npos && (changed || result.toStdString() != text))
        std::abort();

    // The text may live in the result buffer.
    result.strcpy(text);
    UT_WorkBuffer separate;
    UTExprVariableScan(text.c_str(), fuzzVariable, refuse, nullptr, separate);
    UTExprVariableScan(result.buffer(), fuzzVariable, refuse, nullptr, result);
    if (result.toStdString() != separate.toStdString())
        std::abort();
    return 0;
}
