// The controller's memory and its answers, as libmodbus keeps and gives
// them: the whole 16-bit coil space (0x01, 0x05, 0x0F) and holding-register
// space (0x03, 0x06, 0x10). Every request goes through libmodbus's own
// length and CRC checks, so a frame it answers is a frame libmodbus
// considers valid; requests it refuses get the exception a controller gives.
#ifndef RV_SIM_MODBUS_BRIDGE_H
#define RV_SIM_MODBUS_BRIDGE_H

#include <stdint.h>

#include <mutex>
#include <string>
#include <vector>

typedef struct _modbus modbus_t;
typedef struct _modbus_mapping_t modbus_mapping_t;

class ModbusBridge {
public:
    // Requests answered with an exception and not applied: a refused
    // function gets 0x01 (illegal function), a request touching a refused
    // coil or register 0x02 (illegal data address). The address lists are
    // indexed by coil or register address (empty: nothing refused).
    struct Refusals {
        std::vector<int> functions;
        std::vector<bool> coils;
        std::vector<bool> registers;
    };

    // A request libmodbus took in whole.
    struct Request {
        std::vector<uint8_t> adu;  // as libmodbus read it
        int function = -1;
        int address = -1;  // -1 for a function that names none
        int count = -1;
        bool coils = false;  // in the coil space, not the registers
    };
    // What `frame` asks, whatever its CRC says: for the log of a frame
    // libmodbus refuses too.
    static Request describe(const std::vector<uint8_t> &frame);

    ModbusBridge();
    ~ModbusBridge();
    ModbusBridge(const ModbusBridge &) = delete;
    ModbusBridge &operator=(const ModbusBridge &) = delete;

    // False when libmodbus or its pipe could not be set up.
    bool ready() const { return ctx_ && map_ && pipe_[0] >= 0; }

    // Memory access, safe from any thread. Addresses are 0..65535.
    uint16_t reg(int address) const;
    void setRegister(int address, uint16_t value);
    bool coil(int address) const;
    void setCoil(int address, bool on);

    void setRefusals(const Refusals &refusals);
    // 0, or the exception a refused function or address gets.
    int refusal(const Request &r) const;

    // libmodbus's checks of `frame` as station `station` hears it; false for
    // a bad CRC or length.
    bool check(const std::vector<uint8_t> &frame, int station, Request &out);
    // Applies `r` and returns its reply, from `replyStation`; nothing for a
    // broadcast.
    std::vector<uint8_t> apply(const Request &r, int replyStation);
    // Exception `code` in reply to `r`, from `replyStation`; not applied.
    std::vector<uint8_t> refuse(const Request &r, int code, int replyStation);

private:
    std::vector<uint8_t> reply(const Request &r, int code, int replyStation);

    modbus_t *ctx_;
    modbus_mapping_t *map_;
    int pipe_[2];
    mutable std::mutex mapMutex_;
    mutable std::mutex refusalsMutex_;
    Refusals refusals_;
};

// "exception 0x02 (Illegal data address)", in libmodbus's words.
std::string exceptionText(int code);

#endif
