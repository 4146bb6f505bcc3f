#include "port_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace rvlink {

namespace {

std::string realPath(const std::string &path)
{
    char real[PATH_MAX];
    return realpath(path.c_str(), real) ? std::string(real) : path;
}

bool alive(int pid)
{
    return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
}

// The PID an HDB UUCP lock file holds (ten digits, right aligned), or 0.
int lockFilePid(const std::string &file)
{
    std::ifstream in(file);
    long pid = 0;
    return in >> pid && pid > 0 && pid < INT_MAX ? int(pid) : 0;
}

// Makes `file` name this process, taking over a stale one; false with the
// holder's PID in `holder` when a live process has it.
bool takeLockFile(const std::string &file, int &holder)
{
    for (int attempt = 0; attempt < 2; ++attempt) {
        const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd >= 0) {
            char text[16];
            const int n = snprintf(text, sizeof text, "%10d\n", int(getpid()));
            const bool written = ::write(fd, text, size_t(n)) == n;
            ::close(fd);
            return written;
        }
        if (errno != EEXIST)
            return true;  // no lock folder we may write: flock alone holds it
        holder = lockFilePid(file);
        if (holder == int(getpid()))
            return true;
        if (alive(holder))
            return false;
        unlink(file.c_str());  // its process is gone: stale
    }
    return true;
}

}  // namespace

PortLock::~PortLock()
{
    release();
}

std::string PortLock::lockFileOf(const std::string &path, const std::string &dir)
{
    std::string name = realPath(path);
    if (name.compare(0, 5, "/dev/") == 0)
        name.erase(0, 5);
    for (char &c : name)
        if (c == '/')
            c = '_';
    return dir + "/LCK.." + name;
}

bool PortLock::claim(int fd, const std::string &path, std::string &error)
{
    release();
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        error = errno == EWOULDBLOCK ? inUse(path) : "cannot lock " + path + ": " + strerror(errno);
        return false;
    }
    const std::string file = lockFileOf(path);
    int holder = 0;
    if (!takeLockFile(file, holder)) {
        flock(fd, LOCK_UN);
        error = path + " is in use by " + describeProcess(holder) + " (its lock file " + file + ")";
        return false;
    }
    if (lockFilePid(file) == int(getpid()))
        lockFile_ = file;
    exclusive_ = ioctl(fd, TIOCEXCL) == 0;
    return true;
}

void PortLock::release(int fd)
{
    // A pseudo-terminal's other end may keep the terminal open after this
    // process has gone: its exclusive flag would outlive the claim.
    if (fd >= 0 && exclusive_)
        ioctl(fd, TIOCNXCL);
    exclusive_ = false;
    if (!lockFile_.empty() && lockFilePid(lockFile_) == int(getpid()))
        unlink(lockFile_.c_str());
    lockFile_.clear();
}

std::string PortLock::inUse(const std::string &path)
{
    int pid = flockHolder(path);
    if (pid == 0)
        pid = lockFilePid(lockFileOf(path));
    return path + " is in use by " +
           (alive(pid) ? describeProcess(pid) : std::string("another program"));
}

int flockHolder(const std::string &path)
{
    struct stat st;
    if (stat(path.c_str(), &st) != 0)
        return 0;
    // Lines of /proc/locks: "1: FLOCK  ADVISORY  WRITE 1234 00:19:6 0 EOF",
    // the device as major:minor in hex, then the inode.
    std::ifstream locks("/proc/locks");
    std::string line;
    while (std::getline(locks, line)) {
        std::istringstream words(line);
        std::string id, kind, advisory, access, where;
        int pid = 0;
        if (!(words >> id >> kind) || kind == "->" ||
            !(words >> advisory >> access >> pid >> where))
            continue;
        unsigned major = 0, minor = 0;
        unsigned long inode = 0;
        if (kind == "FLOCK" && sscanf(where.c_str(), "%x:%x:%lu", &major, &minor, &inode) == 3 &&
            major == major(st.st_dev) && minor == minor(st.st_dev) && inode == st.st_ino)
            return pid;
    }
    return 0;
}

std::string describeProcess(int pid)
{
    std::string name;
    std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
    std::getline(comm, name);
    return "process " + std::to_string(pid) + (name.empty() ? "" : " (" + name + ")");
}

}  // namespace rvlink
