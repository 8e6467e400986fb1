#ifndef CH_CHANNELBEHAVIOR_H
#define CH_CHANNELBEHAVIOR_H

/// What a channel gives before its first key (left) and from its last key
/// on (right).
enum CH_ChannelBehavior
{
    CH_CHANNEL_DEFAULT = 0, ///< the channel's default value
    CH_CHANNEL_HOLD = 1,    ///< the value at the end key
    CH_CHANNEL_CYCLE = 2,   ///< the keyed range repeated
    CH_CHANNEL_EXTEND = 3,  ///< the end segment's function continued
    CH_CHANNEL_SLOPE = 4    ///< a straight line along the end slope
};

#endif
