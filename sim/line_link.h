// rvsim's --link PATH: a symbolic link to the line, owned by one running
// rvsim at a time. The owner holds a lock on PATH.lock (flock, released by
// the kernel however the process ends), so a link whose lock nobody holds
// was left by an rvsim that died and may be replaced.
#ifndef RVSIM_LINE_LINK_H
#define RVSIM_LINE_LINK_H

#include <string>

class LineLink {
public:
    LineLink() = default;
    ~LineLink();
    LineLink(const LineLink &) = delete;
    LineLink &operator=(const LineLink &) = delete;

    // Takes PATH for this process; false with a reason when a running rvsim
    // holds it, when PATH is something other than a symbolic link, or when
    // the lock file cannot be made.
    bool claim(const std::string &path, std::string &error);
    // Makes the claimed PATH a link to `target`, replacing a left-over one.
    bool point(const std::string &target, std::string &error);
    // Removes the link and the lock file; done by the destructor too.
    void release();

private:
    std::string path_, lockPath_, target_;
    int lockFd_ = -1;
};

#endif
