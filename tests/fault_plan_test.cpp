// rvsim's fault plan on its own: which fault each request meets and what it
// does to a reply, for a given seed. The expected draws are those of
// std::mt19937 with the seed, written out.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "sim/server/fault_plan.h"

namespace {

typedef FaultPlan F;
typedef FaultPlan::Rates R;
typedef std::vector<uint8_t> Bytes;

R rates(const std::vector<std::pair<double R::*, double>> &shares, unsigned seed)
{
    R r;
    for (const auto &s : shares)
        r.*s.first = s.second;
    r.seed = seed;
    return r;
}

}  // namespace

TEST(FaultPlanTest, ASeedDrawsKnownFaultsInTheOrderOfTheShares)
{
    const double e = 1.0 / 11;
    const struct {
        R rates;
        std::vector<F::Fault> expected;
    } cases[] = {
        {rates({{&R::drop, .5}, {&R::lose, .5}}, 1),
         {F::Lose, F::Lose, F::Drop, F::Lose, F::Drop, F::Drop, F::Drop, F::Lose}},
        {rates({{&R::drop, e},
                {&R::badCrc, e},
                {&R::truncate, e},
                {&R::wrongStation, e},
                {&R::delay, e},
                {&R::exception, e},
                {&R::lose, e},
                {&R::twice, e},
                {&R::noise, e},
                {&R::lateAnswering, e},
                {&R::resend, e}},
               3),
         {F::Drop, F::LateAnswering, F::BadCrc, F::Lose, F::Late, F::Drop, F::Drop, F::Cut,
          F::BadCrc, F::Twice, F::BadCrc, F::Late}},
        {rates({{&R::lateAnswering, .25}, {&R::resend, .25}}, 2),
         {F::LateAnswering, F::None, F::None, F::Resend, F::Resend, F::LateAnswering, F::None,
          F::LateAnswering}},
        {rates({}, 1), {F::None, F::None}},
    };
    for (const auto &c : cases) {
        FaultPlan plan;
        plan.setRates(c.rates);
        std::vector<F::Fault> got;
        for (size_t i = 0; i < c.expected.size(); ++i)
            got.push_back(plan.next(1).fault);
        EXPECT_EQ(c.expected, got) << c.rates.total();
    }
    // Shares that add up to 1 leave no request without a fault.
    FaultPlan plan;
    plan.setRates(rates({{&R::drop, .7}, {&R::resend, .3}}, 5));
    for (int i = 0; i < 1000; ++i)
        ASSERT_NE(F::None, plan.next(1).fault) << i;
}

TEST(FaultPlanTest, ForcedFaultsComeBeforeTheScriptAndTheScriptBeforeTheRates)
{
    FaultPlan plan;
    R r = rates({{&R::drop, 1}}, 1);
    r.delayMs = 100;
    r.twiceMs = 70;
    plan.setRates(r);
    plan.setScript({F::Lose, F::Twice, F::Late});
    plan.forceNext(F::WrongStation, 2, 300);
    const struct {
        int station;
        F::Fault fault;
        int delayMs, twiceMs, replyStation;
    } cases[] = {
        {247, F::WrongStation, 300, 70, 1}, {5, F::WrongStation, 300, 70, 6},
        {5, F::Lose, 100, 70, 5},           {5, F::Twice, 100, 70, 5},
        {5, F::Late, 100, 70, 5},           {5, F::Drop, 100, 70, 5},
    };
    for (const auto &c : cases) {
        const F::Choice got = plan.next(c.station);
        EXPECT_EQ(c.fault, got.fault) << F::name(c.fault);
        EXPECT_EQ(std::vector<int>({c.delayMs, c.twiceMs, c.replyStation}),
                  std::vector<int>({got.delayMs, got.twiceMs, got.replyStation}))
            << F::name(c.fault);
    }
}

TEST(FaultPlanTest, EachFaultAltersTheReplyAndSaysWhat)
{
    const Bytes echo = {0x01, 0x06, 0x00, 0x0A, 0x00, 0x64, 0xA9, 0xE3};
    const struct {
        F::Fault fault;
        unsigned seed;
        Bytes reply, sent;
        const char *said;
    } cases[] = {
        {F::None, 1, echo, echo, ""},
        {F::Drop, 1, echo, echo, "no reply sent"},
        {F::BadCrc,
         1,
         echo,
         {0x01, 0x06, 0x00, 0x0A, 0x00, 0x64, 0xA9, 0xB9},
         "reply sent with a bad CRC"},
        {F::Cut, 1, echo, {0x01}, "reply cut to 1 of 8 bytes"},
        {F::Cut, 4, echo, {0x01, 0x06, 0x00, 0x0A}, "reply cut to 4 of 8 bytes"},
        {F::WrongStation, 1, echo, echo, "reply sent from station 2"},
        {F::Late, 1, echo, echo, "reply delayed 200 ms"},
        {F::LateAnswering, 1, echo, echo,
         "reply sent 200 ms late, later requests answered meanwhile"},
        {F::Twice, 1, echo, echo, "reply sent again 50 ms later"},
        {F::Exception, 1, echo, echo, "request not applied"},
        {F::Lose, 1, {}, {}, "request lost on the line, no reply"},
        {F::Resend, 1, echo, echo, "the last reply sent again (8 bytes)"},
        {F::Resend, 1, {}, {}, "no reply sent before, nothing sent"},
        {F::Noise,
         1,
         echo,
         {0xB8, 0xEE, 0x00, 0x01, 0x06, 0x00, 0x0A, 0x00, 0x64, 0xA9, 0xE3},
         "3 stray bytes before the reply"},
        {F::Noise,
         2,
         echo,
         {0x06, 0x01, 0x06, 0x00, 0x0A, 0x00, 0x64, 0xA9, 0xE3},
         "1 stray byte before the reply"},
        {F::Noise,
         5,
         echo,
         {0x41, 0x06, 0x00, 0x0A, 0x00, 0x64, 0xA9, 0xE3},
         "bit 6 of byte 0 flipped"},
    };
    for (const auto &c : cases) {
        FaultPlan plan;
        plan.setRates(rates({}, c.seed));
        plan.setScript({c.fault});
        Bytes reply = c.reply;
        EXPECT_EQ(c.said, plan.alter(plan.next(1), reply)) << F::name(c.fault);
        EXPECT_EQ(c.sent, reply) << F::name(c.fault) << " " << c.seed;
    }
}

TEST(FaultPlanTest, NamesJitterAndNoiseAtOtherSettings)
{
    const char *const names[] = {"ok",        "drop", "crc",   "cut",   "wrong-station",  "late",
                                 "exception", "lose", "twice", "noise", "late-answering", "resend"};
    for (int kind = 0; kind < F::kKinds; ++kind) {
        F::Fault f = F::None;
        EXPECT_TRUE(F::byName(names[kind], f) && f == kind) << names[kind];
        EXPECT_STREQ(names[kind], F::name(F::Fault(kind)));
    }
    F::Fault f;
    EXPECT_FALSE(F::byName("late-ish", f));

    FaultPlan plan;
    plan.setRates(rates({}, 9));
    EXPECT_EQ(0, plan.jitterMs(0));  // draws nothing
    std::vector<int> jitter;
    for (int i = 0; i < 4; ++i)
        jitter.push_back(plan.jitterMs(10));
    EXPECT_EQ(std::vector<int>({0, 4, 5, 5}), jitter);
    const std::pair<unsigned, Bytes> misheard[] = {{1, {}}, {2, {0xED}}, {3, {}}};
    for (const auto &m : misheard) {
        plan.setRates(rates({}, m.first));
        EXPECT_EQ(m.second, plan.misheardNoise()) << m.first;
    }
}
