#include "CH_Version.h"

const char *CHgetVersion()
{
    return CHANLIB_VERSION;
}
