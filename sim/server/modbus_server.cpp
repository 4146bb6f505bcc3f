#include "modbus_server.h"

#include <algorithm>

#include <modbus/modbus.h>

#include "link/rtu_frame.h"

ModbusServer::ModbusServer(int fd)
    : port_(fd),
      stations_(1, 1),
      framing_(nullptr),
      requests_(0),
      accepted_(0),
      faults_(0),
      damaged_(0)
{}

ModbusServer::~ModbusServer()
{
    stop();
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
    plan_.setRates(rates);
}

void ModbusServer::failNext(Fault f, int n, int delayMs)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    plan_.forceNext(f, n, delayMs);
}

void ModbusServer::setScript(const std::vector<Fault> &script)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    plan_.setScript(script);
}

void ModbusServer::setLine(const LineSettings &line)
{
    port_.setLine(line);
}

void ModbusServer::setFraming(const RequestFraming *framing)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    framing_ = framing;
}

void ModbusServer::setRefusals(const Refusals &refusals)
{
    bridge_.setRefusals(refusals);
}

void ModbusServer::setLogger(const Logger &logger)
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    logger_ = logger;
}

bool ModbusServer::start()
{
    if (thread_.joinable() || !bridge_.ready() || !port_.start())
        return false;
    thread_ = std::thread(&ModbusServer::serve, this);
    return true;
}

void ModbusServer::stop()
{
    port_.stop();
    if (thread_.joinable())
        thread_.join();
}

ModbusServer::Counters ModbusServer::counters() const
{
    Counters c;
    c.requests = requests_;
    c.accepted = accepted_;
    c.replies = port_.framesSent();
    c.faults = faults_;
    c.damaged = damaged_;
    return c;
}

int ModbusServer::heardBy(int station) const
{
    std::lock_guard<std::mutex> hold(stateMutex_);
    if (station == 0 && !stations_.empty())
        return stations_.front();
    return std::find(stations_.begin(), stations_.end(), station) != stations_.end() ? station : -1;
}

void ModbusServer::serve()
{
    std::vector<uint8_t> frame;
    while (port_.running()) {
        const RequestFraming *framing;
        {
            std::lock_guard<std::mutex> hold(stateMutex_);
            framing = framing_ ? framing_ : &rtu_;
        }
        if (!port_.readFrame(*framing, frame) || !port_.running())
            continue;
        // The pseudo-terminal delivered the frame at once; on the line its
        // last byte arrives only after the frame's wire time. The reply is
        // timed from then, while the frame is handled at once, so handling
        // and waking up add nothing to the line's timing.
        handle(*framing, frame,
               Clock::now() + std::chrono::microseconds(port_.wireTimeUs(frame.size())));
        ++requests_;  // counted once handled, so waiters see its effects
    }
}

void ModbusServer::handle(const RequestFraming &framing, const std::vector<uint8_t> &frame,
                          Clock::time_point lastByteIn)
{
    LogEntry e;
    Answer a;
    rvlink::LineFormat heard;
    RequestFraming::Translation t;
    if (port_.heardAtOtherSettings(heard)) {
        ++damaged_;
        e.frame = std::to_string(frame.size()) + " bytes sent at " + speedText(heard);
        e.outcome = "not understood: the line runs at " + speedText(port_.line().format);
        // Out of step with the line, the receiver sees framing errors and no
        // frame; now and then the master hears a few bytes of noise back.
        {
            std::lock_guard<std::mutex> hold(stateMutex_);
            a.bytes = plan_.misheardNoise();
        }
        a.reply = false;
        a.thinkMs = port_.line().turnaroundMs;
        const size_t n = a.bytes.size();
        if (n > 0)
            e.outcome +=
                " [" + std::to_string(n) + (n == 1 ? " byte" : " bytes") + " of noise sent]";
    } else if ((t = framing.translate(frame)).rtu.empty()) {
        ++damaged_;
        port_.skipToSilence();
        e.frame = t.text;
        e.outcome = "not answered: " + t.note;
    } else {
        e.frame = t.text;
        e.outcome = answer(framing, t, e, a);
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
    if (a.bytes.empty())
        return;
    const Clock::time_point start = lastByteIn + std::chrono::milliseconds(a.thinkMs);
    if (a.meanwhile)
        port_.sendLater(a.bytes, start);
    else if (port_.send(a.bytes, start, a.reply) && a.copyMs >= 0)
        port_.sendLater(a.bytes, Clock::now() + std::chrono::milliseconds(a.copyMs));
}

std::string ModbusServer::answer(const RequestFraming &framing,
                                 const RequestFraming::Translation &t, LogEntry &e, Answer &a)
{
    const ModbusBridge::Request asked = ModbusBridge::describe(t.rtu);
    const int station = t.rtu[0];
    e.station = station;
    e.function = asked.function;
    e.address = asked.address;
    e.count = asked.count;
    const int heard = heardBy(station);
    if (heard < 0)
        return "ignored (another station)";
    ModbusBridge::Request req;
    if (!bridge_.check(t.rtu, heard, req)) {
        ++damaged_;
        port_.skipToSilence();
        return "ignored (bad CRC or length)";
    }
    ++accepted_;
    int refused = t.exception ? t.exception : bridge_.refusal(req);
    if (station == 0) {
        if (refused)
            return "broadcast refused: " + exceptionText(refused) + ", not sent";
        bridge_.apply(req, 0);
        return "broadcast applied";
    }

    FaultPlan::Choice c;
    {
        std::lock_guard<std::mutex> hold(stateMutex_);
        c = plan_.next(station);
    }
    if (c.fault != FaultPlan::None)
        ++faults_;
    std::string outcome = "not applied";
    std::vector<uint8_t> reply;
    if (c.fault == FaultPlan::Resend) {
        reply = port_.lastReply();
    } else if (c.fault != FaultPlan::Lose) {
        if (c.fault == FaultPlan::Exception && !refused)
            refused = MODBUS_EXCEPTION_SLAVE_OR_SERVER_FAILURE;
        reply = refused ? bridge_.refuse(req, refused, c.replyStation)
                        : bridge_.apply(req, c.replyStation);
        if (reply.size() < 3)
            return "no reply from libmodbus";
        outcome = rvlink::isException(reply[1]) ? exceptionText(reply[2]) : "ok";
        framing.reshapeReply(reply);
    }
    const LineSettings line = port_.line();
    std::lock_guard<std::mutex> hold(stateMutex_);
    const std::string altered = plan_.alter(c, reply);
    if (!altered.empty())
        outcome += std::string(" [") + FaultPlan::name(c.fault) + ": " + altered + "]";
    if (c.fault == FaultPlan::Drop || reply.empty())
        return outcome;
    a.bytes = reply;
    a.thinkMs = line.turnaroundMs + plan_.jitterMs(line.jitterMs);
    if (c.fault == FaultPlan::Late || c.fault == FaultPlan::LateAnswering)
        a.thinkMs += c.delayMs;
    a.meanwhile = c.fault == FaultPlan::LateAnswering;
    a.copyMs = c.fault == FaultPlan::Twice ? c.twiceMs : -1;
    return outcome;
}
