// A hint to start loading memory that a loop will read a few steps later;
// the rebuild's passes use it to overlap cache misses on large lists.
#ifndef QUORVEL_RV_PREFETCH_H
#define QUORVEL_RV_PREFETCH_H

inline void prefetch(const void *address)
{
#if defined(__GNUC__)
    __builtin_prefetch(address);
#else
    (void)address;
#endif
}

#endif
