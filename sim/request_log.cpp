#include "request_log.h"

#include <stdio.h>
#include <time.h>

#include <chrono>

std::string requestLogLine(const ModbusServer::LogEntry &e)
{
    using namespace std::chrono;
    const auto now = system_clock::now();
    const time_t seconds = system_clock::to_time_t(now);
    const int ms = int(duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000);
    tm local;
    localtime_r(&seconds, &local);
    char stamp[16], function[16];
    snprintf(stamp, sizeof stamp, "%02d:%02d:%02d.%03d ", local.tm_hour, local.tm_min, local.tm_sec,
             ms);
    snprintf(function, sizeof function, "function 0x%02X", e.function & 0xFF);
    // A frame of another framing is told in its own words, then the register
    // frame it stood for.
    std::string target;
    if (e.function >= 0)
        target = e.frame.empty() ? "station " + std::to_string(e.station) + " " + function
                                 : std::string(" as ") + function;
    if (e.function >= 0 && e.address >= 0)
        target += " address " + std::to_string(e.address) + " count " + std::to_string(e.count);
    return stamp + e.frame + target + ": " + e.outcome + "\n";
}
