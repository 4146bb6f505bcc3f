#include "modbus_bridge.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>

#include <modbus/modbus.h>

#include "link/rtu_frame.h"

namespace {

void drainFd(int fd)
{
    uint8_t buf[512];
    while (read(fd, buf, sizeof buf) > 0) {
    }
}

}  // namespace

std::string exceptionText(int code)
{
    char hex[8];
    snprintf(hex, sizeof hex, "0x%02X", code);
    return std::string("exception ") + hex + " (" + modbus_strerror(MODBUS_ENOBASE + code) + ")";
}

ModbusBridge::Request ModbusBridge::describe(const std::vector<uint8_t> &frame)
{
    Request r;
    r.adu = frame;
    r.function = frame.size() > 1 ? frame[1] : -1;
    if (frame.size() < 4)
        return r;
    // Read as if its CRC were good: libmodbus alone judges that.
    std::vector<uint8_t> closed(frame.begin(), frame.end() - 2);
    rvlink::appendCrc(closed);
    rvlink::RtuRequest q;
    if (rvlink::parseRequest(closed.data(), closed.size(), q)) {
        r.address = q.address;
        r.count = q.quantity;
        r.coils = q.coils();
    }
    return r;
}

ModbusBridge::ModbusBridge() : ctx_(nullptr), map_(nullptr)
{
    pipe_[0] = pipe_[1] = -1;
    map_ = modbus_mapping_new(65536, 0, 65536, 0);
    // The device name is never opened: requests are handed over through a
    // pipe, and libmodbus only reads and writes it.
    ctx_ = modbus_new_rtu("/dev/null", 19200, 'E', 8, 1);
    if (ctx_) {
        // The pipe holds the whole frame before libmodbus reads it: a frame
        // shorter than libmodbus expects is short for good.
        modbus_set_byte_timeout(ctx_, 0, 1000);
        modbus_set_indication_timeout(ctx_, 0, 1000);
    }
    if (pipe2(pipe_, O_NONBLOCK | O_CLOEXEC) != 0)
        pipe_[0] = pipe_[1] = -1;
}

ModbusBridge::~ModbusBridge()
{
    if (ctx_)
        modbus_free(ctx_);
    if (map_)
        modbus_mapping_free(map_);
    for (int fd : pipe_)
        if (fd >= 0)
            close(fd);
}

uint16_t ModbusBridge::reg(int address) const
{
    std::lock_guard<std::mutex> hold(mapMutex_);
    return map_ ? map_->tab_registers[address & 0xFFFF] : 0;
}

void ModbusBridge::setRegister(int address, uint16_t value)
{
    std::lock_guard<std::mutex> hold(mapMutex_);
    if (map_)
        map_->tab_registers[address & 0xFFFF] = value;
}

bool ModbusBridge::coil(int address) const
{
    std::lock_guard<std::mutex> hold(mapMutex_);
    return map_ && map_->tab_bits[address & 0xFFFF] != 0;
}

void ModbusBridge::setCoil(int address, bool on)
{
    std::lock_guard<std::mutex> hold(mapMutex_);
    if (map_)
        map_->tab_bits[address & 0xFFFF] = on ? 1 : 0;
}

void ModbusBridge::setRefusals(const Refusals &refusals)
{
    std::lock_guard<std::mutex> hold(refusalsMutex_);
    refusals_ = refusals;
}

int ModbusBridge::refusal(const Request &q) const
{
    std::lock_guard<std::mutex> hold(refusalsMutex_);
    const Refusals &r = refusals_;
    if (std::find(r.functions.begin(), r.functions.end(), q.function) != r.functions.end())
        return MODBUS_EXCEPTION_ILLEGAL_FUNCTION;
    const std::vector<bool> &space = q.coils ? r.coils : r.registers;
    for (int a = q.address; a >= 0 && a < q.address + q.count && a < int(space.size()); ++a)
        if (space[size_t(a)])
            return MODBUS_EXCEPTION_ILLEGAL_DATA_ADDRESS;
    return 0;
}

bool ModbusBridge::check(const std::vector<uint8_t> &frame, int station, Request &out)
{
    if (!ready())
        return false;
    drainFd(pipe_[0]);
    modbus_set_slave(ctx_, station);
    if (write(pipe_[1], frame.data(), frame.size()) != static_cast<ssize_t>(frame.size()))
        return false;
    modbus_set_socket(ctx_, pipe_[0]);
    uint8_t req[MODBUS_RTU_MAX_ADU_LENGTH];
    const int length = modbus_receive(ctx_, req);
    drainFd(pipe_[0]);
    if (length <= 0)
        return false;
    out = describe(std::vector<uint8_t>(req, req + length));
    return true;
}

std::vector<uint8_t> ModbusBridge::apply(const Request &r, int replyStation)
{
    return reply(r, 0, replyStation);
}

std::vector<uint8_t> ModbusBridge::refuse(const Request &r, int code, int replyStation)
{
    return reply(r, code, replyStation);
}

std::vector<uint8_t> ModbusBridge::reply(const Request &r, int code, int replyStation)
{
    if (!ready() || r.adu.empty())
        return {};
    // libmodbus names the station the request named.
    std::vector<uint8_t> req = r.adu;
    req[0] = static_cast<uint8_t>(replyStation);
    modbus_set_socket(ctx_, pipe_[1]);
    if (code) {
        modbus_reply_exception(ctx_, req.data(), static_cast<unsigned>(code));
    } else {
        std::lock_guard<std::mutex> hold(mapMutex_);
        modbus_reply(ctx_, req.data(), int(req.size()), map_);
    }
    uint8_t out[MODBUS_RTU_MAX_ADU_LENGTH];
    const ssize_t got = read(pipe_[0], out, sizeof out);
    return got > 0 ? std::vector<uint8_t>(out, out + got) : std::vector<uint8_t>();
}
