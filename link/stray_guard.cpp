#include "stray_guard.h"

#include <algorithm>

namespace rvlink {

namespace {

// Distinct requests whose last answer is remembered; past this the memory
// starts afresh (a list of this many blocks is far beyond a panel's).
const std::size_t kMaxRequests = 65536;

}  // namespace

StrayGuard::StrayGuard(int windowMs, int maxWindowMs)
    : windowMs_(std::max(1, windowMs)),
      maxWindowMs_(std::max(windowMs_, maxWindowMs))
{}

void StrayGuard::forgetOld(long long nowMs)
{
    while (!seen_.empty() && nowMs - seen_.front().atMs > windowMs_)
        seen_.pop_front();
}

void StrayGuard::noteAnswer(const Bytes &request, const Bytes &reply, long long nowMs)
{
    forgetOld(nowMs);
    seen_.push_back(Seen{nowMs, request, reply});
    if (lastAnswer_.size() >= kMaxRequests)
        lastAnswer_.clear();
    lastAnswer_[request] = reply;
}

void StrayGuard::noteUnanswered(const Bytes &reply, long long nowMs)
{
    forgetOld(nowMs);
    seen_.push_back(Seen{nowMs, Bytes(), reply});
    noteStrays(nowMs);
}

void StrayGuard::noteStrays(long long nowMs)
{
    lastStrayMs_ = nowMs;
}

bool StrayGuard::noteLateness(long long latenessMs)
{
    if (2 * latenessMs <= windowMs_)
        return false;
    windowMs_ = int(std::min<long long>(2 * latenessMs, maxWindowMs_));
    return true;
}

bool StrayGuard::couldBeCopy(const Bytes &request, const Bytes &reply, long long nowMs)
{
    forgetOld(nowMs);
    for (const Seen &s : seen_)
        if (s.reply == reply && s.request != request)
            return true;
    return false;
}

bool StrayGuard::repeatsLastAnswer(const Bytes &request, const Bytes &reply) const
{
    const auto last = lastAnswer_.find(request);
    return last != lastAnswer_.end() && last->second == reply;
}

bool StrayGuard::showsStrays(long long nowMs) const
{
    const long long memory = std::max(60000LL, 20LL * windowMs_);
    return lastStrayMs_ >= 0 && nowMs - lastStrayMs_ < memory;
}

std::vector<int> StrayGuard::shapesInWindow(int station, int function, long long nowMs)
{
    forgetOld(nowMs);
    std::vector<int> shapes;
    for (const Seen &s : seen_)
        if (s.reply.size() >= 3 && s.reply[0] == station && s.reply[1] == function)
            shapes.push_back(s.reply[2]);
    return shapes;
}

}  // namespace rvlink
