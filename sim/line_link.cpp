#include "line_link.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The pid an owner wrote into its lock file, for the message; 0 if none.
long ownerPid(int fd)
{
    char text[32] = {};
    const ssize_t n = pread(fd, text, sizeof text - 1, 0);
    return n > 0 ? strtol(text, nullptr, 10) : 0;
}

bool sameFile(int fd, const std::string &path)
{
    struct stat held, named;
    return fstat(fd, &held) == 0 && stat(path.c_str(), &named) == 0 &&
           held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

}  // namespace

LineLink::~LineLink()
{
    release();
}

bool LineLink::claim(const std::string &path, std::string &error)
{
    const std::string lockPath = path + ".lock";
    // An owner removes its lock file on the way out: a lock taken on a file
    // that is no longer the one at lockPath guards nothing, so try again.
    for (int attempt = 0; attempt < 10 && lockFd_ < 0; ++attempt) {
        const int fd = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
        if (fd < 0) {
            error = "cannot create the lock file " + lockPath + ": " + strerror(errno);
            return false;
        }
        if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
            const int why = errno;
            const long pid = ownerPid(fd);
            close(fd);
            error = why == EWOULDBLOCK ? "--link " + path + " is in use by a running rvsim" +
                                             (pid > 0 ? " (pid " + std::to_string(pid) + ")" : "")
                                       : "cannot lock " + lockPath + ": " + strerror(why);
            return false;
        }
        if (sameFile(fd, lockPath))
            lockFd_ = fd;
        else
            close(fd);
    }
    if (lockFd_ < 0) {
        error = "cannot lock " + lockPath + ": it keeps being replaced";
        return false;
    }
    path_ = path;
    lockPath_ = lockPath;
    const std::string pid = std::to_string(getpid()) + "\n";
    // The pid only makes a refusal clearer; the lock is what counts.
    const bool noted = ftruncate(lockFd_, 0) == 0 &&
                       pwrite(lockFd_, pid.data(), pid.size(), 0) == ssize_t(pid.size());
    (void)noted;
    struct stat there;
    if (lstat(path.c_str(), &there) == 0 && !S_ISLNK(there.st_mode)) {
        error = path + " exists and is not a symbolic link; not replacing it";
        release();
        return false;
    }
    return true;
}

bool LineLink::point(const std::string &target, std::string &error)
{
    unlink(path_.c_str());  // left by an rvsim that is gone: its lock was free
    if (symlink(target.c_str(), path_.c_str()) != 0) {
        error = "cannot create the link " + path_ + ": " + strerror(errno);
        return false;
    }
    target_ = target;
    return true;
}

void LineLink::release()
{
    if (lockFd_ < 0)
        return;
    // Still holding the lock, so no other rvsim has put its own link there.
    if (!target_.empty())
        unlink(path_.c_str());
    unlink(lockPath_.c_str());
    close(lockFd_);
    lockFd_ = -1;
    target_.clear();
}
