// A line's frames in a pcapng file that Wireshark's Modbus/RTU dissector
// decodes: link type 147 (USER0, mapped to "mbrtu" by kTsharkOptions), one
// packet per frame, timed by its first byte. Each packet says how it was
// heard, from the master's side: requests outbound, replies inbound, noise
// neither; a bad CRC carries the CRC-error flag and a reply cut short the
// packet-too-short flag; and a comment names it ("bad CRC", "noise") with
// when its last byte came, so a replay times it as it was heard live.
#ifndef RV_LINK_CAPTURE_FILE_H
#define RV_LINK_CAPTURE_FILE_H

#include <stdio.h>

#include <string>
#include <vector>

#include "frame_finder.h"

namespace rvlink {

// The link type the packets are written with: USER0.
const int kCaptureLinkType = 147;

// What tshark (Wireshark 4.0 and later) needs to decode these files, with
// each frame's CRC checked: tshark -r FILE <these>. A literal, so help
// texts can be built with it.
#define RV_TSHARK_OPTIONS                                                                          \
    "-o 'uat:user_dlts:\"User 0 (DLT=147)\",\"mbrtu\",\"0\",\"\",\"0\",\"\"' "                     \
    "-o mbrtu.crc_verification:TRUE"
const char *const kTsharkOptions = RV_TSHARK_OPTIONS;

class CaptureWriter {
public:
    CaptureWriter() {}
    ~CaptureWriter() { close(); }
    CaptureWriter(const CaptureWriter &) = delete;
    CaptureWriter &operator=(const CaptureWriter &) = delete;

    // Creates (or empties) `path`; false with a one-line reason.
    bool open(const std::string &path, std::string &error);
    // One packet, written through at once; false when the file failed.
    bool write(const BusFrame &frame);
    void close();
    bool isOpen() const { return file_ != nullptr; }

private:
    FILE *file_ = nullptr;
};

// A packet as it was heard: its bytes, and when its first and last byte came.
struct CapturedFrame {
    Bytes bytes;
    long long firstUs = 0;
    long long lastUs = 0;
};

// The packets of a pcapng or pcap file of link type 147, in file order;
// false with a one-line reason for a file that is not one.
bool readCapture(const std::string &path, std::vector<CapturedFrame> &out, std::string &error);

}  // namespace rvlink

#endif
