// Records that cross the boundary to the panel runtime. They are laid out
// word by word as the runtime expects them on the 32-bit panel: every int is
// one word and every QString/QByteArray is one word (its shared handle).
#ifndef QUORVEL_RV_RECORDS_H
#define QUORVEL_RV_RECORDS_H

#include <QByteArray>
#include <QList>
#include <QString>

// One variable request: a read or write of `count` units of one area.
struct RW_VAR {
    int ownerType = 0;    // requester category; shifts error codes (1..11)
    int ownerId = 0;      // requester identifier
    int rwMode = 0;       // 0 read, 1 write
    int remoteLink = 0;   // copy of ComInfo remoteLink
    int linkNo = 0;       // link the request belongs to
    int result = 0;       // return code of the finished request
    QString areaName;     // "X", "D", ...
    QString addressText;  // octal for X/Y, decimal otherwise
    int areaType = 0;     // 0..13 bit areas, 14..25 word areas
    int address = 0;      // element address (bit or word)
    int station = 0;      // 0 = broadcast, no reply expected
    int count = 0;        // bytes for queued bit requests, registers for words
    int spare1 = 0;
    int spare2 = 0;
    QByteArray value;  // bytes to write, or empty
};

// One frame waiting to be sent and answered.
struct Protocol {
    QByteArray frame;           // complete bytes to send, checksum included
    int sendLength = 0;         // bytes to send
    int replyLength = 0;        // expected reply bytes; 0 none, -1 any length
    int replyHeaderLength = 0;  // reply bytes before the data
    int replyDataLength = 0;    // data bytes in the reply
    RW_VAR var;                 // copy of the request the frame was built from
    int reserved[3] = {0, 0, 0};
};

// The runtime's communication-information record, used in place. Words the
// driver never touches keep neutral names; they belong to the runtime.
struct ComInfo {
    int hostWord0 = 0;
    int hostWord1 = 0;
    int hostWord2 = 0;
    int hostWord3 = 0;
    int blockUnits = 0;  // 4: most units one request frame may cover
    int hostWord5 = 0;
    int defaultStation = 0;    // 6
    int retryLimit = 0;        // 7: failures tolerated before a give-up
    int retryCount = 0;        // 8: failures since the last give-up
    int multiStation = 0;      // 9: non-zero keeps per-request stations
    int spareA = 0;            // 10
    int framesPerRequest = 0;  // 11
    int framesDone = 0;        // 12
    int spareB = 0;            // 13
    int remoteLink = 0;        // 14: non-zero frames requests for the remote link
    int localLinkNo = 0;       // 15: replies to this link number are local
    int writeMode = 0;         // 16: 2 queues writes, else local area only
    int scanComplete = 0;      // 17
    int callbackContext = 0;   // 18: first argument of every call-back
};

// One entry of the per-station store.
struct EXTENDVAR {
    int station = 0;
    int areaType = 0;
    int address = 0;  // bit areas: a multiple of 8; word areas: the word
    QByteArray data;  // bit areas: 1 byte; word areas: low byte, high byte
};

// The runtime's record of one polled variable (only the fields read here).
struct VarInfo {
    unsigned char kind = 0;      // byte 0, not read
    unsigned char areaType = 0;  // byte 1
    unsigned char station = 0;   // byte 2, read by the per-variable pass
    unsigned char flags = 0;     // byte 3, not read
    int reserved = 0;            // bytes 4..7, not read
    QString addressText;         // octal for X/Y, decimal otherwise
    QString areaName;            // "X", "D", ...
    int count = 0;               // bits for bit areas, registers for words
};

// Call-back: (callbackContext, ownerType, ownerId, status 1 done / 2 given up).
typedef void (*HostCallBack)(int, int, int, int);

#if defined(__SIZEOF_POINTER__) && __SIZEOF_POINTER__ == 4
static_assert(sizeof(RW_VAR) == 60, "RW_VAR is 15 words on the panel");
static_assert(sizeof(Protocol) == 92, "Protocol is 23 words on the panel");
static_assert(sizeof(EXTENDVAR) == 16, "EXTENDVAR is 4 words on the panel");
static_assert(sizeof(VarInfo) == 20, "VarInfo holds count at byte 16");
static_assert(sizeof(ComInfo) == 19 * 4, "ComInfo words 0..18");
#endif

#endif
