// The one byte-buffer type of the link: what went out, what came in.
#ifndef RV_LINK_BYTES_H
#define RV_LINK_BYTES_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace rvlink {

typedef std::vector<std::uint8_t> Bytes;

inline Bytes bytesOf(const void *data, std::size_t n)
{
    const std::uint8_t *p = static_cast<const std::uint8_t *>(data);
    return p ? Bytes(p, p + n) : Bytes();
}

// Two bytes high byte first, as Modbus sends addresses and quantities.
inline unsigned bigEndian16(const std::uint8_t *p)
{
    return unsigned(p[0]) << 8 | p[1];
}

inline void appendBigEndian16(Bytes &b, unsigned v)
{
    b.push_back(std::uint8_t(v >> 8));
    b.push_back(std::uint8_t(v));
}

// Bytes as the tools' traces show them: [01][03].. sent, <01><03>.. heard.
inline std::string bracketed(const Bytes &b, char open, char close)
{
    std::string text;
    char hex[8];
    for (std::uint8_t x : b) {
        std::snprintf(hex, sizeof hex, "%c%02X%c", open, x, close);
        text += hex;
    }
    return text;
}

}  // namespace rvlink

#endif
