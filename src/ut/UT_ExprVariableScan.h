#ifndef UT_EXPRVARIABLESCAN_H
#define UT_EXPRVARIABLESCAN_H

class UT_WorkBuffer;

/// Called by UTExprVariableScan for each variable name or back-quoted
/// expression found. Appends the replacement to 'value' (which arrives
/// empty) and returns true, or returns false to leave the reference exactly
/// as it was written.
using UT_VarScanCallback = bool (*)(const char *text, UT_WorkBuffer &value, void *data);

/// Expands the variables and back-quoted expressions of a text.
///
/// - `$NAME` (NAME: a letter or '_', then letters, digits and '_') and
///   `${NAME}` go to 'variable_callback'. A '$' not followed by a name, an
///   empty `${}` and an unclosed `${` are copied as they stand.
/// - `` `text` `` goes to 'expression_callback' with the text between the
///   quotes. Inside it, `` \` `` stands for a back quote (so one expression
///   can carry another in its strings); everything else is passed through
///   untouched, variables included. An unclosed back quote is copied as it
///   stands, with the rest of the text.
/// - Escapes: `\$` gives a literal '$' and `` \` `` a literal back quote; each
///   is honoured only by the pass that handles its kind (a null callback
///   leaves the corresponding references and escapes as written).
///
/// 'result' receives the whole expanded text. Returns true when it differs
/// from the input, that is when anything was replaced or an escape consumed.
bool UTExprVariableScan(const char *text,
                        UT_VarScanCallback variable_callback,
                        UT_VarScanCallback expression_callback,
                        void *data,
                        UT_WorkBuffer &result);

#endif
