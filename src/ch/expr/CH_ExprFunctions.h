#ifndef CH_EXPRFUNCTIONS_H
#define CH_EXPRFUNCTIONS_H

class EV_FUNCTION;

/// The expression functions the library registers with the engine, in
/// registration order, ended by null (docs/functions.md lists them).
EV_FUNCTION **CHgetExpressionFunctionTable();

#endif
