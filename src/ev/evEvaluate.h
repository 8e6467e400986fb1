#ifndef EV_EVALUATE_H
#define EV_EVALUATE_H

#include <string>

struct EV_EXPRESSION;

/// Run an expression's program on a thread. They return false on error (the
/// thread's error number is then set and the result is 0 / "").
bool evEvaluateFloat(EV_EXPRESSION &expr, double &result, int thread);
bool evEvaluateString(EV_EXPRESSION &expr, std::string &result, int thread);

#endif
