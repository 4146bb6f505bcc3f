// A Quorvel controller on the line, played by libmodbus.
//
// ModbusServer answers Modbus RTU requests arriving on any file descriptor
// (a serial port, the master side of a pseudo-terminal, ...). It serves the
// whole 16-bit coil space (functions 0x01, 0x05, 0x0F) and the whole 16-bit
// holding-register space (0x03, 0x06, 0x10) for one or several stations;
// requests for other stations get no answer, broadcasts (station 0) are
// applied and never answered. Every accepted request goes through libmodbus's
// own length and CRC checks, so a frame it answers is a frame libmodbus
// considers valid.
//
// On request it misbehaves: a request can be lost on the line, and each
// reply can be dropped, sent with a bad CRC, truncated, sent from the wrong
// station, delayed, sent twice, damaged by noise or replaced by a Modbus
// exception, chosen at random with a fixed seed (repeatable), from a script
// (the n-th request gets the n-th fault) or forced for the next N replies.
// Functions and address ranges can be refused outright with the exception a
// controller gives for them. A logger, when set, hears of every frame read
// from the line and what became of it.
//
// Between libmodbus and the fd sits a model of the serial line (see
// line_model.h): off by default, so replies go out at once and whole; with
// pacing on, a request is handled only once its own wire time has passed
// and a reply leaves at the line's speed, after the controller's turnaround,
// in pieces if asked. Every fault goes through the same line. On a
// pseudo-terminal it can hold the poller to the line's speed and stop bits
// (LineSettings::ownSettingsOnly), as a controller's receiver does.
//
// A RequestFraming, when set, frames the line's bytes instead of Modbus RTU
// and says which RTU request each frame stands for (a remote link's request
// descriptions); those are then answered as above, faults and line alike.
//
// Typical use:
//   ModbusServer srv(fd);            // fd stays owned by the caller
//   srv.setStations({1, 2});
//   srv.setRegister(100, 0x1234);
//   srv.start();                     // serves on its own thread
//   ...                              // talk to it through the other end
//   srv.stop();                      // also done by the destructor
#ifndef RV_SIM_MODBUS_SERVER_H
#define RV_SIM_MODBUS_SERVER_H

#include <stdint.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "line_model.h"
#include "request_framing.h"

typedef struct _modbus modbus_t;
typedef struct _modbus_mapping_t modbus_mapping_t;

class ModbusServer {
public:
    enum Fault {
        FaultNone = 0,
        FaultDrop,          // the request is applied but no reply is sent
        FaultBadCrc,        // last reply byte flipped
        FaultTruncate,      // only the first 1..n-1 reply bytes are sent
        FaultWrongStation,  // a valid reply from another station
        FaultDelay,         // the reply is sent after delayMs
        FaultException,     // exception 0x04 (server failure) instead; not applied
        FaultLose,          // the request never arrives: not applied, no reply
        FaultTwice,         // the reply is sent, then the same bytes again twiceMs later
        FaultNoise          // a bit flipped or stray bytes added (addNoise)
    };
    static const int kFaultKinds = FaultNoise + 1;

    // The fault's name in scripts and in the log: ok, drop, crc, cut,
    // wrong-station, late, exception, lose, twice, noise.
    static const char *faultName(Fault f);

    // Shares of requests that misbehave, each 0..1, drawn in the order
    // below from one random number; their sum should not exceed 1.
    struct FaultRates {
        double drop = 0;
        double badCrc = 0;
        double truncate = 0;
        double wrongStation = 0;
        double delay = 0;
        double exception = 0;
        double lose = 0;
        double twice = 0;
        double noise = 0;
        int delayMs = 200;
        int twiceMs = 50;   // from the end of the first copy to the start of the second
        unsigned seed = 1;  // of every random choice: faults, cut lengths, noise, jitter
    };

    // Requests answered with an exception and not applied: a refused
    // function gets 0x01 (illegal function), a request touching a refused
    // coil or register 0x02 (illegal data address). The address lists are
    // indexed by coil or register address (empty: nothing refused).
    struct Refusals {
        std::vector<int> functions;
        std::vector<bool> coils;
        std::vector<bool> registers;
    };

    // One frame read from the line. address and count are -1 for
    // functions that carry none; station and function -1 for a frame that
    // was not understood.
    struct LogEntry {
        int station = -1;
        int function = -1;
        int address = -1;
        int count = -1;
        std::string outcome;  // "ok", "exception 0x02 (Illegal data address)", ...
        std::string frame;    // a framing's own words for the frame, or what
                              // arrived at other settings; empty for RTU frames
    };
    typedef std::function<void(const LogEntry &)> Logger;

    struct Counters {
        uint64_t requests = 0;  // complete frames read from the line and handled
        uint64_t accepted = 0;  // of those, addressed to us and valid for libmodbus
        uint64_t replies = 0;   // replies written to the line (even faulty ones)
        uint64_t faults = 0;    // requests lost and replies altered on purpose
        uint64_t damaged = 0;   // frames not answered for a bad CRC or sum, cut
                                // short, or sent at other line settings
    };

    explicit ModbusServer(int fd);
    ~ModbusServer();

    // Stations answered; default {1}. Any of 1..247.
    void setStations(const std::vector<int> &stations);

    // Random misbehaviour; the default rates are all zero.
    void setFaults(const FaultRates &rates);
    // The next n replies (broadcasts excluded) get fault f, ahead of the
    // script and the rates.
    void failNext(Fault f, int n, int delayMs = 200);
    // The n-th request for one of our stations from now (broadcasts
    // excluded) gets script[n - 1]; past its end the rates apply.
    void setScript(const std::vector<Fault> &script);
    // Timing of the line; set it before start().
    void setLine(const LineSettings &line);

    // Frames requests by `framing` instead of Modbus RTU; null for RTU. The
    // caller keeps it alive while serving; set it before start().
    void setFraming(const RequestFraming *framing);

    void setRefusals(const Refusals &refusals);
    // Called on the serving thread; set it before start().
    void setLogger(const Logger &logger);

    // Starts the serving thread; false if it could not be set up.
    bool start();
    // Stops and joins the serving thread at once, even mid-reply.
    void stop();

    // Mapping access, safe while serving. Addresses are 0..65535.
    uint16_t reg(int address) const;
    void setRegister(int address, uint16_t value);
    bool coil(int address) const;
    void setCoil(int address, bool on);

    Counters counters() const;
    // Waits until `requests` reaches n, i.e. the n-th frame has been applied
    // and answered (or ignored); false on timeout.
    bool waitForRequests(uint64_t n, int timeoutMs) const;
    // The last complete frame read from the line, whatever its station.
    std::vector<uint8_t> lastRequest() const;

private:
    ModbusServer(const ModbusServer &);
    ModbusServer &operator=(const ModbusServer &);

    void serve();
    bool readFrame(std::vector<uint8_t> &frame);
    size_t frameLength(const std::vector<uint8_t> &frame) const;
    bool readByte(uint8_t &byte, int timeoutMs);
    void drainLine();
    // A reply as it is to go out: the bytes, the controller's think time
    // before them and, for a reply sent twice, the pause before the copy.
    struct Outgoing {
        std::vector<uint8_t> bytes;
        int thinkMs = 0;
        int againMs = -1;
    };
    // `lastByteIn`: when the frame's last byte is in, on the line's timing.
    void handle(const std::vector<uint8_t> &frame,
                std::chrono::steady_clock::time_point lastByteIn);
    // What becomes of one RTU request; what to send back lands in `send`.
    // `exception`, when not 0, refuses it with that code.
    std::string handleFrame(std::vector<uint8_t> &frame, int station, int function, int address,
                            int count, int exception, Outgoing &send);
    // A request that came at other settings than the line's.
    std::string notUnderstood(const LineSettings &line, Outgoing &send);
    // The reply libmodbus made for `fault` altered as it asks; "" or what was done.
    std::string alter(Fault fault, int delayMs, int station, std::vector<uint8_t> &reply);
    void applyRequest(const uint8_t *req, int length);
    Fault chooseFault(int &delayMs);
    int refusal(int function, int address, int count) const;
    LineSettings line() const;
    // Writes `bytes` as the line would deliver them; false once stopping.
    // Writes `bytes` at the line's pace from `start` on.
    bool sendPaced(const std::vector<uint8_t> &bytes, const LineSettings &line,
                   std::chrono::steady_clock::time_point start);
    void writeLine(const uint8_t *data, size_t length);
    void pause(int ms);
    // Sleeps `us` microseconds unless stopped first; false once stopping.
    bool pauseUs(long long us);

    int fd_;
    int pipe_[2];
    int wake_[2];
    modbus_t *ctx_;
    modbus_mapping_t *map_;
    mutable std::mutex mapMutex_;
    mutable std::mutex stateMutex_;
    std::vector<int> stations_;
    FaultRates rates_;
    LineSettings line_;
    std::vector<Fault> script_;
    size_t scriptAt_;
    Refusals refusals_;
    Logger logger_;
    const RequestFraming *framing_;
    std::mt19937 rng_;
    Fault forced_;
    int forcedLeft_;
    int forcedDelayMs_;
    std::vector<uint8_t> last_;
    std::atomic<uint64_t> requests_, accepted_, replies_, faults_, damaged_;
    std::atomic<bool> running_;
    std::thread thread_;
};

#endif
