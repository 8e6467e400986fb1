#ifndef CH_EXPRFUNCTIONS_H
#define CH_EXPRFUNCTIONS_H

class EV_FUNCTION;

/// The expression functions the library registers with the engine, in
/// registration order, ended by null (docs/functions.md lists them).
EV_FUNCTION **CHgetExpressionFunctionTable();

class CH_Expression;

/// For a text that is exactly the call of one of the library's argument-free
/// interpolation functions ("linear()", "bezier()", ...), a number for
/// CHcallInterpolation; -1 for any other text.
int CHinterpolationIndex(const char *text);
/// Evaluates such a call without running the engine's machine: when the
/// record registered under the function's name is still the library's own,
/// calls it for the thread, records the call in the expression's flag word
/// as the engine would (evaluated, plus the record's usage flags) and
/// returns true. False (nothing done) when a host has replaced the record.
bool CHcallInterpolation(int index, const CH_Expression &expr, int thread, float &value);

#endif
