#ifndef CH_EXPRLIBRARY_H
#define CH_EXPRLIBRARY_H

// The engine callbacks of the library's non-interpolation functions; the
// function table (CH_ExprFunctions.cpp) registers them. Internal header.

class EV_FUNCTION;
struct EV_SYMBOL;

void chEvalFunction(EV_FUNCTION *func, EV_SYMBOL *result, EV_SYMBOL **args, int thread);
void chEvalsFunction(EV_FUNCTION *func, EV_SYMBOL *result, EV_SYMBOL **args, int thread);
void chNoiseFunction(EV_FUNCTION *func, EV_SYMBOL *result, EV_SYMBOL **args, int thread);
void chTurbFunction(EV_FUNCTION *func, EV_SYMBOL *result, EV_SYMBOL **args, int thread);
void chSnoiseFunction(EV_FUNCTION *func, EV_SYMBOL *result, EV_SYMBOL **args, int thread);
void chSturbFunction(EV_FUNCTION *func, EV_SYMBOL *result, EV_SYMBOL **args, int thread);

#endif
