#ifndef CH_EXPRFUNCTIONS_H
#define CH_EXPRFUNCTIONS_H

class EV_FUNCTION;

/// The expression functions the library registers with the engine, in
/// registration order, ended by null. The animation functions join it as
/// they are built.
EV_FUNCTION **CHgetExpressionFunctionTable();

#endif
