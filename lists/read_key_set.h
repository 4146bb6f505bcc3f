// A set of cyclic-read identities (station, area type, address, count) packed
// into one 64-bit word each in a flat table, so that checking a piece for a
// repeat costs about one memory read even with a hundred thousand requests.
#ifndef QUORVEL_RV_READ_KEY_SET_H
#define QUORVEL_RV_READ_KEY_SET_H

#include <cstddef>
#include <vector>

#include "prefetch.h"

class ReadKeySet {
public:
    explicit ReadKeySet(std::size_t expected) : used_(0)
    {
        std::size_t size = 16;
        while (size < 2 * expected)
            size *= 2;
        slots_.assign(size, 0);
    }

    // The identity packed into one word. The per-variable pass only makes
    // stations 0..255, area types below 64 and addresses and counts inside
    // an area, all packable. An identity outside those ranges (a default
    // station past 65535, say) can equal none of them and packs to 0.
    static unsigned long long key(int station, int areaType, int address, int count)
    {
        if (station < 0 || station > 0xFFFF || areaType < 0 || areaType > 63 || address < 0 ||
            address > FieldMax || count < 1 || count > FieldMax)
            return 0;
        // count >= 1 keeps every packed key non-zero: 0 marks a free slot.
        return (unsigned long long)station << 48 | (unsigned long long)areaType << 42 |
               (unsigned long long)address << 21 | (unsigned)count;
    }

    // Adds the identity; false when it was there already. A key of 0 is
    // not kept and counts as new.
    bool insert(unsigned long long key)
    {
        if (key == 0)
            return true;
        if (2 * (used_ + 1) > slots_.size())
            grow();
        unsigned long long &slot = find(slots_, key);
        if (slot != 0)
            return false;
        slot = key;
        ++used_;
        return true;
    }

    bool insert(int station, int areaType, int address, int count)
    {
        return insert(key(station, areaType, address, count));
    }

    // Starts loading the slot a later insert of `key` will look at, so that
    // a run of inserts overlaps its cache misses.
    void prefetch(unsigned long long key) const { ::prefetch(&slots_[home(key, slots_.size())]); }

private:
    static const int FieldMax = (1 << 21) - 1;

    static std::size_t home(unsigned long long key, std::size_t size)
    {
        unsigned long long h = key * 0x9E3779B97F4A7C15ull;
        h ^= h >> 29;
        return std::size_t(h) & (size - 1);
    }

    static unsigned long long &find(std::vector<unsigned long long> &table, unsigned long long key)
    {
        const std::size_t mask = table.size() - 1;
        for (std::size_t i = home(key, table.size());; i = (i + 1) & mask)
            if (table[i] == 0 || table[i] == key)
                return table[i];
    }

    void grow()
    {
        std::vector<unsigned long long> bigger(slots_.size() * 2, 0);
        for (std::size_t i = 0; i < slots_.size(); ++i)
            if (slots_[i] != 0)
                find(bigger, slots_[i]) = slots_[i];
        slots_.swap(bigger);
    }

    std::vector<unsigned long long> slots_;
    std::size_t used_;
};

#endif
