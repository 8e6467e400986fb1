#include "CH_ExprFunctions.h"

#include <ev/EV_Function.h>

EV_FUNCTION **CHgetExpressionFunctionTable()
{
    static EV_FUNCTION *theTable[] = {nullptr};
    return theTable;
}
