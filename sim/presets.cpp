#include "presets.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <sstream>

#include "element_range.h"

namespace {

// -32768..65535 or 0x0000..0xFFFF for a register, 0 or 1 for a coil.
bool parseValue(const std::string &text, bool coil, int &out)
{
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char *digits = text.c_str() + (hex ? 2 : 0);
    char *end = nullptr;
    errno = 0;
    const long v = strtol(digits, &end, hex ? 16 : 10);
    if (end == digits || *end != '\0' || errno != 0)
        return false;
    out = int(v & 0xFFFF);
    return coil ? v == 0 || v == 1 : v >= -32768 && v <= 65535;
}

bool applyEntry(const std::string &entry, ModbusServer &server, int &values, std::string &error)
{
    const size_t eq = entry.find('=');
    if (eq == std::string::npos) {
        error = "'" + entry + "' is not a preset (expected e.g. D100=1234, M5=1 or D0-D9=7)";
        return false;
    }
    ElementRange range;
    if (!parseElementRange(entry.substr(0, eq), range, error))
        return false;
    int value = 0;
    if (!parseValue(entry.substr(eq + 1), range.coils, value)) {
        error =
            "'" + entry + "': " +
            (range.coils ? "a bit takes 0 or 1" : "a word takes -32768..65535 or 0x0000..0xFFFF");
        return false;
    }
    for (size_t i = 0; i < range.addresses.size(); ++i) {
        if (range.coils)
            server.setCoil(range.addresses[i], value != 0);
        else
            server.setRegister(range.addresses[i], uint16_t(value));
    }
    values += int(range.addresses.size());
    return true;
}

}  // namespace

bool loadPresets(const std::string &path, ModbusServer &server, int &values, std::string &error)
{
    std::ifstream in(path);
    if (!in) {
        error = "cannot read " + path + ": " + strerror(errno);
        return false;
    }
    values = 0;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        std::stringstream words(line.substr(0, line.find('#')));
        std::string entry;
        while (words >> entry) {
            if (!applyEntry(entry, server, values, error)) {
                error = path + ":" + std::to_string(number) + ": " + error;
                return false;
            }
        }
    }
    return true;
}
