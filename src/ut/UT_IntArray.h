#ifndef UT_INTARRAY_H
#define UT_INTARRAY_H

#include "UT_Array.h"

class UT_IntArray : public UT_Array<int>
{
public:
    using UT_Array<int>::UT_Array;
};

#endif
