#ifndef UT_REFARRAY_H
#define UT_REFARRAY_H

#include "UT_Array.h"

/// An array of values, copied in and out (UT_RefArray<CH_ChannelRef>).
template <typename T>
class UT_RefArray : public UT_Array<T>
{
public:
    using UT_Array<T>::UT_Array;
};

#endif
