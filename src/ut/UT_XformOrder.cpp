#include "UT_XformOrder.h"

bool UT_XformOrder::setRotOrder(const char *name) noexcept
{
    myOrder = XYZ;
    if (!name)
        return false;
    char upper[3];
    for (int i = 0; i < 3; ++i) {
        char c = name[i];
        if (c == '\0')
            return false;
        upper[i] = (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
    }
    if (name[3] != '\0')
        return false;
    for (int order = XYZ; order <= ZYX; ++order) {
        const char *candidate = theNames[order];
        if (upper[0] == candidate[0] && upper[1] == candidate[1] && upper[2] == candidate[2]) {
            myOrder = static_cast<RotOrder>(order);
            return true;
        }
    }
    return false;
}
