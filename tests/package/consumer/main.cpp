// Uses the installed package: headers, the shared library and its targets.
#include <ch/CH.h>

#include <cstdio>
#include <cstring>

int main()
{
    ev_InitFloat();
    EV_EXPRESSION *expr = ev_AllocExpr();
    ev_ChangeExpr(expr, "max(2, 3) * 2 + 1", 0);
    float value = 0;
    bool evaluated = ev_EvaluateFloat(expr, &value, 0) && value == 7.0f;
    ev_FreeExpr(expr);

    CH_Manager manager;
    int timeDependent = 0;
    bool managed = manager.evaluate("$F * 2", 11.0f / 24, nullptr, &timeDependent, 0) == 24.0f &&
                   timeDependent == 1;

    UT_String name("geo1/tx");
    UT_ThreadSlots<int> slots;
    slots.get() = 7;
    if (!managed || !evaluated || !name.multiMatch("*/t?") || slots.get(UT_Thread::getMySequentialThreadIndex()) != 7 ||
        std::strlen(CHgetVersion()) == 0) {
        std::printf("consumer: unexpected results\n");
        return 1;
    }
    std::printf("consumer: chanlib %s works\n", CHgetVersion());
    return 0;
}
