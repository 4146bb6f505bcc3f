#include "line_model.h"

#include <algorithm>

namespace {

// Below this a paced reply is not split further: waking more often than
// every millisecond buys no accuracy a poller could notice.
const long long kStepUs = 1000;

int drawInt(std::mt19937 &rng, int low, int high)
{
    return std::uniform_int_distribution<int>(low, high)(rng);
}

}  // namespace

int bitsPerCharacter(char parity, int stopBits)
{
    return 1 + 8 + (parity == 'N' ? 0 : 1) + stopBits;
}

long long wireTimeUs(const LineSettings &line, size_t bytes)
{
    if (!line.pace || line.baud <= 0)
        return 0;
    return static_cast<long long>(bytes) * line.bitsPerChar * 1000000LL / line.baud;
}

std::vector<LineChunk> lineSchedule(const LineSettings &line, size_t length)
{
    std::vector<LineChunk> chunks;
    if (length == 0)
        return chunks;
    const size_t charUs = static_cast<size_t>(std::max(1LL, wireTimeUs(line, 1)));
    size_t step = length;
    if (line.pieceBytes > 0)
        step = static_cast<size_t>(line.pieceBytes);
    else if (line.pace)
        step = std::max<size_t>(1, (kStepUs + charUs - 1) / charUs);
    const long long gapUs = line.pieceBytes > 0 ? line.pieceGapMs * 1000LL : 0;
    for (size_t at = 0, k = 0; at < length; at += step, ++k) {
        const size_t n = std::min(step, length - at);
        chunks.push_back({at, n, wireTimeUs(line, at + n) + gapUs * static_cast<long long>(k)});
    }
    return chunks;
}

std::string addNoise(std::vector<uint8_t> &bytes, std::mt19937 &rng)
{
    const int kind = bytes.empty() ? 1 : drawInt(rng, 0, 2);
    if (kind == 0) {
        const int at = drawInt(rng, 0, static_cast<int>(bytes.size()) - 1);
        const int bit = drawInt(rng, 0, 7);
        bytes[at] ^= static_cast<uint8_t>(1u << bit);
        return "bit " + std::to_string(bit) + " of byte " + std::to_string(at) + " flipped";
    }
    const int n = drawInt(rng, 1, 3);
    std::vector<uint8_t> stray;
    for (int i = 0; i < n; ++i)
        stray.push_back(static_cast<uint8_t>(drawInt(rng, 0, 255)));
    bytes.insert(kind == 1 ? bytes.begin() : bytes.end(), stray.begin(), stray.end());
    return std::to_string(n) + (n == 1 ? " stray byte " : " stray bytes ") +
           (kind == 1 ? "before" : "after") + " the reply";
}
