#include <ch/channel/CH_SegmentValues.h>

#include <cstdio>

void CH_SegmentValues::display() const
{
    std::printf("time %f %f\tvalue %f %f\tslope %f %f\tsl %f %f\n", myStart, myEnd, myInValue,
                myOutValue, myInSlope, myOutSlope, myInAccel, myOutAccel);
}
