// Arithmetic on words the runtime hands in, done as the panel's 32-bit
// processor adds: modulo 2^32, so that no value can make it undefined.
#ifndef QUORVEL_RV_WRAPPING_H
#define QUORVEL_RV_WRAPPING_H

inline int wrappingAdd(int a, int b)
{
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

inline int wrappingTimes(int a, int b)
{
    return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

#endif
