#ifndef UT_PTRARRAY_H
#define UT_PTRARRAY_H

#include "UT_Array.h"

/// An array of pointers (T is the pointer type: UT_PtrArray<CH_Channel *>).
/// It does not own what it points to. Sorted operations order by pointer
/// value unless given another order.
template <typename T>
class UT_PtrArray : public UT_Array<T>
{
public:
    using UT_Array<T>::UT_Array;
};

#endif
