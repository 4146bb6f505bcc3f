// Reads typed values off a fuzzer's byte string. Past the end every read
// gives zero, so a harness never has to check the remaining length.
#ifndef RV_FUZZ_INPUT_H
#define RV_FUZZ_INPUT_H

#include <QByteArray>
#include <QString>
#include <climits>
#include <cstddef>
#include <cstdint>

#include "driver/records.h"
#include "localarea/areas.h"

class FuzzInput {
public:
    FuzzInput(const uint8_t *data, size_t size) : data_(data), size_(size), pos_(0) {}

    bool empty() const { return pos_ >= size_; }
    uint8_t u8() { return pos_ < size_ ? data_[pos_++] : 0; }
    uint16_t u16() { return uint16_t(u8() | (u8() << 8)); }
    int32_t i32() { return int32_t(uint32_t(u16()) | (uint32_t(u16()) << 16)); }

    // Any int, the values next to the limits and to 0 as often as the rest.
    int word()
    {
        switch (u8() % 8) {
        case 0: return INT_MAX - (u8() % 3);
        case 1: return INT_MIN + (u8() % 3);
        case 2: return int(u8() % 5) - 2;
        case 3: return int(int8_t(u8()));
        default: return i32();
        }
    }

    // Every word of the runtime's record, each over the whole int range
    // (small values common, so that ordinary links are fuzzed too).
    void comInfo(ComInfo &info)
    {
        int *w = reinterpret_cast<int *>(&info);
        const uint32_t wide = uint32_t(u16()) | (uint32_t(u8()) << 16);  // one bit per word
        for (int i = 0; i < int(sizeof(ComInfo) / sizeof(int)); ++i)
            w[i] = (wide >> i) & 1 ? word() : int(u8() % 4);
    }

    // Up to `max` raw bytes, the length taken from the input.
    QByteArray bytes(int max)
    {
        int n = u8() % (max + 1);
        QByteArray out;
        for (int i = 0; i < n && !empty(); ++i)
            out.append(char(u8()));
        return out;
    }

    // Mostly small counts, sometimes the extremes a careless caller passes.
    int count()
    {
        switch (u8() % 8) {
        case 0: return 0;
        case 1: return -int(u8()) - 1;
        case 2: return i32();
        case 3: return int(u16());
        default: return 1 + u8() % 70;
        }
    }

    int areaType()
    {
        const uint8_t b = u8();
        if (b < 230)
            return b % 26;
        if (b < 250)
            return 26 + b % 8;  // just past the table
        return i32();
    }

    // An address text as a runtime would write it, or something that is not.
    QString addressText(int areaType)
    {
        const int base = addressBase(areaType);
        switch (u8() % 6) {
        case 0: return QString(bytes(12));
        case 1: return QString::number(i32(), base);
        case 2: return QString::number(-int(u8()), base);
        default: return QString::number(u16() % 9000, base);
        }
    }

    QString areaName()
    {
        const uint8_t b = u8();
        return b < AreaTypeCount ? QString(kAreas[b].name) : QString(bytes(4));
    }

private:
    const uint8_t *data_;
    size_t size_;
    size_t pos_;
};

#endif
