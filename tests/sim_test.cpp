// rvsim end to end, as a panel project is tested against it: the program
// runs on its own pseudo-terminal and a libmodbus master asks it directly.
// Built and run natively only, next to the program (sim/rvsim.cmake).
#include <gtest/gtest.h>

#include <errno.h>
#include <modbus/modbus.h>

#include <string>
#include <vector>

#include "support/run_command.h"
#include "support/rvsim_process.h"

namespace {

// rvsim with a libmodbus master on its line.
class RunningSim : public Sim {
public:
    explicit RunningSim(const std::string &args) : Sim(args)
    {
        ctx_ = modbus_new_rtu(path().c_str(), 19200, 'N', 8, 1);
        if (ctx_ && (modbus_set_slave(ctx_, 1) != 0 || modbus_connect(ctx_) != 0)) {
            modbus_free(ctx_);
            ctx_ = nullptr;
        }
    }
    ~RunningSim()
    {
        if (ctx_) {
            modbus_close(ctx_);
            modbus_free(ctx_);
        }
    }
    modbus_t *master() const { return ctx_; }

private:
    modbus_t *ctx_ = nullptr;
};

enum Ask { ReadRegisters, ReadCoils, WriteRegister, WriteRegisters };

// One request through libmodbus: the values read, or {-errno code} on failure.
std::vector<int> ask(modbus_t *m, Ask what, int address, int count)
{
    uint16_t regs[16] = {};
    uint8_t bits[16] = {};
    int n = -1;
    switch (what) {
    case ReadRegisters: n = modbus_read_registers(m, address, count, regs); break;
    case ReadCoils: n = modbus_read_bits(m, address, count, bits); break;
    case WriteRegister: n = modbus_write_register(m, address, 5) == 1 ? 0 : -1; break;
    case WriteRegisters:
        n = modbus_write_registers(m, address, count, regs) == count ? 0 : -1;
        break;
    }
    if (n < 0)
        return {-(errno - MODBUS_ENOBASE)};
    std::vector<int> got;
    for (int i = 0; i < n; ++i)
        got.push_back(what == ReadCoils ? bits[i] : regs[i]);
    return got;
}

}  // namespace

TEST(SimTest, PresetsRefusalsAndTheRequestLog)
{
    const std::string data = scratchFile("# start values\nD100=1234 D10-D12=7\nM5=1\n"
                                         "X10=1   # octal: coil 0x5008\nTD0=0xBEEF\nD20=-1\n");
    const std::string log = scratchFile();
    {
        RunningSim sim("--data=" + data + " --refuse D200-D209,M8 --refuse-function 0x10 --log " +
                       log + " -q");
        ASSERT_TRUE(sim.master()) << sim.output();
        EXPECT_NE(std::string::npos, sim.output().find("8 preset values")) << sim.output();
        const struct {
            Ask what;
            int address, count;
            std::vector<int> expected;  // values, or minus the exception code
            const char *logged;
        } cases[] = {
            {ReadRegisters, 100, 1, {1234}, "function 0x03 address 100 count 1: ok"},
            {ReadRegisters, 10, 3, {7, 7, 7}, "function 0x03 address 10 count 3: ok"},
            {ReadRegisters, 20, 1, {65535}, "address 20 count 1: ok"},
            {ReadRegisters, 0x8000, 1, {0xBEEF}, "address 32768 count 1: ok"},
            {ReadCoils, 5, 1, {1}, "function 0x01 address 5 count 1: ok"},
            {ReadCoils, 0x5008, 1, {1}, "address 20488 count 1: ok"},
            {ReadRegisters,
             195,
             10,
             {-2},
             "function 0x03 address 195 count 10: exception 0x02 (Illegal data address)"},
            {WriteRegister, 209, 1, {-2}, "function 0x06 address 209 count 1: exception 0x02"},
            {ReadCoils, 8, 1, {-2}, "function 0x01 address 8 count 1: exception 0x02"},
            {WriteRegisters,
             0,
             2,
             {-1},
             "function 0x10 address 0 count 2: exception 0x01 (Illegal function)"},
            {WriteRegister, 210, 1, {}, "function 0x06 address 210 count 1: ok"},
        };
        for (const auto &c : cases)
            EXPECT_EQ(c.expected, ask(sim.master(), c.what, c.address, c.count)) << c.logged;
        const std::string logged = readFile(log);
        for (const auto &c : cases)
            EXPECT_NE(std::string::npos, logged.find(c.logged)) << c.logged << "\n" << logged;
        EXPECT_NE(std::string::npos, logged.find(" station 1 ")) << logged;
    }
    unlink(data.c_str());
    unlink(log.c_str());
}

TEST(SimTest, OptionFormsNotesAndErrorTexts)
{
    {
        RunningSim sim("-v --exception-rate=1 --baud 9600 -P e");
        ASSERT_TRUE(sim.master()) << sim.output();
        EXPECT_EQ(std::vector<int>({-4}), ask(sim.master(), ReadRegisters, 0, 1));
        const std::string out = sim.output();
        for (const char *part : {"note: --baud has no effect without --port",
                                 "note: --parity has no effect without --port",
                                 "function 0x03 address 0 count 1: exception 0x04"})
            EXPECT_NE(std::string::npos, out.find(part)) << part << "\n" << out;
    }
    const std::string badData = scratchFile("D1=1\nQ5=1\n");
    const std::string rvsim = "'" RVSIM_PATH "' ";
    const std::pair<std::string, std::string> cases[] = {
        // Parity forms are accepted: the run gets as far as the port.
        {"--parity=ODD --port /dev/null", "cannot open /dev/null: not a serial port\n<2>"},
        {"-P n --port=/dev/null", "not a serial port\n<2>"},
        {"--parity Even --port /dev/null", "not a serial port\n<2>"},
        {"--parity x", "bad value 'x' for --parity"},
        {"--bogus", "unknown option --bogus"},
        {"--baud", "--baud needs a value"},
        {"--port /nonexist", "cannot open /nonexist: No such file or directory\n<2>"},
        {"--refuse D7990-D8010", "'D7990-D8010' runs past the end of area D (last element D7999)"},
        {"--data " + badData, badData + ":2: unknown area 'Q' in 'Q5'\n<2>"},
        {"--version", "rvsim (Quorvel RV) "},
    };
    for (const auto &c : cases) {
        const std::string out = runCommand(rvsim + c.first + " 2>&1; echo \"<$?>\"");
        EXPECT_NE(std::string::npos, out.find(c.second)) << c.first << ": " << out;
    }
    unlink(badData.c_str());
}
