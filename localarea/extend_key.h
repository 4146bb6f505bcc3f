// Key of the per-station store and the index kept beside extendList.
#ifndef QUORVEL_RV_EXTEND_KEY_H
#define QUORVEL_RV_EXTEND_KEY_H

#include <cstddef>
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
    // Keys held.
    int size() const { return packed_.used + whole_.used; }

    void clear()
    {
        packed_.clear();
        whole_.clear();
    }

    // The key's value, or null. Valid until the next insert.
    ExtendValue *find(const ExtendKey &key)
    {
        return const_cast<ExtendValue *>(static_cast<const ExtendIndex *>(this)->find(key));
    }

    const ExtendValue *find(const ExtendKey &key) const
    {
        unsigned int packed;
        return pack(key, packed) ? packed_.find(packed) : whole_.find(key);
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
        return pack(key, packed) ? packed_.insert(packed, fresh) : whole_.insert(key, fresh);
    }

private:
    static unsigned int hash(unsigned int h)
    {
        h ^= h >> 16;
        h *= 0x7FEB352Du;
        h ^= h >> 15;
        h *= 0x846CA68Bu;
        h ^= h >> 16;
        return h;
    }
    static unsigned int hash(const ExtendKey &k)
    {
        return hash(unsigned(k.station) ^ hash(unsigned(k.areaType) ^ hash(unsigned(k.address))));
    }

    static bool pack(const ExtendKey &k, unsigned int &packed)
    {
        if (unsigned(k.station) > 255 || unsigned(k.areaType) > 255 || unsigned(k.address) > 65535)
            return false;
        packed = unsigned(k.station) << 24 | unsigned(k.areaType) << 16 | unsigned(k.address);
        return true;
    }

    // One table: slots of a key and its value, index -1 marking an empty
    // one; its size 0 or a power of two of at least `FirstSize`.
    template <class Key, std::size_t FirstSize>
    struct Table {
        struct Slot {
            Key key;
            ExtendValue value;
        };
        std::vector<Slot> slots;
        int used = 0;

        void clear()
        {
            std::vector<Slot>().swap(slots);
            used = 0;
        }

        // The slot holding `key`, or the empty slot where it goes.
        std::size_t slotOf(const Key &key) const
        {
            const unsigned int mask = unsigned(slots.size()) - 1;
            unsigned int i = hash(key) & mask;
            while (slots[i].value.index >= 0 && !(slots[i].key == key))
                i = (i + 1) & mask;
            return i;
        }

        const ExtendValue *find(const Key &key) const
        {
            if (slots.empty())
                return nullptr;
            const Slot &s = slots[slotOf(key)];
            return s.value.index >= 0 ? &s.value : nullptr;
        }

        ExtendValue *insert(const Key &key, const ExtendValue &value)
        {
            // At most four slots in five in use keeps probe runs short while
            // the packed table stays near 15 bytes a key.
            if (5LL * (used + 1) > 4LL * (long long)slots.size()) {
                Slot empty = {};
                empty.value.index = -1;
                std::vector<Slot> old(slots.empty() ? FirstSize : 2 * slots.size(), empty);
                old.swap(slots);
                for (const Slot &s : old)
                    if (s.value.index >= 0)
                        slots[slotOf(s.key)] = s;
            }
            ++used;
            Slot &s = slots[slotOf(key)];
            s.key = key;
            s.value = value;
            return &s.value;
        }
    };
    static_assert(sizeof(Table<unsigned int, 64>::Slot) == 12, "a slot is 12 bytes");

    Table<unsigned int, 64> packed_;  // station << 24 | areaType << 16 | address
    Table<ExtendKey, 16> whole_;
};

#endif
