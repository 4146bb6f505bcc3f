// The layout of a remote link's request description, field by field, high
// byte first: the one statement of it, read by the driver that frames the
// requests and by every program that reads them. Plain constants, so the
// driver takes them without linking anything.
#ifndef RV_LINK_REMOTE_LAYOUT_H
#define RV_LINK_REMOTE_LAYOUT_H

namespace rvlink {
namespace remote {

enum Field { Length, OwnerType, RwMode, LinkNo, Station, AreaType, Address, Count, Spare1, Spare2 };
const int kFieldCount = Spare2 + 1;

struct FieldSpot {
    int offset;
    int width;  // bytes, high byte first
};

inline constexpr FieldSpot kFields[kFieldCount] = {{0, 1}, {1, 1}, {2, 1},  {3, 1},  {4, 1},
                                                   {5, 2}, {7, 4}, {11, 2}, {13, 4}, {17, 4}};

// A write's value bytes follow the fields, in the order the driver stores
// them; one byte, the low 8 bits of the sum of all before it, closes the frame.
inline constexpr int kHeaderBytes = 21;
inline constexpr int kReadFrameBytes = kHeaderBytes + 1;

constexpr bool fieldsFollowEachOther()
{
    for (int f = 1; f < kFieldCount; ++f)
        if (kFields[f].offset != kFields[f - 1].offset + kFields[f - 1].width)
            return false;
    return kFields[kFieldCount - 1].offset + kFields[kFieldCount - 1].width == kHeaderBytes;
}
static_assert(fieldsFollowEachOther(), "the fields of a request description leave no gap");

// The read/write field's two values.
enum Mode { Read = 0, Write = 1 };

}  // namespace remote
}  // namespace rvlink

#endif
