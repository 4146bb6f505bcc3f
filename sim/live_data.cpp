#include "live_data.h"

#include <stdio.h>

namespace {

const int kSpace = 65536;
const int kCounterRegister = 0;  // D0
const int kRampRegister = 1;     // D1
const int kBlinkCoil = 0;        // M0
const unsigned kBlinkTicks = 3;  // M0 changes every third step
const uint16_t kRampTop = 1000;

std::string describe(const char *what, int address, unsigned value, bool word)
{
    char text[64];
    if (word)
        snprintf(text, sizeof text, "%s %d = 0x%04X (%u)", what, address, value, value);
    else
        snprintf(text, sizeof text, "%s %d = %u", what, address, value);
    return text;
}

}  // namespace

LiveData::LiveData(ModbusServer &server) : server_(server), registers_(kSpace), coils_(kSpace)
{
    for (int a = 0; a < kSpace; ++a) {
        registers_[a] = server_.reg(a);
        coils_[a] = server_.coil(a) ? 1 : 0;
    }
}

std::vector<std::string> LiveData::step()
{
    std::vector<std::string> changes;
    for (int a = 0; a < kSpace; ++a) {
        const uint16_t r = server_.reg(a);
        if (r != registers_[a]) {
            changes.push_back(describe("register", a, r, true));
            registers_[a] = r;
        }
        const uint8_t c = server_.coil(a) ? 1 : 0;
        if (c != coils_[a]) {
            changes.push_back(describe("coil", a, c, false));
            coils_[a] = c;
        }
    }
    ++tick_;
    // Our own changes are recorded here, so the next step does not report them.
    registers_[kCounterRegister] = uint16_t(registers_[kCounterRegister] + 1);
    registers_[kRampRegister] = uint16_t((registers_[kRampRegister] + 10) % kRampTop);
    if (tick_ % kBlinkTicks == 0)
        coils_[kBlinkCoil] ^= 1;
    server_.setRegister(kCounterRegister, registers_[kCounterRegister]);
    server_.setRegister(kRampRegister, registers_[kRampRegister]);
    server_.setCoil(kBlinkCoil, coils_[kBlinkCoil] != 0);
    return changes;
}
