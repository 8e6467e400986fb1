#include <ch/manager/CH_ChangeType.h>

const char *CHchangeTypeName(int type)
{
    static const char *const theNames[CH_NUM_CHANGE_TYPES] = {
        "CH_UNCHANGED",          "CH_CHANNELS_DELETED",        "CH_CHANNELS_ADDED",
        "CH_CHANNELS_MAJOR_CHANGE", "CH_CHANNEL_CHANGED",      "CH_CHANNEL_UICHANGED",
        "CH_PARM_ENABLE_CHANGED", "CH_CHANNELS_MOVED",         "CH_PERMISSION_CHANGED",
        "CH_GROUP_CREATED",      "CH_GROUP_REMOVED",           "CH_GROUP_RENAMED",
        "CH_GROUP_MOVED",        "CH_GROUP_SELCHANGED",        "CH_GROUP_CURCHANGED",
        "CH_GROUP_CHANGED",      "CH_SCOPE_CHANGED",           "CH_SCOPE_SELECTION_CHANGED",
        "CH_SCOPE_PIN_CHANGED",  "CH_SCOPE_DISPLAY_CHANGED"};
    return type >= 0 && type < CH_NUM_CHANGE_TYPES ? theNames[type] : "";
}
