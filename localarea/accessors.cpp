// The accessor family: values between the runtime's byte formats (one byte
// per bit; words low byte first; word pairs high word first) and the blocks.
#include "accessors.h"

#include <climits>

#include "local_area.h"
#include "reply_span.h"

namespace {

// Makes `out` at least `needed` bytes long, keeping what lies beyond; the
// caller writes from index 0. False when the size cannot be represented.
bool growTo(QByteArray &out, long long needed)
{
    if (needed > INT_MAX / 2)
        return false;
    if (out.size() < needed)
        out.resize(int(needed));
    return true;
}

int inputSize(const QByteArray *in)
{
    return in ? in->size() : 0;
}

}  // namespace

void GetBit_unsigned_char(QByteArray &out, unsigned char *bits, int start, int count)
{
    if (count < 1 || !bits || !growTo(out, count))
        return;
    char *o = out.data();
    for (int i = 0; i < count; ++i) {
        const int n = start + i;
        o[i] = char((bits[n >> 3] >> (n & 7)) & 1);
    }
}

void GetBit_unsigned_short(QByteArray &out, unsigned short *bits, int start, int count)
{
    if (count < 1 || !bits || !growTo(out, count))
        return;
    char *o = out.data();
    for (int i = 0; i < count; ++i) {
        const int n = start + i;
        o[i] = char((bits[n >> 4] >> (n & 15)) & 1);
    }
}

void GetWord_unsigned_short(QByteArray &out, unsigned short *words, int start, int count)
{
    if (count < 1 || !words || !growTo(out, 2LL * count))
        return;
    char *o = out.data();
    for (int i = 0; i < count; ++i) {
        const unsigned short w = words[start + i];
        o[2 * i] = char(w & 0xFF);
        o[2 * i + 1] = char(w >> 8);
    }
}

void GetWord_32Bit(QByteArray &out, unsigned short *words, int start, int count)
{
    const int pairs = count / 2;
    if (count < 2 || !words || !growTo(out, 4LL * pairs))
        return;
    char *o = out.data();
    for (int p = 0; p < pairs; ++p) {
        // The higher-addressed word carries the high half of the value.
        const unsigned short hi = words[start + 2 * p + 1];
        const unsigned short lo = words[start + 2 * p];
        o[4 * p] = char(hi & 0xFF);
        o[4 * p + 1] = char(hi >> 8);
        o[4 * p + 2] = char(lo & 0xFF);
        o[4 * p + 3] = char(lo >> 8);
    }
}

void SetBit_unsigned_char(int start, unsigned char *bits, QByteArray *in, int count)
{
    if (count < 1 || !bits)
        return;
    const int n = qMin(count, inputSize(in));
    for (int i = 0; i < n; ++i) {
        const int e = start + i;
        const unsigned char mask = (unsigned char)(1u << (e & 7));
        if (in->at(i) == 1)
            bits[e >> 3] |= mask;
        else
            bits[e >> 3] &= (unsigned char)~mask;
    }
}

void SetBit_unsigned_short(int start, unsigned short *bits, QByteArray *in, int count)
{
    if (count < 1 || !bits)
        return;
    const int n = qMin(count, inputSize(in));
    for (int i = 0; i < n; ++i) {
        const int e = start + i;
        const unsigned short mask = (unsigned short)(1u << (e & 15));
        if (in->at(i) == 1)
            bits[e >> 4] |= mask;
        else
            bits[e >> 4] &= (unsigned short)~mask;
    }
}

void SetValue_unsigned_short(int start, unsigned short *words, QByteArray *in, int count)
{
    if (count < 1 || !words)
        return;
    // A word whose two bytes are not both there is left as it was.
    const int n = qMin(count, inputSize(in) / 2);
    const unsigned char *v =
        reinterpret_cast<const unsigned char *>(n > 0 ? in->constData() : nullptr);
    for (int i = 0; i < n; ++i)
        words[start + i] = (unsigned short)(v[2 * i] | (v[2 * i + 1] << 8));
}

void SetValue_32Bit(int start, unsigned short *words, QByteArray *in, int count)
{
    if (count < 2 || !words)
        return;
    const int pairs = qMin(count / 2, inputSize(in) / 4);
    const unsigned char *v =
        reinterpret_cast<const unsigned char *>(pairs > 0 ? in->constData() : nullptr);
    for (int p = 0; p < pairs; ++p) {
        words[start + 2 * p + 1] = (unsigned short)(v[4 * p] | (v[4 * p + 1] << 8));
        words[start + 2 * p] = (unsigned short)(v[4 * p + 2] | (v[4 * p + 3] << 8));
    }
}

// The reply is placed by the frame being answered and kept inside the area
// of that frame's type, so it can never be stored outside the block of the
// area it was asked for.
void saveReplyBits(const Protocol &head, const QByteArray *reply, unsigned char *bits)
{
    if (!reply || !bits || !isBitArea(head.var.areaType))
        return;
    ReplySpan span;
    if (!replySpan(head.var.areaType, head.var.address, head.replyDataLength, span))
        return;
    const long long h = head.replyHeaderLength;
    const long long size = reply->size();
    const char *r = reply->constData();
    unsigned char *dest = bits + span.first / 8;
    for (int u = 0; u < span.units; ++u) {
        const long long at = h + span.skip + u;
        if (at >= 0 && at < size)
            dest[u] = (unsigned char)r[at];
    }
}

void saveReplyWords(const Protocol &head, const QByteArray *reply, unsigned short *words)
{
    if (!reply || !words || !isWordArea(head.var.areaType))
        return;
    ReplySpan span;
    if (!replySpan(head.var.areaType, head.var.address, head.replyDataLength / 2, span))
        return;
    const long long h = head.replyHeaderLength;
    const long long size = reply->size();
    const unsigned char *r = reinterpret_cast<const unsigned char *>(reply->constData());
    unsigned short *dest = words + span.first;
    // Only the units whose two bytes the reply holds are stored; working out
    // that range first leaves a loop the compiler can vectorise.
    const long long base = h + 2LL * span.skip;
    const long long lo = base >= 0 ? 0 : (1 - base) / 2;
    const long long hi = qMin<long long>(span.units, size > base ? (size - base) / 2 : 0);
    for (long long u = lo; u < hi; ++u) {
        // Registers arrive high byte first.
        const unsigned char *at = r + base + 2 * u;
        dest[u] = (unsigned short)((at[0] << 8) | at[1]);
    }
}
