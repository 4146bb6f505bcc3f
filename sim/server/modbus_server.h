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
// On request it misbehaves: each reply can be dropped, sent with a bad CRC,
// truncated, sent from the wrong station, delayed or replaced by a Modbus
// exception, chosen at random with a fixed seed (repeatable) or forced for
// the next N replies. Functions and address ranges can be refused outright
// with the exception a controller gives for them. A logger, when set, hears
// of every frame read from the line and what became of it.
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
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

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
        FaultException      // exception 0x04 (server failure) instead; not applied
    };

    // Shares of replies that misbehave, each 0..1, drawn in the order
    // below from one random number; their sum should not exceed 1.
    struct FaultRates {
        double drop = 0;
        double badCrc = 0;
        double truncate = 0;
        double wrongStation = 0;
        double delay = 0;
        double exception = 0;
        int delayMs = 200;
        unsigned seed = 1;
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
    // functions that carry none.
    struct LogEntry {
        int station;
        int function;
        int address;
        int count;
        std::string outcome;  // "ok", "exception 0x02 (Illegal data address)", ...
    };
    typedef std::function<void(const LogEntry &)> Logger;

    struct Counters {
        uint64_t requests = 0;  // complete frames read from the line and handled
        uint64_t accepted = 0;  // of those, addressed to us and valid for libmodbus
        uint64_t replies = 0;   // replies written to the line (even faulty ones)
        uint64_t faults = 0;    // replies altered, delayed or dropped on purpose
    };

    explicit ModbusServer(int fd);
    ~ModbusServer();

    // Stations answered; default {1}. Any of 1..247.
    void setStations(const std::vector<int> &stations);

    // Random misbehaviour; the default rates are all zero.
    void setFaults(const FaultRates &rates);
    // The next n replies (broadcasts excluded) get fault f, ahead of rates.
    void failNext(Fault f, int n, int delayMs = 200);

    void setRefusals(const Refusals &refusals);
    // Called on the serving thread; set it before start().
    void setLogger(const Logger &logger);

    // Starts the serving thread; false if it could not be set up.
    bool start();
    // Stops and joins the serving thread (within about 50 ms).
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
    bool readByte(uint8_t &byte, int timeoutMs);
    void drainLine();
    void handle(std::vector<uint8_t> &frame);
    // What becomes of one frame; the bytes to send back land in `send`.
    std::string handleFrame(std::vector<uint8_t> &frame, int station, int function, int address,
                            int count, std::vector<uint8_t> &send);
    void applyRequest(const uint8_t *req, int length);
    Fault chooseFault(int &delayMs);
    int refusal(int function, int address, int count) const;
    void writeLine(const uint8_t *data, size_t length);
    void pause(int ms);

    int fd_;
    int pipe_[2];
    int wake_[2];
    modbus_t *ctx_;
    modbus_mapping_t *map_;
    mutable std::mutex mapMutex_;
    mutable std::mutex stateMutex_;
    std::vector<int> stations_;
    FaultRates rates_;
    Refusals refusals_;
    Logger logger_;
    std::mt19937 rng_;
    Fault forced_;
    int forcedLeft_;
    int forcedDelayMs_;
    std::vector<uint8_t> last_;
    std::atomic<uint64_t> requests_, accepted_, replies_, faults_;
    std::atomic<bool> running_;
    std::thread thread_;
};

#endif
