#include "writer.h"

#include <poll.h>
#include <stdio.h>
#include <unistd.h>

#include <QByteArray>
#include <QStringList>

#include "options.h"

StdinWriter::StdinWriter(WriteTracker &tracker, bool multiStation, int station,
                         const ValueFormat &format, bool echoMessages)
    : tracker_(tracker),
      multiStation_(multiStation),
      station_(station),
      format_(format),
      echo_(echoMessages)
{}

void StdinWriter::start()
{
    thread_ = std::thread(&StdinWriter::run, this);
}

void StdinWriter::stop()
{
    stop_ = true;
    if (thread_.joinable())
        thread_.join();
}

QString StdinWriter::lastMessage() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return message_;
}

void StdinWriter::handleLine(const QString &input)
{
    const QString line = input.trimmed();
    if (line.isEmpty())
        return;
    if (line == "q" || line == "quit") {
        quit_ = true;
        return;
    }
    const QStringList words = line.split(' ');
    for (int i = 0; i < words.size(); ++i) {
        if (words.at(i).isEmpty())
            continue;
        WriteSpec w;
        QString message;
        if (parseWriteSpec(words.at(i), multiStation_, w, message, format_)) {
            message = stationPrefixRefusal(w.target, multiStation_, station_);
            if (message.isEmpty())
                tracker_.queue(w, message);
            else
                message = "write " + words.at(i) + ": refused (" + message + ")";
        }
        if (echo_)
            fprintf(stdout, "rvpoll: %s\n", message.toLocal8Bit().constData()), fflush(stdout);
        std::lock_guard<std::mutex> lock(mutex_);
        message_ = message;
    }
}

void StdinWriter::run()
{
    QByteArray pending;
    while (!stop_ && !quit_) {
        // Poll so that stop() never waits on a read that will not return.
        pollfd p = {0, POLLIN, 0};
        const int r = poll(&p, 1, 100);
        if (r <= 0)
            continue;
        char buf[256];
        const ssize_t n = read(0, buf, sizeof buf);
        if (n <= 0)
            return;  // end of input: keep polling, stop listening
        pending.append(buf, int(n));
        int nl;
        while ((nl = pending.indexOf('\n')) >= 0) {
            handleLine(QString::fromLocal8Bit(pending.left(nl)));
            ++lines_;
            pending.remove(0, nl + 1);
        }
    }
}
