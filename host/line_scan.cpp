#include "line_scan.h"

#include <QStringList>
#include <chrono>

#include "common/words.h"
#include "line_stats.h"
#include "link/line_address.h"
#include "link/port_factory.h"
#include "link/rtu_frame.h"
#include "poll_stats.h"

namespace {

// Turnaround a station is given before its reply must start: controllers
// answer a small read within a few ms, some take tens.
const int kTurnaroundMs = 50;

const char *parityName(char p)
{
    return p == 'N' ? "none" : p == 'O' ? "odd" : "even";
}

// One register from D0 of `station`, which every controller has.
rvlink::Bytes probeFrame(int station)
{
    return rvlink::readRequest(station, rvlink::ReadRegisters, 0, 1);
}

}  // namespace

bool parseNumberList(const QString &text, int low, int high, std::vector<int> &out)
{
    out.clear();
    const QStringList items = text.split(',');
    for (int i = 0; i < items.size(); ++i) {
        const QStringList ends = items.at(i).trimmed().split('-');
        bool ok1 = false, ok2 = true;
        const int first = ends.at(0).toInt(&ok1);
        const int last = ends.size() == 2 ? ends.at(1).toInt(&ok2) : first;
        if (ends.size() > 2 || !ok1 || !ok2 || first < low || last > high || first > last)
            return false;
        for (int v = first; v <= last; ++v)
            out.push_back(v);
    }
    return !out.empty();
}

int scanTimeoutMs(const LinkSettings &line)
{
    const int bytes = 8 + 7;  // the request and a one-register reply
    return int((rvlink::wireTimeUs(line.format, bytes) + 999) / 1000) + kTurnaroundMs;
}

ScanResult scanLine(const LinkSettings &line, const ScanSettings &scan, FILE *progress,
                    const std::atomic<bool> &stop, std::string &error)
{
    typedef std::chrono::steady_clock Clock;
    const Clock::time_point started = Clock::now();
    ScanResult r;
    rvlink::LineAddress address;
    r.gatewaySettings =
        rvlink::parseLineAddress(line.port, address, error) && !rvlink::setsLineFormat(address);
    // Only the line's own settings, for timing, where the gateway sets them.
    ScanSettings plan = scan;
    if (r.gatewaySettings) {
        plan.bauds = {line.format.baud};
        plan.parities = {line.format.parity};
        plan.stopBits = line.format.stopBits;
    }
    r.total = int(plan.bauds.size() * plan.parities.size());
    for (size_t b = 0; b < plan.bauds.size() && !stop; ++b) {
        for (size_t p = 0; p < plan.parities.size() && !stop; ++p) {
            LinkSettings settings = line;
            settings.format.baud = plan.bauds[b];
            settings.format.parity = plan.parities[p];
            settings.format.stopBits =
                plan.stopBits ? plan.stopBits : (settings.format.parity == 'N' ? 2 : 1);
            settings.timeoutMs = scan.timeoutMs > 0 ? scan.timeoutMs : scanTimeoutMs(settings);
            settings.byteTimeoutMs = settings.timeoutMs;
            // Another station's late reply is skipped by its station byte, so
            // the scan need not wait past the timeout after silence.
            settings.windowMs = settings.timeoutMs;
            const std::unique_ptr<rvlink::Port> port =
                rvlink::makePort(settings.portSettings(), error);
            if (!port || !port->open(error))
                return r;
            rvlink::Line link(*port, settings.lineOptions());
            ScanCombination c;
            c.baud = settings.format.baud;
            c.parity = settings.format.parity;
            c.stopBits = settings.format.stopBits;
            for (size_t s = 0; s < scan.stations.size() && !stop; ++s) {
                if (progress) {
                    const double elapsed =
                        std::chrono::duration<double>(Clock::now() - started).count();
                    const double done =
                        double(r.combinations.size()) + double(s) / double(scan.stations.size());
                    fprintf(progress,
                            "\rcombination %d of %d (%d %s %d), station %d: %.0f s, about %.0f s "
                            "left, %d found\033[K",
                            r.combinations.size() + 1, r.total, c.baud, parityName(c.parity),
                            c.stopBits, scan.stations[s], elapsed,
                            done > 0 ? elapsed / done * (r.total - done) : 0.0, r.finds.size());
                    fflush(progress);
                }
                const rvlink::Exchange x = link.exchange(probeFrame(scan.stations[s]), 7);
                ++c.asked;
                if (x.outcome == rvlink::Exchange::Lost) {
                    r.linkLost = true;
                    error = "link to " + line.port + " lost during the scan";
                    r.combinations.append(c);
                    return r;
                }
                c.noise += x.skipped + x.strayBefore + x.strayAfter + x.late;
                c.otherStation += x.otherStation;
                if (x.outcome == rvlink::Exchange::Cut) {
                    ++c.cut;
                } else if (x.outcome == rvlink::Exchange::Answered &&
                           !rvlink::crcCloses(x.reply.data(), x.reply.size())) {
                    c.noise += int(x.reply.size());
                } else if (x.outcome == rvlink::Exchange::Answered) {
                    ScanFind f;
                    f.baud = c.baud;
                    f.parity = c.parity;
                    f.stopBits = c.stopBits;
                    f.station = scan.stations[s];
                    f.rttMs = x.rttMs;
                    f.exception = exceptionOf(x);
                    r.finds.append(f);
                    ++c.finds;
                }
            }
            r.combinations.append(c);
            rvlink::NetworkFigures n;
            if (port->network(n)) {
                r.network.connects += n.connects;
                r.network.connectMs = n.connectMs;
                r.network.rttMs = n.rttMs;
                r.network.stale += n.stale;
                r.network.gatewayNoAnswer += n.gatewayNoAnswer;
                r.overNetwork = true;
            }
            port->close();
            if (c.finds > 0 && !scan.all) {
                r.seconds = std::chrono::duration<double>(Clock::now() - started).count();
                r.interrupted = stop;
                if (progress)
                    fprintf(progress, "\r\033[K");
                return r;
            }
        }
    }
    if (progress)
        fprintf(progress, "\r\033[K");
    r.seconds = std::chrono::duration<double>(Clock::now() - started).count();
    r.interrupted = stop;
    return r;
}

QString renderScan(const ScanResult &r, const std::string &port, bool json)
{
    QString out;
    long long noise = 0, cut = 0, other = 0, asked = 0;
    for (int i = 0; i < r.combinations.size(); ++i) {
        noise += r.combinations.at(i).noise;
        cut += r.combinations.at(i).cut;
        other += r.combinations.at(i).otherStation;
        asked += r.combinations.at(i).asked;
    }
    // The command that polls a find, as the table and the JSON give it.
    const auto command = [&port, &r](const ScanFind &f) {
        const QString settings =
            QString(" -b %1 -P %2 -s %3").arg(f.baud).arg(parityName(f.parity)).arg(f.stopBits);
        return QString("rvpoll %1%2 -a %3 D0-D9")
            .arg(QString::fromStdString(port))
            .arg(r.gatewaySettings ? QString() : settings)
            .arg(f.station);
    };
    if (json) {
        // JSON Lines in the poll's style: an object a find, then the summary.
        for (int i = 0; i < r.finds.size(); ++i) {
            const ScanFind &f = r.finds.at(i);
            // Settings the gateway holds are not named as found.
            out +=
                QString("{%1\"station\":%2,\"rtt_ms\":%3%4,\"command\":%5}\n")
                    .arg(r.gatewaySettings ? QString()
                                           : QString("\"baud\":%1,\"parity\":\"%2\",\"stop\":%3,")
                                                 .arg(f.baud)
                                                 .arg(parityName(f.parity))
                                                 .arg(f.stopBits))
                    .arg(f.station)
                    .arg(f.rttMs, 0, 'f', 2)
                    .arg(f.exception >= 0
                             ? QString(",\"exception\":\"%1\"").arg(exceptionMeaning(f.exception))
                             : QString())
                    .arg(jsonString(command(f)));
        }
        return out + QString("{\"summary\":{\"finds\":%1,\"combinations\":%2,"
                             "\"combinations_planned\":%3,\"requests\":%4,\"seconds\":%5,"
                             "\"noise_bytes\":%6,\"cut\":%7,\"other_station\":%8,"
                             "\"interrupted\":%9%10}}\n")
                         .arg(r.finds.size())
                         .arg(r.combinations.size())
                         .arg(r.total)
                         .arg(asked)
                         .arg(r.seconds, 0, 'f', 2)
                         .arg(noise)
                         .arg(cut)
                         .arg(other)
                         .arg(r.interrupted ? "true" : "false")
                         .arg(r.overNetwork ? ",\"network\":" + networkJson(r.network) : QString());
    }
    if (r.finds.isEmpty()) {
        out += "no station answered\n";
    } else {
        out +=
            QString(r.gatewaySettings ? "" : "baud     parity  stop  ") + "station  round trip\n";
        for (int i = 0; i < r.finds.size(); ++i) {
            const ScanFind &f = r.finds.at(i);
            out += QString("%1%2 %3 ms%4\n")
                       .arg(r.gatewaySettings ? QString()
                                              : QString("%1 %2 %3 ")
                                                    .arg(f.baud, -8)
                                                    .arg(parityName(f.parity), -7)
                                                    .arg(f.stopBits, -5))
                       .arg(f.station, -8)
                       .arg(f.rttMs, 6, 'f', 1)
                       .arg(f.exception >= 0
                                ? ", refused a read of D0 with " + exceptionMeaning(f.exception)
                                : QString());
        }
        out += "\nto poll them:\n";
        for (int i = 0; i < r.finds.size(); ++i)
            out += "  " + command(r.finds.at(i)) + "\n";
    }
    for (int i = 0; i < r.combinations.size(); ++i) {
        const ScanCombination &c = r.combinations.at(i);
        if (c.noise + c.cut + c.otherStation > 0)
            out += QString("%1 %2 %3: %4, %5 cut short, %6 of another station: the marks of a "
                           "wrong baud rate or parity\n")
                       .arg(c.baud)
                       .arg(parityName(c.parity))
                       .arg(c.stopBits)
                       .arg(counted(c.noise, "byte of noise", "bytes of noise"))
                       .arg(counted(c.cut, "reply", "replies"))
                       .arg(c.otherStation);
    }
    if (r.overNetwork)
        out += networkSummary(r.network) + '\n';
    return out + QString("%1 of %2 combinations tried, %3, %4 s%5\n")
                     .arg(r.combinations.size())
                     .arg(r.total)
                     .arg(counted(asked, "request", "requests"))
                     .arg(r.seconds, 0, 'f', 1)
                     .arg(r.interrupted ? ", stopped by the operator" : "");
}
