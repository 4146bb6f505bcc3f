// The one piece cutter: how a length is cut into requests of a block size,
// for the cyclic read list, the one-off reads and the queued word writes.
#ifndef QUORVEL_RV_PIECES_H
#define QUORVEL_RV_PIECES_H

#include <climits>

// The most pieces one run is cut into. A memory guard only: a count in the
// billions with a block size of 1 would otherwise ask for billions of
// requests. It is as many as a 16-bit count can number, far more than the
// largest area has elements (D, 8,000), so every run inside an area, and
// every run a frame's quantity can describe, is cut whole.
const long long MaxPieces = 65536;

// The number of pieces of `size` that `total` units are cut into, by the
// arithmetic of the lists: total / size, one more for a remainder, which the
// last piece holds (`last`; size when there is none). A size of 0 gives one
// piece of total. Below 1 means no piece.
inline long long pieceCount(long long total, long long size, long long &last)
{
    if (size == 0) {
        last = total;
        return 1;
    }
    last = total % size ? total % size : size;
    return total / size + (total % size ? 1 : 0);
}

// Cuts `total` units from `start` into those pieces; piece k starts at
// start + step * k * size. Calls piece(address, count) in order until it
// returns false, a piece would start outside the int range, or MaxPieces
// pieces were made.
template <class Piece>
void cutPieces(long long start, long long step, long long total, long long size, Piece piece)
{
    long long last;
    const long long n = pieceCount(total, size, last);
    for (long long k = 0; k < n && k < MaxPieces; ++k) {
        const long long address = start + step * (k * size);
        if (address < INT_MIN || address > INT_MAX ||
            !piece(int(address), int(k == n - 1 ? last : size)))
            return;
    }
}

#endif
