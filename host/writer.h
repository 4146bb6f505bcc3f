// Writes typed on standard input, handed to the driver through the write
// tracker (SetRegisterData) as a runtime's other threads would.
#ifndef RVPOLL_WRITER_H
#define RVPOLL_WRITER_H

#include <QString>
#include <atomic>
#include <mutex>
#include <thread>

#include "write_tracker.h"

// Reads "D100=0x1234" lines from standard input on its own thread until
// end of input or stop(); "q" or "quit" asks the program to finish.
class StdinWriter {
public:
    // `station` is the one station polled without `multiStation`.
    StdinWriter(WriteTracker &tracker, bool multiStation, int station, const ValueFormat &format,
                bool echoMessages);
    ~StdinWriter() { stop(); }

    void start();
    void stop();
    bool quitRequested() const { return quit_; }
    // The last message, for the status area of the live view.
    QString lastMessage() const;
    // Lines read so far, so the live view knows when to show a new prompt.
    long long linesHandled() const { return lines_; }

private:
    StdinWriter(const StdinWriter &);
    StdinWriter &operator=(const StdinWriter &);

    void run();
    void handleLine(const QString &line);

    WriteTracker &tracker_;
    bool multiStation_;
    int station_;
    ValueFormat format_;
    bool echo_;
    std::atomic<bool> stop_{false};
    std::atomic<bool> quit_{false};
    std::atomic<long long> lines_{0};
    mutable std::mutex mutex_;
    QString message_;
    std::thread thread_;
};

#endif
