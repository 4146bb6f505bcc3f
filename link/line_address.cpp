#include "line_address.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace rvlink {

namespace {

struct Scheme {
    const char *prefix;
    LineAddress::Kind kind;
    int defaultPort;  // 0: the port must be given
};

const Scheme kSchemes[] = {
    {"socket://", LineAddress::Socket, 0},
    {"rfc2217://", LineAddress::Rfc2217, 0},
    {"modbus-tcp://", LineAddress::ModbusTcp, 502},
};

const Scheme *schemeOf(const std::string &text)
{
    for (const Scheme &s : kSchemes)
        if (text.compare(0, std::strlen(s.prefix), s.prefix) == 0)
            return &s;
    return nullptr;
}

}  // namespace

bool isNetworkAddress(const std::string &text)
{
    return schemeOf(text) != nullptr;
}

bool parseLineAddress(const std::string &text, LineAddress &out, std::string &error)
{
    out = LineAddress();
    const Scheme *scheme = schemeOf(text);
    if (!scheme)
        return true;  // a device path
    LineAddress a;
    const std::string rest = text.substr(std::strlen(scheme->prefix));
    const std::string form = std::string(scheme->prefix) +
                             (scheme->defaultPort ? "HOST[:PORT]" : "HOST:PORT") +
                             ", the host a name, an IPv4 address or an IPv6 one in brackets";
    // The host ends at its closing bracket (IPv6) or at the last colon.
    size_t hostEnd;
    size_t portAt;
    if (!rest.empty() && rest[0] == '[') {
        hostEnd = rest.find(']');
        if (hostEnd == std::string::npos) {
            error = text + ": no closing bracket after the IPv6 address (" + form + ")";
            return false;
        }
        a.host = rest.substr(1, hostEnd - 1);
        portAt = hostEnd + 1;
    } else {
        hostEnd = rest.rfind(':');
        if (hostEnd == std::string::npos)
            hostEnd = rest.size();
        a.host = rest.substr(0, hostEnd);
        portAt = hostEnd;
    }
    if (a.host.empty() || a.host.find_first_of("/?@ ") != std::string::npos) {
        error = text + ": no host (" + form + ")";
        return false;
    }
    if (portAt >= rest.size()) {
        a.port = scheme->defaultPort;
    } else {
        const std::string port = rest.substr(portAt + 1);
        char *end = nullptr;
        const long n = rest[portAt] == ':' && !port.empty() && std::isdigit((unsigned char)port[0])
                           ? std::strtol(port.c_str(), &end, 10)
                           : 0;
        a.port = end && *end == '\0' && n >= 1 && n <= 65535 ? int(n) : -1;
    }
    if (a.port <= 0) {
        error = text + ": the port must be a number from 1 to 65535 (" + form + ")";
        return false;
    }
    a.kind = scheme->kind;
    out = a;
    return true;
}

}  // namespace rvlink
