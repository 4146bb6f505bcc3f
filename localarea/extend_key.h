// Key of the per-station store and the index kept beside extendList.
#ifndef QUORVEL_RV_EXTEND_KEY_H
#define QUORVEL_RV_EXTEND_KEY_H

#include <vector>

struct ExtendKey {
    int station;
    int areaType;
    int address;
};

inline bool operator==(const ExtendKey &a, const ExtendKey &b)
{
    return a.station == b.station && a.areaType == b.areaType && a.address == b.address;
}

// What a reader needs of an entry: its place in extendList and the first
// two bytes of its data with their count (0, 1, or 2 for two or more).
struct ExtendValue {
    int index;
    unsigned char size;
    unsigned char bytes[2];
};

// Open addressing in one flat array of 12-byte slots, each holding a key
// and its value, so that reading a stored value touches one cache line
// however large the store and however scattered the keys a screen asks for.
// A key fits a slot when station and area type are 0..255 and the address
// 0..65535, as every key the controller link produces does; any other key
// (a runtime's odd station or address) is kept whole in a second table of
// the same kind. Entries are never removed, so there are no tombstones.
class ExtendIndex {
public:
    ExtendIndex() : used(0) {}

    // Keys held.
    int size() const { return used + othersUsed; }

    void clear()
    {
        std::vector<Slot>().swap(slots);
        std::vector<Other>().swap(others);
        used = 0;
        othersUsed = 0;
    }

    // The key's value, or null. Valid until the next insert.
    ExtendValue *find(const ExtendKey &key)
    {
        return const_cast<ExtendValue *>(static_cast<const ExtendIndex *>(this)->find(key));
    }

    const ExtendValue *find(const ExtendKey &key) const
    {
        unsigned int packed;
        if (!pack(key, packed)) {
            if (others.empty())
                return nullptr;
            const Other &o = others[otherSlot(others, key)];
            return o.value.index >= 0 ? &o.value : nullptr;
        }
        if (slots.empty())
            return nullptr;
        const unsigned int mask = unsigned(slots.size()) - 1;
        for (unsigned int i = hash(packed) & mask;; i = (i + 1) & mask) {
            const Slot &s = slots[i];
            if (s.value.index < 0)
                return nullptr;
            if (s.key == packed)
                return &s.value;
        }
    }

    // Index stored for the key, or `missing`.
    int value(const ExtendKey &key, int missing) const
    {
        const ExtendValue *v = find(key);
        return v ? v->index : missing;
    }

    // Records a key not yet present, with no data bytes.
    ExtendValue *insert(const ExtendKey &key, int index)
    {
        const ExtendValue fresh = {index, 0, {0, 0}};
        unsigned int packed;
        if (!pack(key, packed)) {
            if (5LL * (othersUsed + 1) > 4LL * (long long)others.size())
                growOthers();
            ++othersUsed;
            Other &o = others[otherSlot(others, key)];
            o.key = key;
            o.value = fresh;
            return &o.value;
        }
        // At most four slots in five in use keeps probe runs short while the
        // table stays near 15 bytes a key.
        if (5LL * (used + 1) > 4LL * (long long)slots.size())
            grow();
        ++used;
        return place(packed, fresh);
    }

private:
    struct Slot {
        unsigned int key;   // station << 24 | areaType << 16 | address
        ExtendValue value;  // index -1: empty
    };
    static_assert(sizeof(ExtendValue) == 8, "a slot is 12 bytes");
    struct Other {
        ExtendKey key;
        ExtendValue value;  // index -1: empty
    };

    static bool pack(const ExtendKey &k, unsigned int &packed)
    {
        if (unsigned(k.station) > 255 || unsigned(k.areaType) > 255 || unsigned(k.address) > 65535)
            return false;
        packed = unsigned(k.station) << 24 | unsigned(k.areaType) << 16 | unsigned(k.address);
        return true;
    }

    static unsigned int hash(unsigned int h)
    {
        h ^= h >> 16;
        h *= 0x7FEB352Du;
        h ^= h >> 15;
        h *= 0x846CA68Bu;
        h ^= h >> 16;
        return h;
    }

    ExtendValue *place(unsigned int packed, const ExtendValue &value)
    {
        const unsigned int mask = unsigned(slots.size()) - 1;
        unsigned int i = hash(packed) & mask;
        while (slots[i].value.index >= 0)
            i = (i + 1) & mask;
        slots[i].key = packed;
        slots[i].value = value;
        return &slots[i].value;
    }

    // The slot holding `key` in a table of whole keys, or the empty slot
    // where it goes.
    static size_t otherSlot(const std::vector<Other> &table, const ExtendKey &key)
    {
        const unsigned int mask = unsigned(table.size()) - 1;
        unsigned int i = hash(unsigned(key.station) ^
                              hash(unsigned(key.areaType) ^ hash(unsigned(key.address)))) &
                         mask;
        while (table[i].value.index >= 0 && !(table[i].key == key))
            i = (i + 1) & mask;
        return i;
    }

    void growOthers()
    {
        const Other empty = {{0, 0, 0}, {-1, 0, {0, 0}}};
        std::vector<Other> old(others.empty() ? 16 : 2 * others.size(), empty);
        old.swap(others);
        for (size_t i = 0; i < old.size(); ++i)
            if (old[i].value.index >= 0)
                others[otherSlot(others, old[i].key)] = old[i];
    }

    void grow()
    {
        const Slot empty = {0, {-1, 0, {0, 0}}};
        std::vector<Slot> old(slots.empty() ? 64 : 2 * slots.size(), empty);
        old.swap(slots);
        for (size_t i = 0; i < old.size(); ++i)
            if (old[i].value.index >= 0)
                place(old[i].key, old[i].value);
    }

    std::vector<Slot> slots;    // size 0 or a power of two
    std::vector<Other> others;  // size 0 or a power of two
    int used;
    int othersUsed = 0;
};

#endif
