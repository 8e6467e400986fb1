// Uses the installed package: headers, the shared library and its targets.
#include <ch/CH.h>

#include <cstdio>
#include <cstring>

int main()
{
    UT_String name("geo1/tx");
    UT_ThreadSlots<int> slots;
    slots.get() = 7;
    if (!name.multiMatch("*/t?") || slots.get(UT_Thread::getMySequentialThreadIndex()) != 7 ||
        std::strlen(CHgetVersion()) == 0) {
        std::printf("consumer: unexpected results\n");
        return 1;
    }
    std::printf("consumer: chanlib %s works\n", CHgetVersion());
    return 0;
}
