// One program on a serial device at a time: two pollers on one line garble
// each other's replies without a word. The claim is what current serial
// tools check and honour: an exclusive flock on the open device (the kernel
// drops it however the process ends), TIOCEXCL (no further opens, root
// excepted) and a UUCP lock file /run/lock/LCK..<device> with the holder's
// PID, which older tools look for; one whose process is gone is stale and
// taken over.
#ifndef RV_LINK_PORT_LOCK_H
#define RV_LINK_PORT_LOCK_H

#include <string>

namespace rvlink {

class PortLock {
public:
    PortLock() = default;
    ~PortLock();
    PortLock(const PortLock &) = delete;
    PortLock &operator=(const PortLock &) = delete;

    // Claims `fd`, open on `path`, for this process; false with "PATH is in
    // use by process N (NAME)" when another holds it.
    bool claim(int fd, const std::string &path, std::string &error);
    // Gives the device up again (also done by the destructor); `fd` is the
    // one claimed, still open.
    void release(int fd = -1);

    // "PATH is in use by process N (NAME)", naming the holder when it can
    // be found.
    static std::string inUse(const std::string &path);
    // The UUCP lock file of a device: /run/lock/LCK..ttyUSB0, and for
    // /dev/pts/3 LCK..pts_3.
    static std::string lockFileOf(const std::string &path, const std::string &dir = "/run/lock");

private:
    std::string lockFile_;
    bool exclusive_ = false;
};

// The process holding a flock on `path`, or 0 when none is found.
int flockHolder(const std::string &path);
// "process 1234 (rvpoll)".
std::string describeProcess(int pid);

}  // namespace rvlink

#endif
