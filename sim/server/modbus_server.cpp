#include "modbus_server.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <unistd.h>

#include <time.h>

#include <algorithm>
#include <chrono>

#include <modbus/modbus.h>

#include "pty_settings.h"

namespace {

// Gap after which a frame that stopped arriving is given up. Generous, so
// that slow emulated runs are not mistaken for broken frames.
const int kByteTimeoutMs = 100;
// How often the serving loop looks at the stop flag when the line is idle.
const int kIdlePollMs = 50;

// Bytes of a request after station and function code, as a Modbus server
// frames it: fixed part by function, then the byte count it announces.
size_t requestLength(const std::vector<uint8_t> &f)
{
    if (f.size() < 2)
        return 4;
    size_t meta = 0;
    size_t countAt = 0;  // position of the announced byte count, 0 none
    switch (f[1]) {
    case 0x01:
    case 0x02:
    case 0x03:
    case 0x04:
    case 0x05:
    case 0x06: meta = 4; break;
    case 0x0F:
    case 0x10:
        meta = 5;
        countAt = 6;
        break;
    case 0x17:
        meta = 9;
        countAt = 10;
        break;
    default: break;
    }
    size_t length = 2 + meta + 2;
    if (countAt) {
        if (f.size() <= countAt)
            return countAt + 1;
        length += f[countAt];
    }
    return length;
}

// Function, first address and count a request names; -1 where it has none.
void requestTarget(const std::vector<uint8_t> &f, int &function, int &address, int &count)
{
    function = f.size() > 1 ? f[1] : -1;
    address = count = -1;
    if (f.size() < 6)
        return;
    switch (function) {
    case 0x01:
    case 0x02:
    case 0x03:
    case 0x04:
    case 0x0F:
    case 0x10:
        address = f[2] << 8 | f[3];
        count = f[4] << 8 | f[5];
        break;
    case 0x05:
    case 0x06:
        address = f[2] << 8 | f[3];
        count = 1;
        break;
    default: break;
    }
}

// "exception 0x02 (Illegal data address)", in libmodbus's words.
std::string exceptionText(int code)
{
    char hex[8];
    snprintf(hex, sizeof hex, "0x%02X", code);
    return std::string("exception ") + hex + " (" + modbus_strerror(MODBUS_ENOBASE + code) + ")";
}

void drainFd(int fd)
{
    uint8_t buf[512];
    while (read(fd, buf, sizeof buf) > 0) {
    }
}

}  // namespace

ModbusServer::ModbusServer(int fd)
    : fd_(fd),
      ctx_(nullptr),
      map_(nullptr),
      stations_(1, 1),
      scriptAt_(0),
      framing_(nullptr),
      rng_(1),
      forced_(FaultNone),
      forcedLeft_(0),
      forcedDelayMs_(0),
      requests_(0),
      accepted_(0),
      replies_(0),
      faults_(0),
      damaged_(0),
      running_(false)
{
    pipe_[0] = pipe_[1] = wake_[0] = wake_[1] = -1;
    map_ = modbus_mapping_new(65536, 0, 65536, 0);
}

ModbusServer::~ModbusServer()
{
    stop();
    if (ctx_)
        modbus_free(ctx_);
    if (map_)
        modbus_mapping_free(map_);
    for (int fd : {pipe_[0], pipe_[1], wake_[0], wake_[1]})
        if (fd >= 0)
            close(fd);
}

void ModbusServer::setStations(const std::vector<int> &stations)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    stations_.clear();
    for (int s : stations)
        if (s >= 1 && s <= 247)
            stations_.push_back(s);
}

void ModbusServer::setFaults(const FaultRates &rates)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    rates_ = rates;
    rng_.seed(rates.seed);
}

void ModbusServer::failNext(Fault f, int n, int delayMs)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    forced_ = f;
    forcedLeft_ = std::max(0, n);
    forcedDelayMs_ = delayMs;
}

void ModbusServer::setScript(const std::vector<Fault> &script)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    script_ = script;
    scriptAt_ = 0;
}

void ModbusServer::setLine(const LineSettings &line)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    line_ = line;
}

LineSettings ModbusServer::line() const
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    return line_;
}

const char *ModbusServer::faultName(Fault f)
{
    static const char *const names[kFaultKinds] = {
        "ok", "drop", "crc", "cut", "wrong-station", "late", "exception", "lose", "twice", "noise"};
    return f >= 0 && f < kFaultKinds ? names[f] : "?";
}

void ModbusServer::setRefusals(const Refusals &refusals)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    refusals_ = refusals;
}

void ModbusServer::setFraming(const RequestFraming *framing)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    framing_ = framing;
}

void ModbusServer::setLogger(const Logger &logger)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    logger_ = logger;
}

bool ModbusServer::start()
{
    if (running_ || !map_ || fd_ < 0)
        return false;
    if (!ctx_) {
        // The device name is never opened: the line is handed over as a
        // socket, and libmodbus only reads and writes it.
        ctx_ = modbus_new_rtu("/dev/null", 19200, 'E', 8, 1);
        if (!ctx_)
            return false;
        modbus_set_byte_timeout(ctx_, 0, kByteTimeoutMs * 1000);
        modbus_set_indication_timeout(ctx_, 0, kByteTimeoutMs * 1000);
    }
    if (pipe_[0] < 0 && pipe2(pipe_, O_NONBLOCK | O_CLOEXEC) != 0)
        return false;
    if (wake_[0] < 0 && pipe2(wake_, O_NONBLOCK | O_CLOEXEC) != 0)
        return false;
    drainFd(wake_[0]);
    running_ = true;
    thread_ = std::thread(&ModbusServer::serve, this);
    return true;
}

void ModbusServer::stop()
{
    if (!running_.exchange(false))
        return;
    if (wake_[1] >= 0) {
        const char b = 1;
        ssize_t ignored = write(wake_[1], &b, 1);
        (void)ignored;
    }
    if (thread_.joinable())
        thread_.join();
}

uint16_t ModbusServer::reg(int address) const
{
    std::lock_guard<std::mutex> hold(mapMutex_);
    return map_ ? map_->tab_registers[address & 0xFFFF] : 0;
}

void ModbusServer::setRegister(int address, uint16_t value)
{
    std::lock_guard<std::mutex> hold(mapMutex_);
    if (map_)
        map_->tab_registers[address & 0xFFFF] = value;
}

bool ModbusServer::coil(int address) const
{
    std::lock_guard<std::mutex> hold(mapMutex_);
    return map_ && map_->tab_bits[address & 0xFFFF] != 0;
}

void ModbusServer::setCoil(int address, bool on)
{
    std::lock_guard<std::mutex> hold(mapMutex_);
    if (map_)
        map_->tab_bits[address & 0xFFFF] = on ? 1 : 0;
}

ModbusServer::Counters ModbusServer::counters() const
{
    Counters c;
    c.requests = requests_;
    c.accepted = accepted_;
    c.replies = replies_;
    c.faults = faults_;
    c.damaged = damaged_;
    return c;
}

bool ModbusServer::waitForRequests(uint64_t n, int timeoutMs) const
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (requests_ < n) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

std::vector<uint8_t> ModbusServer::lastRequest() const
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    return last_;
}

bool ModbusServer::readByte(uint8_t &byte, int timeoutMs)
{
    pollfd p[2] = {{fd_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
    if (poll(p, 2, timeoutMs) <= 0 || !running_)
        return false;
    if (p[0].revents & POLLIN)
        return read(fd_, &byte, 1) == 1;
    if (p[0].revents & (POLLHUP | POLLERR))
        pause(kIdlePollMs);  // the other end is closed: do not spin
    return false;
}

bool ModbusServer::readFrame(std::vector<uint8_t> &frame)
{
    frame.clear();
    uint8_t b;
    if (!readByte(b, kIdlePollMs))
        return false;
    frame.push_back(b);
    // Asked again only once the bytes it asked for are in: a framing may
    // look through the whole frame to find its end.
    for (size_t need = frameLength(frame); frame.size() < need;) {
        if (!readByte(b, kByteTimeoutMs)) {
            // A frame that stopped half-way is noise; a framing of its own
            // is told of it, for the log.
            if (!framing_)
                frame.clear();
            return framing_ != nullptr;
        }
        frame.push_back(b);
        if (frame.size() == need)
            need = frameLength(frame);
    }
    return true;
}

size_t ModbusServer::frameLength(const std::vector<uint8_t> &frame) const
{
    if (framing_)
        return framing_->frameLength(frame);
    return std::min<size_t>(requestLength(frame), MODBUS_RTU_MAX_ADU_LENGTH);
}

void ModbusServer::drainLine()
{
    // After a bad frame, skip to the next silence so the following request
    // is read from its first byte.
    uint8_t b;
    while (running_ && readByte(b, 10)) {
    }
}

void ModbusServer::serve()
{
    std::vector<uint8_t> frame;
    while (running_) {
        if (readFrame(frame)) {
            // The pseudo-terminal delivered the frame at once; on the line
            // its last byte arrives only after the frame's wire time. The
            // reply is timed from then, while the frame is handled at once,
            // so handling and waking up add nothing to the line's timing.
            handle(frame, std::chrono::steady_clock::now() +
                              std::chrono::microseconds(wireTimeUs(line(), frame.size())));
            ++requests_;  // counted once handled, so waiters see its effects
        }
    }
}

ModbusServer::Fault ModbusServer::chooseFault(int &delayMs)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    if (forcedLeft_ > 0) {
        --forcedLeft_;
        delayMs = forcedDelayMs_;
        return forced_;
    }
    delayMs = rates_.delayMs;
    if (scriptAt_ < script_.size())
        return script_[scriptAt_++];
    // New kinds go last, so a seed draws the same faults as before.
    const double shares[] = {rates_.drop,         rates_.badCrc, rates_.truncate,
                             rates_.wrongStation, rates_.delay,  rates_.exception,
                             rates_.lose,         rates_.twice,  rates_.noise};
    const Fault kinds[] = {FaultDrop,         FaultBadCrc, FaultTruncate,
                           FaultWrongStation, FaultDelay,  FaultException,
                           FaultLose,         FaultTwice,  FaultNoise};
    double sum = 0;
    for (double s : shares)
        sum += s;
    if (sum <= 0)
        return FaultNone;
    const double u = std::uniform_real_distribution<double>(0.0, 1.0)(rng_);
    double edge = 0;
    for (int i = 0; i < 9; ++i) {
        edge += shares[i];
        if (u < edge)
            return kinds[i];
    }
    return FaultNone;
}

void ModbusServer::handle(const std::vector<uint8_t> &frame,
                          std::chrono::steady_clock::time_point lastByteIn)
{
    {
        std::lock_guard<std::mutex> hold(stateMutex_);
        last_ = frame;
    }
    const LineSettings settings = line();
    Outgoing reply;
    LogEntry e;
    RequestFraming::Translation t;
    PtySettings heard;
    if (settings.ownSettingsOnly && readPtySettings(fd_, heard) &&
        (heard.baud != settings.baud || heard.stopBits != settings.stopBits)) {
        e.frame = std::to_string(frame.size()) + " bytes sent at " + describePtySettings(heard);
        e.outcome = notUnderstood(settings, reply);
    } else if (framing_ && (t = framing_->translate(frame)).rtu.empty()) {
        ++damaged_;
        drainLine();
        e.frame = t.text;
        e.outcome = "not answered: " + t.note;
    } else {
        std::vector<uint8_t> rtu = framing_ ? t.rtu : frame;
        e.frame = t.text;
        e.station = rtu[0];
        requestTarget(rtu, e.function, e.address, e.count);
        e.outcome = handleFrame(rtu, e.station, e.function, e.address, e.count, t.exception, reply);
        if (!t.note.empty())
            e.outcome += " (" + t.note + ")";
    }
    Logger log;
    {
        std::lock_guard<std::mutex> hold(stateMutex_);
        log = logger_;
    }
    // Logged before the reply goes out, so a master that has its answer
    // finds the line already written.
    if (log)
        log(e);
    const auto start = std::max(lastByteIn + std::chrono::milliseconds(reply.thinkMs),
                                std::chrono::steady_clock::now());
    if (reply.bytes.empty() || !sendPaced(reply.bytes, settings, start))
        return;
    if (reply.againMs >= 0 && pauseUs(reply.againMs * 1000LL))
        sendPaced(reply.bytes, settings, std::chrono::steady_clock::now());
}

std::string ModbusServer::notUnderstood(const LineSettings &line, Outgoing &send)
{
    ++damaged_;
    PtySettings own;
    own.baud = line.baud;
    own.stopBits = line.stopBits;
    const std::string outcome = "not understood: the line runs at " + describePtySettings(own);
    // Out of step with the line, the receiver sees framing errors and no
    // frame; one time in four the master hears a few bytes of noise back.
    std::lock_guard<std::mutex> hold(stateMutex_);
    if (rng_() % 4 != 0)
        return outcome;
    const unsigned n = 1 + rng_() % 3;
    for (unsigned i = 0; i < n; ++i)
        send.bytes.push_back(static_cast<uint8_t>(rng_()));
    send.thinkMs = line.turnaroundMs;
    return outcome + " [" + std::to_string(n) + (n == 1 ? " byte" : " bytes") + " of noise sent]";
}

std::string ModbusServer::handleFrame(std::vector<uint8_t> &frame, int station, int function,
                                      int address, int count, int exception, Outgoing &send)
{
    int slave = -1;
    {
        std::lock_guard<std::mutex> hold(stateMutex_);
        if (station == 0 && !stations_.empty())
            slave = stations_.front();
        else if (std::find(stations_.begin(), stations_.end(), station) != stations_.end())
            slave = station;
    }
    if (slave < 0)
        return "ignored (another station)";

    // libmodbus checks the frame as it would on the line: feed it through
    // a pipe with the addressed station set.
    uint8_t req[MODBUS_RTU_MAX_ADU_LENGTH];
    drainFd(pipe_[0]);
    modbus_set_slave(ctx_, slave);
    if (write(pipe_[1], frame.data(), frame.size()) != static_cast<ssize_t>(frame.size()))
        return "ignored (internal pipe full)";
    modbus_set_socket(ctx_, pipe_[0]);
    const int length = modbus_receive(ctx_, req);
    drainFd(pipe_[0]);
    if (length <= 0) {
        ++damaged_;
        drainLine();
        return "ignored (bad CRC or length)";
    }
    ++accepted_;

    // Let libmodbus write its reply into the pipe so it can be altered
    // before it goes on the line. Broadcasts write nothing.
    modbus_set_socket(ctx_, pipe_[1]);
    int refused = exception ? exception : refusal(function, address, count);
    if (station == 0) {
        if (refused)
            return "broadcast refused: " + exceptionText(refused) + ", not sent";
        applyRequest(req, length);
        return "broadcast applied";
    }
    int delayMs = 0;
    const Fault fault = chooseFault(delayMs);
    if (fault != FaultNone)
        ++faults_;
    if (fault == FaultLose)
        return "not applied [lose: request lost on the line, no reply]";
    if (fault == FaultException)
        refused = refused ? refused : MODBUS_EXCEPTION_SLAVE_OR_SERVER_FAILURE;
    if (fault == FaultWrongStation)
        req[0] = static_cast<uint8_t>(station % 247 + 1);

    if (refused)
        modbus_reply_exception(ctx_, req, static_cast<unsigned>(refused));
    else
        applyRequest(req, length);
    uint8_t reply[MODBUS_RTU_MAX_ADU_LENGTH];
    const ssize_t got = read(pipe_[0], reply, sizeof reply);
    if (got <= 0)
        return "no reply from libmodbus";
    std::string outcome = got > 2 && (reply[1] & 0x80) ? exceptionText(reply[2]) : "ok";
    std::vector<uint8_t> bytes(reply, reply + got);
    if (framing_)
        framing_->reshapeReply(bytes);
    const std::string altered = alter(fault, delayMs, req[0], bytes);
    if (!altered.empty())
        outcome += std::string(" [") + faultName(fault) + ": " + altered + "]";
    if (fault == FaultDrop)
        return outcome;
    std::lock_guard<std::mutex> hold(stateMutex_);
    send.bytes = bytes;
    send.thinkMs = line_.turnaroundMs;
    if (line_.jitterMs > 0)
        send.thinkMs += std::uniform_int_distribution<int>(0, line_.jitterMs)(rng_);
    send.againMs = fault == FaultTwice ? rates_.twiceMs : -1;
    return outcome;
}

std::string ModbusServer::alter(Fault fault, int delayMs, int station, std::vector<uint8_t> &reply)
{
    const size_t n = reply.size();
    switch (fault) {
    case FaultDrop: return "no reply sent";
    case FaultBadCrc: reply[n - 1] ^= 0x5A; return "reply sent with a bad CRC";
    case FaultTruncate: {
        std::lock_guard<std::mutex> hold(stateMutex_);
        const size_t kept = n > 1 ? 1 + rng_() % (n - 1) : n;
        reply.resize(kept);
        return "reply cut to " + std::to_string(kept) + " of " + std::to_string(n) + " bytes";
    }
    case FaultWrongStation: return "reply sent from station " + std::to_string(station);
    case FaultDelay: pause(delayMs); return "reply delayed " + std::to_string(delayMs) + " ms";
    case FaultException: return "request not applied";
    case FaultTwice: {
        std::lock_guard<std::mutex> hold(stateMutex_);
        return "reply sent again " + std::to_string(rates_.twiceMs) + " ms later";
    }
    case FaultNoise: {
        std::lock_guard<std::mutex> hold(stateMutex_);
        return addNoise(reply, rng_);
    }
    default: return "";
    }
}

void ModbusServer::applyRequest(const uint8_t *req, int length)
{
    std::lock_guard<std::mutex> hold(mapMutex_);
    modbus_reply(ctx_, req, length, map_);
}

int ModbusServer::refusal(int function, int address, int count) const
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    const Refusals &r = refusals_;
    if (std::find(r.functions.begin(), r.functions.end(), function) != r.functions.end())
        return MODBUS_EXCEPTION_ILLEGAL_FUNCTION;
    const bool coils = function == 0x01 || function == 0x05 || function == 0x0F;
    const bool registers = function == 0x03 || function == 0x06 || function == 0x10;
    const std::vector<bool> &space = coils ? r.coils : r.registers;
    if (!(coils || registers) || address < 0)
        return 0;
    for (int a = address; a < address + count && a < static_cast<int>(space.size()); ++a)
        if (space[a])
            return MODBUS_EXCEPTION_ILLEGAL_DATA_ADDRESS;
    return 0;
}

void ModbusServer::writeLine(const uint8_t *data, size_t length)
{
    size_t done = 0;
    while (done < length && running_) {
        const ssize_t w = write(fd_, data + done, length - done);
        if (w > 0) {
            done += static_cast<size_t>(w);
        } else if (w < 0 && (errno == EAGAIN || errno == EINTR)) {
            pause(1);
        } else {
            return;
        }
    }
}

bool ModbusServer::sendPaced(const std::vector<uint8_t> &bytes, const LineSettings &line,
                             std::chrono::steady_clock::time_point start)
{
    for (const LineChunk &c : lineSchedule(line, bytes.size())) {
        const auto due = start + std::chrono::microseconds(c.atUs);
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
            due - std::chrono::steady_clock::now());
        if (!pauseUs(left.count()))
            return false;
        writeLine(bytes.data() + c.offset, c.length);
    }
    ++replies_;
    return running_;
}

void ModbusServer::pause(int ms)
{
    pauseUs(ms * 1000LL);
}

bool ModbusServer::pauseUs(long long us)
{
    if (us > 0) {
        const timespec wait = {static_cast<time_t>(us / 1000000),
                               static_cast<long>(us % 1000000 * 1000)};
        pollfd p = {wake_[0], POLLIN, 0};
        ppoll(&p, 1, &wait, nullptr);
    }
    return running_;
}
