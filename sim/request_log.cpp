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
    char line[160];
    int n = snprintf(line, sizeof line, "%02d:%02d:%02d.%03d station %d function 0x%02X",
                     local.tm_hour, local.tm_min, local.tm_sec, ms, e.station, e.function & 0xFF);
    if (e.address >= 0 && n > 0 && n < int(sizeof line))
        snprintf(line + n, sizeof line - n, " address %d count %d", e.address, e.count);
    return std::string(line) + ": " + e.outcome + "\n";
}
