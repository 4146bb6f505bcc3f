// rvsim (or any command) run in the background, and the small file helpers
// the tool tests share. The including test defines RVSIM_PATH.
#ifndef RV_TEST_RVSIM_PROCESS_H
#define RV_TEST_RVSIM_PROCESS_H

#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <vector>
#include <iterator>
#include <string>

// A new file in /tmp holding `text`.
inline std::string scratchFile(const std::string &text = "")
{
    char name[] = "/tmp/rv-tools-test-XXXXXX";
    close(mkstemp(name));
    std::ofstream(name) << text;
    return name;
}

inline std::string readFile(const std::string &name)
{
    std::ifstream f(name);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

// Those of `parts` that `text` lacks, each in brackets; empty when it has them all.
inline std::string missing(const std::string &text, const std::vector<const char *> &parts)
{
    std::string lacks;
    for (const char *part : parts)
        if (text.find(part) == std::string::npos)
            lacks += std::string("[") + part + "]";
    return lacks;
}

// A shell command run in the background, its output going to a file.
class Background {
public:
    // `apart`: standard error to a file of its own, not with the output.
    explicit Background(const std::string &command, bool apart = false)
    {
        const std::string sh =
            command + " >" + log_ + " 2>" + (apart ? err_ : "&1") + " </dev/null";
        if ((pid_ = fork()) == 0) {
            execl("/bin/sh", "sh", "-c", sh.c_str(), static_cast<char *>(nullptr));
            _exit(127);
        }
    }
    ~Background()
    {
        finish(SIGKILL);
        unlink(log_.c_str());
        unlink(err_.c_str());
    }
    Background(const Background &) = delete;
    Background &operator=(const Background &) = delete;

    std::string output() const { return readFile(log_); }
    std::string errors() const { return readFile(err_); }
    // Waits up to ten seconds for the output to show all of `parts`.
    bool waitFor(const std::vector<const char *> &parts) const
    {
        for (int waited = 0; waited < 10000; waited += 20, usleep(20000))
            if (missing(output(), parts).empty())
                return true;
        return false;
    }
    // SIGTERM, and SIGKILL after ten seconds; returns the exit status (0 on
    // a clean stop).
    int stop() { return finish(SIGTERM); }
    // `signo`, then SIGKILL after ten seconds; the exit status, or -1.
    int finish(int signo)
    {
        int status = 0;
        if (pid_ > 0 && kill(pid_, signo) == 0) {
            pid_t done = 0;
            for (int waited = 0; waited < 10000 && done == 0; waited += 20, usleep(20000))
                done = waitpid(pid_, &status, WNOHANG);
            if (done == 0 && kill(pid_, SIGKILL) == 0)
                done = waitpid(pid_, &status, 0);
            status_ = done == pid_ && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        pid_ = -1;
        return status_;
    }

private:
    const std::string log_ = scratchFile(), err_ = scratchFile();
    pid_t pid_ = -1;
    int status_ = -1;
};

// rvsim with `args`; path() is its line.
class Sim : public Background {
public:
    explicit Sim(const std::string &args = "") : Background("exec '" RVSIM_PATH "' " + args)
    {
        for (int waited = 0; waited < 10000 && path_.empty(); waited += 20, usleep(20000)) {
            const std::string t = output();
            const size_t at = t.find("listening on ");
            if (at != std::string::npos && t.find(' ', at + 13) != std::string::npos)
                path_ = t.substr(at + 13, t.find(' ', at + 13) - at - 13);
        }
    }

    const std::string &path() const { return path_; }

private:
    std::string path_;
};

#endif
