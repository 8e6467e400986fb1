// Uses the installed package: headers, the shared library and its targets.
#include <ch/CH.h>

#include <cmath>
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

    // Rotations reach Imath through the package's dependency.
    UT_Quaternion q;
    q.updateFromEuler(UT_Vector3(0, 0, 1.5707964f), UT_XformOrder("xyz"));
    UT_Vector3 turned = q.rotate(UT_Vector3(1, 0, 0));
    bool rotated = std::fabs(turned.y() - 1.0f) < 1e-6f && UT_Noise(1).noise(2, 3, 4) == 0.0f;

    UT_String name("geo1/tx");
    UT_ThreadSlots<int> slots;
    slots.get() = 7;
    if (!managed || !evaluated || !rotated || !name.multiMatch("*/t?") || slots.get(UT_Thread::getMySequentialThreadIndex()) != 7 ||
        std::strlen(CHgetVersion()) == 0) {
        std::printf("consumer: unexpected results\n");
        return 1;
    }
    std::printf("consumer: chanlib %s works\n", CHgetVersion());
    return 0;
}
