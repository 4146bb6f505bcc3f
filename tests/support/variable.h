// Variable records as the panel runtime hands them to the read-list rebuild.
#ifndef RV_TEST_VARIABLE_H
#define RV_TEST_VARIABLE_H

#include "driver/records.h"

inline VarInfo variable(const char *area, int areaType, const char *address, int count,
                        int station = 1)
{
    VarInfo v;
    v.areaName = area;
    v.areaType = (unsigned char)areaType;
    v.addressText = address;
    v.count = count;
    v.station = (unsigned char)station;
    return v;
}

#endif
