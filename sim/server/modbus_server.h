// A Quorvel controller on the line, played by libmodbus.
//
// ModbusServer answers requests arriving on any file descriptor (a serial
// port, either side of a pseudo-terminal, ...) for one or several stations;
// requests for other stations get no answer, broadcasts (station 0) are
// applied and never answered. It ties together four parts, each in its own
// file:
//   request_framing.h  where a request ends and the RTU request it stands
//                      for (rtu_framing.h, remote_framing.h)
//   modbus_bridge.h    libmodbus's checks, the memory, replies, refusals
//   fault_plan.h       which fault each request meets, seeded
//   line_port.h        the line's timing, and sends left for later
// A logger, when set, hears of every frame read from the line and what
// became of it.
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
#include <string>
#include <thread>
#include <vector>

#include "fault_plan.h"
#include "line_port.h"
#include "modbus_bridge.h"
#include "rtu_framing.h"

class ModbusServer {
public:
    typedef FaultPlan::Fault Fault;
    typedef FaultPlan::Rates FaultRates;
    typedef ModbusBridge::Refusals Refusals;

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
        uint64_t replies = 0;   // frames written to the line (even faulty ones)
        uint64_t faults = 0;    // requests that met a fault on purpose
        uint64_t damaged = 0;   // frames not answered for a bad CRC or sum, cut
                                // short, or sent at other line settings
    };

    explicit ModbusServer(int fd);
    ~ModbusServer();
    ModbusServer(const ModbusServer &) = delete;
    ModbusServer &operator=(const ModbusServer &) = delete;

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

    // Starts serving on its own thread; false if it could not be set up.
    bool start();
    // Stops at once, even mid-reply; replies left for later are dropped.
    void stop();

    // Memory access, safe while serving. Addresses are 0..65535.
    uint16_t reg(int address) const { return bridge_.reg(address); }
    void setRegister(int address, uint16_t value) { bridge_.setRegister(address, value); }
    bool coil(int address) const { return bridge_.coil(address); }
    void setCoil(int address, bool on) { bridge_.setCoil(address, on); }

    Counters counters() const;

private:
    typedef LinePort::Clock Clock;
    // What goes back for a request, and when.
    struct Answer {
        std::vector<uint8_t> bytes;
        bool reply = true;       // a reply, not noise
        int thinkMs = 0;         // after the request's last byte
        bool meanwhile = false;  // sent while the server answers later requests
        int copyMs = -1;         // the same bytes again this long after the first
    };

    void serve();
    void handle(const RequestFraming &framing, const std::vector<uint8_t> &frame,
                Clock::time_point lastByteIn);
    // What becomes of one RTU request; what to send back lands in `a`.
    std::string answer(const RequestFraming &framing, const RequestFraming::Translation &t,
                       LogEntry &e, Answer &a);
    // The station a request to `station` is heard by; -1 for none of ours.
    int heardBy(int station) const;

    LinePort port_;
    ModbusBridge bridge_;
    RtuFraming rtu_;
    mutable std::mutex stateMutex_;  // stations_, plan_, framing_, logger_
    std::vector<int> stations_;
    FaultPlan plan_;
    const RequestFraming *framing_;
    Logger logger_;
    std::atomic<uint64_t> requests_, accepted_, faults_, damaged_;
    std::thread thread_;
};

#endif
