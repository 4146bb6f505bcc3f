#include "line.h"

#include <algorithm>
#include <thread>

#include "confirm_read.h"
#include "reply_scan.h"
#include "rtu_frame.h"

namespace rvlink {

namespace {

// The first whole reply of the shape `e` describes in `bytes`, or nothing.
Bytes wholeReplyIn(const Expectation &e, const Bytes &bytes)
{
    for (std::size_t at = 0; at < bytes.size();) {
        const Step s = readReply(e, bytes.data() + at, bytes.size() - at, false);
        if (s.verdict == Verdict::Frame)
            return Bytes(bytes.begin() + long(at), bytes.begin() + long(at) + s.bytes);
        if (s.verdict == Verdict::NeedMore)
            break;
        at += std::size_t(s.bytes);
    }
    return Bytes();
}

}  // namespace

Line::Line(Port &port, const LineOptions &options)
    : port_(port),
      options_(options),
      guard_(options.windowMs > 0 ? options.windowMs : 4 * std::max(1, options.timeoutMs)),
      gapUs_(options.gapUs >= 0 ? options.gapUs : frameGapUs(options.format)),
      start_(Clock::now()),
      quietSince_(start_)
{}

long long Line::nowMs() const
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start_).count();
}

void Line::restart()
{
    quietSince_ = Clock::now();
}

void Line::trace(const Bytes &bytes, char open, char close, long long sinceMs)
{
    if (!trace_ || bytes.empty())
        return;
    fprintf(trace_, "%8.1f ms %s\n", double(nowMs() - sinceMs),
            bracketed(bytes, open, close).c_str());
}

void Line::waitForGap()
{
    const Clock::time_point ready = quietSince_ + std::chrono::microseconds(gapUs_);
    if (Clock::now() < ready)
        std::this_thread::sleep_until(ready);
}

bool Line::send(const Bytes &frame)
{
    waitForGap();
    trace(frame, '[', ']', nowMs());
    if (options_.tap)
        options_.tap->sent(frame.data(), frame.size(), busClockUs());
    const bool sent = port_.write(frame.data(), frame.size()) && port_.drain();
    // The request is timed from when its last byte has left.
    quietSince_ = Clock::now();
    return sent;
}

int Line::readPort(std::uint8_t *buf, std::size_t max, int timeoutMs)
{
    const int n = port_.read(buf, max, timeoutMs);
    if (n > 0 && options_.tap)
        options_.tap->received(buf, std::size_t(n), busClockUs());
    return n;
}

void Line::noteStrayBytes(const Bytes &bytes, const Bytes *request, const Bytes &answer)
{
    if (bytes.empty())
        return;
    const long long now = nowMs();
    guard_.noteStrays(now);
    for (const Bytes &reply : findReplies(bytes.data(), bytes.size())) {
        if (request && reply == answer)
            guard_.noteAnswer(*request, reply, now, StrayGuard::Taken::Late);
        else
            guard_.noteUnanswered(reply, now);
    }
}

int Line::takeStrays()
{
    Bytes stray(512);
    int total = 0;
    // What is readable now, then the driver's buffer flushed.
    for (;;) {
        const int n = readPort(stray.data(), stray.size(), 0);
        if (n <= 0)
            break;
        total += n;
        noteStrayBytes(Bytes(stray.begin(), stray.begin() + n));
    }
    const int flushed = port_.discardInput();
    if (flushed > 0)
        guard_.noteStrays(nowMs());
    return total + flushed;
}

int Line::settle(long long untilMs, int quietMs, long long sentMs, const Bytes *request,
                 const Expectation *expect)
{
    int discarded = 0;
    Bytes buf(512), late;
    long long lastByteMs = -1;
    Bytes answer;  // the failed request's own late answer, once it came
    for (;;) {
        const long long now = nowMs();
        long long wait = untilMs - now;
        if (lastByteMs >= 0)
            wait = std::max(wait, lastByteMs + quietMs - now);
        if (wait <= 0)
            break;
        const int n = readPort(buf.data(), buf.size(), int(std::min<long long>(wait, 1000)));
        if (n < 0)
            break;
        if (n == 0)
            continue;
        lastByteMs = nowMs();
        discarded += n;
        late.insert(late.end(), buf.begin(), buf.begin() + n);
        trace(Bytes(buf.begin(), buf.begin() + n), '<', '>', sentMs >= 0 ? sentMs : lastByteMs);
        if (sentMs >= 0)
            guard_.noteLateness(lastByteMs - sentMs);
        // The failed request's answer, late: nothing more is owed by it. A
        // copy of a reply seen is no such answer; the wait goes on.
        if (expect && request && answer.empty()) {
            const Bytes reply = wholeReplyIn(*expect, late);
            if (!reply.empty() && !guard_.couldBeCopy(*request, reply, lastByteMs)) {
                answer = reply;
                untilMs = lastByteMs;
            }
        }
    }
    // The failed request's answer, though too late to be taken, is its own:
    // the same bytes asked again are no copy of another's.
    noteStrayBytes(late, answer.empty() ? nullptr : request, answer);
    quietSince_ = Clock::now();
    return discarded;
}

int Line::settleAfterFailure(long long sentMs, const Bytes *request, const Expectation *late)
{
    return settle(sentMs + guard_.windowMs(), options_.byteTimeoutMs, sentMs, request, late);
}

int Line::confirmQuietMs() const
{
    // A reply's own answer behind a copy comes within about a round trip.
    const double quiet = slowestMs_ < 0
                             ? options_.timeoutMs
                             : std::min(double(options_.timeoutMs),
                                        std::max(2 * slowestMs_, 4 * double(gapUs_) / 1000.0));
    return int(quiet) + 1;
}

int Line::listen(int ms)
{
    if (!port_.isOpen())
        return 0;
    const long long now = nowMs();
    return settle(now + (ms >= 0 ? ms : confirmQuietMs()), 0, -1);
}

Expectation Line::expectationOf(const Bytes &frame, int replyLength) const
{
    return options_.remoteFrames ? expectRemoteReply(frame.data(), frame.size(), replyLength)
                                 : expectReply(frame.data(), frame.size(), replyLength);
}

// The response timeout runs until a byte that can start the reply has come,
// the byte timeout between its pieces after that.
bool Line::readReply(const Expectation &expect, Exchange &x, Bytes buf, const Bytes *request)
{
    const Clock::time_point sent = quietSince_;
    const long long sentMs = nowMs();
    Clock::time_point lastByte = sent;
    Bytes skippedBytes;
    std::uint8_t piece[512];
    const auto msSince = [](Clock::time_point from) {
        return std::chrono::duration<double, std::milli>(Clock::now() - from).count();
    };
    for (;;) {
        const bool quiet =
            !buf.empty() && expect.length < 0 && msSince(lastByte) >= options_.byteTimeoutMs;
        const Step step = rvlink::readReply(expect, buf.data(), buf.size(), quiet);
        if (step.verdict == Verdict::Skip) {
            x.skipped += step.bytes;
            if (step.reason == SkipReason::OtherStation)
                ++x.otherStation;
            else if (answersAnotherFrame(step.reason))
                ++x.otherFrame;
            noteStrayBytes(Bytes(buf.begin(), buf.begin() + step.bytes));
            skippedBytes.insert(skippedBytes.end(), buf.begin(), buf.begin() + step.bytes);
            buf.erase(buf.begin(), buf.begin() + step.bytes);
            if (request && !request->empty() && skippedBytes.size() >= request->size() &&
                std::equal(request->begin(), request->end(), skippedBytes.begin()))
                x.echoHeard = true;
            continue;
        }
        if (step.verdict == Verdict::Frame) {
            x.outcome = Exchange::Answered;
            x.reply.assign(buf.begin(), buf.begin() + step.bytes);
            x.strayAfter = int(buf.size()) - step.bytes;
            x.rttMs = std::chrono::duration<double, std::milli>(lastByte - sent).count();
            noteStrayBytes(Bytes(buf.begin() + step.bytes, buf.end()));
            return true;
        }
        const Clock::time_point now = Clock::now();
        const Clock::time_point limit =
            buf.empty() ? sent + std::chrono::milliseconds(options_.timeoutMs)
                        : lastByte + std::chrono::milliseconds(options_.byteTimeoutMs);
        if (now >= limit) {
            x.outcome = buf.empty() ? Exchange::NoAnswer : Exchange::Cut;
            x.reply = buf;
            x.silenceMs = std::chrono::duration<double, std::milli>(now - lastByte).count();
            x.rttMs = std::chrono::duration<double, std::milli>(lastByte - sent).count();
            return true;
        }
        const int wait =
            int(std::chrono::duration_cast<std::chrono::milliseconds>(limit - now).count()) + 1;
        const int n = readPort(piece, sizeof piece, wait);
        if (n < 0)
            return false;
        if (n > 0) {
            lastByte = Clock::now();
            quietSince_ = lastByte;
            trace(Bytes(piece, piece + n), '<', '>', sentMs);
            buf.insert(buf.end(), piece, piece + n);
        }
    }
}

bool Line::checkRead(const Bytes &request, int replyLength, Bytes &reply, bool &refused,
                     Exchange &x)
{
    refused = false;
    waitForGap();
    if (takeStrays() > 0)
        return false;
    if (!send(request))
        return false;
    ++x.checks;
    ++x.framesSent;
    const long long sentMs = nowMs();
    Exchange c;
    if (!readReply(expectationOf(request, replyLength), c))
        return false;
    if (c.outcome == Exchange::Answered)
        ++x.repliesHeard;
    if (c.outcome != Exchange::Answered || c.strayAfter > 0 ||
        !crcCloses(c.reply.data(), c.reply.size())) {
        settleAfterFailure(sentMs);
        return false;
    }
    if (isException(c.reply[1])) {
        refused = true;
        return false;
    }
    // On a line that shows copies, a confirming read must not be one itself.
    if (guard_.couldBeCopy(request, c.reply, nowMs()) && guard_.showsStrays(nowMs()))
        return false;
    reply = c.reply;
    return true;
}

bool Line::confirm(const Bytes &frame, Exchange &x)
{
    x.late += settle(nowMs() + confirmQuietMs(), confirmQuietMs(), -1);
    int station = 0, function = 0;
    confirmationShape(frame, options_.remoteFrames, station, function);
    for (int attempt = 0; attempt < 3; ++attempt) {
        const Confirmation plan =
            planConfirmation(frame, options_.remoteFrames,
                             guard_.shapesRemembered(station, function, nowMs()), attempt);
        if (plan.reads.empty())
            return false;
        std::vector<Bytes> replies;
        bool refused = false;
        for (const CheckRead &read : plan.reads) {
            Bytes reply;
            if (!checkRead(read.request, read.replyLength, reply, refused, x))
                break;
            replies.push_back(reply);
        }
        if (refused)
            continue;  // another way of asking may be allowed
        if (replies.size() != plan.reads.size())
            return false;
        if (!confirms(frame, x.reply, options_.remoteFrames, plan, replies)) {
            guard_.noteUnanswered(x.reply, nowMs());
            x.doubt += "; the confirming read disproved it";
            return false;
        }
        for (std::size_t i = 0; i < replies.size(); ++i)
            guard_.noteAnswer(plan.reads[i].request, replies[i], nowMs(),
                              StrayGuard::Taken::Confirmed);
        return true;
    }
    return false;
}

Exchange Line::exchange(const Bytes &frame, int replyLength)
{
    Exchange x;
    x.outcome = Exchange::Lost;
    if (!port_.isOpen())
        return x;
    waitForGap();
    x.strayBefore = takeStrays();
    // The rest of whatever that was must not meet the request.
    if (x.strayBefore > 0)
        x.late += settle(nowMs() + confirmQuietMs(), options_.byteTimeoutMs, -1);
    if (!send(frame))
        return x;
    x.framesSent = 1;
    const long long sentMs = nowMs();
    // A 2-wire adapter hears its own frame first. Bytes that are not that
    // frame are the reply's: the line has no echo after all.
    Bytes heard;
    if (options_.discardEcho) {
        Expectation echo;
        echo.length = int(frame.size());
        Exchange e;
        if (!readReply(echo, e))
            return x;
        if (e.reply != frame) {
            x.echoMissing = true;
            heard = e.reply;
        }
    }
    if (replyLength == 0) {
        x.outcome = Exchange::Broadcast;
        return x;
    }
    if (!readReply(expectationOf(frame, replyLength), x, heard,
                   options_.discardEcho ? nullptr : &frame)) {
        x.outcome = Exchange::Lost;
        return x;
    }
    if (x.outcome == Exchange::Answered)
        ++x.repliesHeard;
    x.expected =
        x.reply.size() >= 2 && isException(x.reply[1]) ? kExceptionReplyLength : replyLength;
    if (x.outcome != Exchange::Answered || !crcCloses(x.reply.data(), x.reply.size())) {
        // The driver turns a bad reply down; either way a late or longer
        // reply may still be coming, unless nothing came yet and it does.
        const Expectation expect = expectationOf(frame, replyLength);
        const bool silent = x.outcome == Exchange::NoAnswer && x.skipped == 0;
        x.late += settleAfterFailure(sentMs, &frame, silent ? &expect : nullptr);
        return x;
    }
    const long long now = nowMs();
    const bool bytesAround = x.strayBefore > 0 || x.strayAfter > 0;
    const bool copy = guard_.couldBeCopy(frame, x.reply, now);
    const bool exception = isException(x.reply[1]);
    // An exception shows no value and lands no write: only bytes around it
    // put it in doubt.
    const bool taken =
        (!bytesAround && (!copy || exception)) ||
        (!bytesAround && !guard_.showsStrays(now) && guard_.repeatsLastAnswer(frame, x.reply));
    if (!taken) {
        x.doubted = true;
        x.doubt = bytesAround ? (x.strayAfter > 0 ? "bytes came after it" : "stray bytes before it")
                              : "it repeats a reply taken for another frame";
        if (exception || !confirm(frame, x)) {
            x.outcome = Exchange::Unconfirmed;
            x.late += settleAfterFailure(nowMs());
            return x;
        }
        x.confirmed = true;
    }
    guard_.noteAnswer(frame, x.reply, nowMs(),
                      x.confirmed ? StrayGuard::Taken::Confirmed : StrayGuard::Taken::AsItCame);
    slowestMs_ = std::max(slowestMs_, x.rttMs);
    return x;
}

}  // namespace rvlink
