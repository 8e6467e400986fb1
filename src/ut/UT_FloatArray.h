#ifndef UT_FLOATARRAY_H
#define UT_FLOATARRAY_H

#include "UT_Array.h"

class UT_FloatArray : public UT_Array<float>
{
public:
    using UT_Array<float>::UT_Array;
};

#endif
