// A line's traffic into a capture file: what the line sends and receives
// goes through a frame finder, as a listener's bytes do, and each frame it
// finds is written as it is found.
#ifndef RV_LINK_CAPTURE_TAP_H
#define RV_LINK_CAPTURE_TAP_H

#include <mutex>
#include <string>

#include "capture_file.h"
#include "frame_finder.h"
#include "line_tap.h"

namespace rvlink {

class CaptureTap : public LineTap {
public:
    explicit CaptureTap(const FinderOptions &options) : finder_(options) {}
    ~CaptureTap() override { close(); }

    bool open(const std::string &path, std::string &error) { return file_.open(path, error); }
    void sent(const std::uint8_t *data, std::size_t n, long long atUs) override
    {
        heard(data, n, atUs);
    }
    void received(const std::uint8_t *data, std::size_t n, long long atUs) override
    {
        heard(data, n, atUs);
    }
    // Writes what is still held and closes the file.
    void close();
    // False once a write failed.
    bool good() const { return good_; }

private:
    void heard(const std::uint8_t *data, std::size_t n, long long atUs);
    void write();

    std::mutex mutex_;
    FrameFinder finder_;
    CaptureWriter file_;
    bool good_ = true;
};

}  // namespace rvlink

#endif
