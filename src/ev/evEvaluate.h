#ifndef EV_EVALUATE_H
#define EV_EVALUATE_H

#include <string>

struct EV_EXPRESSION;

/// The result of one evaluation: a float or a string.
struct evResult
{
    double f = 0.0;
    std::string s;
    bool isString = false;
};

/// Runs an expression's program on a thread. Returns false on error (the
/// thread's error number is then set and the result is 0 / "").
bool evEvaluate(EV_EXPRESSION &expr, evResult &result, bool want_string, int thread);

#endif
