// The serial line to the controller: opened and configured through
// libserialport; one request/reply exchange at a time, the reply framed by
// its expected length and the silent gap that ends an RTU frame.
#ifndef RVPOLL_SERIAL_LINK_H
#define RVPOLL_SERIAL_LINK_H

#include <QByteArray>
#include <string>

struct sp_port;

struct LinkSettings {
    std::string port;
    int baud = 19200;
    int dataBits = 8;
    char parity = 'E';  // 'N', 'E' or 'O'
    int stopBits = 1;
    int timeoutMs = 200;       // wait for the first reply byte
    int gapMs = -1;            // silence that ends a reply; -1 = from the baud rate
    bool discardEcho = false;  // 2-wire adapters that hear their own frame
    bool rs485 = false;        // the kernel's RS-485 mode (TIOCSRS485)
    int rtsDelayBefore = 0;    // ms, in RS-485 mode
    int rtsDelayAfter = 0;
};

// Inter-frame gap: 3.5 characters of 11 bits, 1.75 ms above 19200 baud.
int frameGapMs(int baud);

// Bytes a reply needs given what has arrived: the expected length, or 5 for
// a Modbus exception reply (function code with its top bit set).
int replyTarget(const QByteArray &received, int replyLength);

class SerialLink {
public:
    enum Status { Ok, Lost };

    SerialLink() {}
    ~SerialLink() { close(); }

    bool open(const LinkSettings &settings, std::string &error);
    void close();
    bool isOpen() const { return port_ != nullptr || fd_ >= 0; }

    // Flushes stale input, sends `frame`, waits for it to drain and collects
    // the reply: until replyLength bytes arrived, the gap passed after the
    // last byte, or the timeout passed with nothing. replyLength 0
    // (broadcast) returns at once with an empty reply; -1 reads until the
    // gap. Lost means the device failed (unplugged): close and reopen.
    Status transact(const QByteArray &frame, int replyLength, QByteArray &reply);

private:
    SerialLink(const SerialLink &);
    SerialLink &operator=(const SerialLink &);

    bool setRs485(std::string &error);
    bool writeAll(const QByteArray &frame);
    void flushInput();
    int readNext(char *buf, int max, int timeoutMs);  // 0 timeout, -1 error
    bool readUntil(QByteArray &reply, int replyLength, int firstByteMs);

    LinkSettings settings_;
    sp_port *port_ = nullptr;
    int fd_ = -1;  // pseudo-terminals, which libserialport does not list
    int gapMs_ = 2;
};

#endif
