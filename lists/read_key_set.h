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

    // The identity packed into one word: stations 0..65535, area types
    // 0..511, addresses and counts inside the areas all pack. Any other
    // identity (a count of 0, an address far past an area) packs to 0 and
    // is kept in a second table of two words a key beside the first.
    static unsigned long long key(int station, int areaType, int address, int count)
    {
        if (station < 0 || station > 0xFFFF || areaType < 0 || areaType > 511 || address < 0 ||
            address > FieldMax || count < 1 || count > FieldMax)
            return 0;
        // count >= 1 keeps every packed key non-zero: 0 marks a free slot.
        return (unsigned long long)station << 47 | (unsigned long long)areaType << 38 |
               (unsigned long long)address << 19 | (unsigned)count;
    }

    // Adds the identity; false when it was there already.
    bool insert(int station, int areaType, int address, int count)
    {
        const unsigned long long packed = key(station, areaType, address, count);
        if (packed == 0)
            return insertWide(Wide{(unsigned long long)(unsigned)station << 32 | (unsigned)areaType,
                                   (unsigned long long)(unsigned)address << 32 | (unsigned)count});
        if (2 * (used_ + 1) > slots_.size())
            grow();
        unsigned long long &slot = find(slots_, packed);
        if (slot != 0)
            return false;
        slot = packed;
        ++used_;
        return true;
    }

    // Starts loading the slot a later insert of `key` will look at, so that
    // a run of inserts overlaps its cache misses.
    void prefetch(unsigned long long key) const { ::prefetch(&slots_[home(key, slots_.size())]); }

private:
    static const int FieldMax = (1 << 19) - 1;

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

    // The identities that do not pack, whole. A zero pair marks a free slot,
    // so the all-zero identity (station 0, area 0, address 0, count 0) is a
    // flag of its own.
    struct Wide {
        unsigned long long hi, lo;
        bool empty() const { return (hi | lo) == 0; }
        bool operator==(const Wide &o) const { return hi == o.hi && lo == o.lo; }
    };

    static Wide &findWide(std::vector<Wide> &table, const Wide &key)
    {
        const std::size_t mask = table.size() - 1;
        // A full mix: these keys differ mostly in their high words (the
        // address), which a multiply alone leaves out of the low bits.
        unsigned long long h = key.lo ^ (key.hi * 0xC2B2AE3D27D4EB4Full);
        h = (h ^ (h >> 33)) * 0xFF51AFD7ED558CCDull;
        h = (h ^ (h >> 33)) * 0xC4CEB9FE1A85EC53ull;
        for (std::size_t i = std::size_t(h ^ (h >> 33)) & mask;; i = (i + 1) & mask)
            if (table[i].empty() || table[i] == key)
                return table[i];
    }

    bool insertWide(const Wide &key)
    {
        if (key.empty()) {
            const bool fresh = !zeroSeen_;
            zeroSeen_ = true;
            return fresh;
        }
        if (2 * (wideUsed_ + 1) > wide_.size()) {
            std::vector<Wide> bigger(wide_.empty() ? 16 : wide_.size() * 2, Wide{0, 0});
            for (const Wide &w : wide_)
                if (!w.empty())
                    findWide(bigger, w) = w;
            wide_.swap(bigger);
        }
        Wide &slot = findWide(wide_, key);
        if (!slot.empty())
            return false;
        slot = key;
        ++wideUsed_;
        return true;
    }

    std::vector<unsigned long long> slots_;
    std::size_t used_;
    std::vector<Wide> wide_;
    std::size_t wideUsed_ = 0;
    bool zeroSeen_ = false;
};

#endif
