#include "fault_plan.h"

namespace {

const char *const kNames[FaultPlan::kKinds] = {
    "ok",        "drop", "crc",   "cut",   "wrong-station",  "late",
    "exception", "lose", "twice", "noise", "late-answering", "resend"};

int drawInt(std::mt19937 &rng, int low, int high)
{
    return std::uniform_int_distribution<int>(low, high)(rng);
}

std::string bytesText(size_t n)
{
    return std::to_string(n) + (n == 1 ? " byte" : " bytes");
}

}  // namespace

const char *FaultPlan::name(Fault f)
{
    return f >= 0 && f < kKinds ? kNames[f] : "?";
}

bool FaultPlan::byName(const std::string &name, Fault &out)
{
    for (int kind = 0; kind < kKinds; ++kind)
        if (name == kNames[kind]) {
            out = Fault(kind);
            return true;
        }
    return false;
}

double FaultPlan::Rates::total() const
{
    return drop + badCrc + truncate + wrongStation + delay + exception + lose + twice + noise +
           lateAnswering + resend;
}

FaultPlan::FaultPlan() : rng_(rates_.seed) {}

void FaultPlan::setRates(const Rates &rates)
{
    rates_ = rates;
    rng_.seed(rates.seed);
}

void FaultPlan::setScript(const std::vector<Fault> &script)
{
    script_ = script;
    scriptAt_ = 0;
}

void FaultPlan::forceNext(Fault f, int n, int delayMs)
{
    forced_ = f;
    forcedLeft_ = n > 0 ? n : 0;
    forcedDelayMs_ = delayMs;
}

FaultPlan::Choice FaultPlan::next(int station)
{
    Choice c;
    c.delayMs = rates_.delayMs;
    c.twiceMs = rates_.twiceMs;
    if (forcedLeft_ > 0) {
        --forcedLeft_;
        c.delayMs = forcedDelayMs_;
        c.fault = forced_;
    } else if (scriptAt_ < script_.size()) {
        c.fault = script_[scriptAt_++];
    } else if (rates_.total() > 0) {
        const double shares[] = {rates_.drop,          rates_.badCrc, rates_.truncate,
                                 rates_.wrongStation,  rates_.delay,  rates_.exception,
                                 rates_.lose,          rates_.twice,  rates_.noise,
                                 rates_.lateAnswering, rates_.resend};
        const double u = std::uniform_real_distribution<double>(0.0, 1.0)(rng_);
        double edge = 0;
        for (int i = 0; i < kKinds - 1 && c.fault == None; ++i) {
            edge += shares[i];
            // Shares that add up to 1 leave no room for none, whatever the
            // rounding of their sum.
            if (u < edge || (shares[i] > 0 && edge >= 1.0 - 1e-9))
                c.fault = Fault(i + 1);
        }
    }
    c.replyStation = c.fault == WrongStation ? station % 247 + 1 : station;
    return c;
}

std::string FaultPlan::alter(const Choice &c, std::vector<uint8_t> &reply)
{
    const size_t n = reply.size();
    switch (c.fault) {
    case Drop: return "no reply sent";
    case BadCrc:
        if (n > 0)
            reply[n - 1] ^= 0x5A;
        return "reply sent with a bad CRC";
    case Cut: {
        const size_t kept = n > 1 ? 1 + rng_() % (n - 1) : n;
        reply.resize(kept);
        return "reply cut to " + std::to_string(kept) + " of " + bytesText(n);
    }
    case WrongStation: return "reply sent from station " + std::to_string(c.replyStation);
    case Late: return "reply delayed " + std::to_string(c.delayMs) + " ms";
    case Exception: return "request not applied";
    case Lose: return "request lost on the line, no reply";
    case Twice: return "reply sent again " + std::to_string(c.twiceMs) + " ms later";
    case Noise: return addNoise(reply);
    case LateAnswering:
        return "reply sent " + std::to_string(c.delayMs) +
               " ms late, later requests answered meanwhile";
    case Resend:
        return n == 0 ? "no reply sent before, nothing sent"
                      : "the last reply sent again (" + bytesText(n) + ")";
    default: return "";
    }
}

int FaultPlan::jitterMs(int most)
{
    return most > 0 ? drawInt(rng_, 0, most) : 0;
}

std::vector<uint8_t> FaultPlan::misheardNoise()
{
    std::vector<uint8_t> bytes;
    if (rng_() % 4 != 0)
        return bytes;
    const unsigned n = 1 + rng_() % 3;
    for (unsigned i = 0; i < n; ++i)
        bytes.push_back(static_cast<uint8_t>(rng_()));
    return bytes;
}

std::string FaultPlan::addNoise(std::vector<uint8_t> &bytes)
{
    const int kind = bytes.empty() ? 1 : drawInt(rng_, 0, 2);
    if (kind == 0) {
        const int at = drawInt(rng_, 0, static_cast<int>(bytes.size()) - 1);
        const int bit = drawInt(rng_, 0, 7);
        bytes[at] ^= static_cast<uint8_t>(1u << bit);
        return "bit " + std::to_string(bit) + " of byte " + std::to_string(at) + " flipped";
    }
    const int n = drawInt(rng_, 1, 3);
    std::vector<uint8_t> stray;
    for (int i = 0; i < n; ++i)
        stray.push_back(static_cast<uint8_t>(drawInt(rng_, 0, 255)));
    bytes.insert(kind == 1 ? bytes.begin() : bytes.end(), stray.begin(), stray.end());
    return std::to_string(n) + (n == 1 ? " stray byte " : " stray bytes ") +
           (kind == 1 ? "before" : "after") + " the reply";
}
