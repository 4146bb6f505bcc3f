// Which fault each request to one of our stations meets, and the random
// parts of it: the forced faults first, then the script, then the rates, all
// drawn from one generator seeded by the rates, so a seed always plays the
// same line. Pure: no I/O, no clock, no threads; the server holds the lock.
#ifndef RV_SIM_FAULT_PLAN_H
#define RV_SIM_FAULT_PLAN_H

#include <stdint.h>

#include <random>
#include <string>
#include <vector>

class FaultPlan {
public:
    enum Fault {
        None = 0,
        Drop,           // the request is applied, no reply is sent
        BadCrc,         // the reply's last byte flipped
        Cut,            // only the first 1..n-1 reply bytes are sent
        WrongStation,   // a valid reply from the next station
        Late,           // the reply is sent delayMs late; the server waits meanwhile
        Exception,      // exception 0x04 (server failure) instead; not applied
        Lose,           // the request never arrives: not applied, no reply
        Twice,          // the reply, then the same bytes again twiceMs after it
        Noise,          // a bit flipped or stray bytes added
        LateAnswering,  // the reply is sent delayMs late; later requests are answered meanwhile
        Resend          // not applied; the last reply put on the line goes out again instead
    };
    static const int kKinds = Resend + 1;

    // The name in scripts and in the log: ok, drop, crc, cut, wrong-station,
    // late, exception, lose, twice, noise, late-answering, resend.
    static const char *name(Fault f);
    // False for a name no fault has.
    static bool byName(const std::string &name, Fault &out);

    // Shares of the requests that meet each fault, 0..1; they add up to 1 at
    // most. One number is drawn per request and the shares are laid end to
    // end in this order, new kinds last, so a seed keeps its faults.
    struct Rates {
        double drop = 0;
        double badCrc = 0;
        double truncate = 0;
        double wrongStation = 0;
        double delay = 0;
        double exception = 0;
        double lose = 0;
        double twice = 0;
        double noise = 0;
        double lateAnswering = 0;
        double resend = 0;
        int delayMs = 200;  // how late a late reply is, either kind
        int twiceMs = 50;   // from the end of the first copy to the start of the second
        unsigned seed = 1;  // of every random choice: faults, cut lengths, noise, jitter

        double total() const;
    };

    struct Choice {
        Fault fault = None;
        int delayMs = 0;       // Late and LateAnswering
        int twiceMs = 0;       // Twice
        int replyStation = 0;  // the station the reply names: another for WrongStation
    };

    FaultPlan();
    // Also seeds the generator.
    void setRates(const Rates &rates);
    const Rates &rates() const { return rates_; }
    // The next requests meet these faults, in order.
    void setScript(const std::vector<Fault> &script);
    // The next n requests meet `f`, ahead of the script; a late one `delayMs` late.
    void forceNext(Fault f, int n, int delayMs);

    // The fault of the next request to one of our stations, `station`.
    Choice next(int station);

    // Alters `reply` as `c` asks (a bad CRC, a cut, noise) and says what the
    // fault does, for the log; "" for none.
    std::string alter(const Choice &c, std::vector<uint8_t> &reply);

    // 0 to `most` ms more think time.
    int jitterMs(int most);
    // What a master hears back of a request sent at other line settings: 3
    // times in 4 nothing, else 1 to 3 bytes of noise.
    std::vector<uint8_t> misheardNoise();

private:
    std::string addNoise(std::vector<uint8_t> &bytes);

    Rates rates_;
    std::vector<Fault> script_;
    size_t scriptAt_ = 0;
    Fault forced_ = None;
    int forcedLeft_ = 0;
    int forcedDelayMs_ = 0;
    std::mt19937 rng_;
};

#endif
