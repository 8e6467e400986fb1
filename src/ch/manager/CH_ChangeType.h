#ifndef CH_CHANGETYPE_H
#define CH_CHANGETYPE_H

/// What changed, as announced to a collection's setChanged(). The data
/// pointer that goes with each kind is noted beside it.
enum CH_CHANGE_TYPE
{
    CH_UNCHANGED,               ///< none; never delivered
    CH_CHANNELS_DELETED,        ///< the channel
    CH_CHANNELS_ADDED,          ///< the channel
    CH_CHANNELS_MAJOR_CHANGE,   ///< the channel (null: many channels)
    CH_CHANNEL_CHANGED,         ///< the channel
    CH_CHANNEL_UICHANGED,       ///< the channel
    CH_PARM_ENABLE_CHANGED,     ///< the channel
    CH_CHANNELS_MOVED,          ///< the channel
    CH_PERMISSION_CHANGED,      ///< the channel
    CH_GROUP_CREATED,           ///< the group
    CH_GROUP_REMOVED,           ///< the group
    CH_GROUP_RENAMED,           ///< the group
    CH_GROUP_MOVED,             ///< the group
    CH_GROUP_SELCHANGED,        ///< the group
    CH_GROUP_CURCHANGED,        ///< the group
    CH_GROUP_CHANGED,           ///< the group
    CH_SCOPE_CHANGED,           ///< the collection to notify (delivered with null)
    CH_SCOPE_SELECTION_CHANGED, ///< none
    CH_SCOPE_PIN_CHANGED,       ///< none
    CH_SCOPE_DISPLAY_CHANGED    ///< none
};

constexpr int CH_NUM_CHANGE_TYPES = CH_SCOPE_DISPLAY_CHANGED + 1;

/// The enumerator's name ("CH_CHANNEL_CHANGED"), or "" out of range.
const char *CHchangeTypeName(int type);

#endif
