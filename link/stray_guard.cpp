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

long long StrayGuard::memoryMs() const
{
    return std::max(60000LL, 20LL * windowMs_);
}

void StrayGuard::forgetOld(long long nowMs)
{
    // Swept when the table has doubled, so each reply costs a constant share.
    if (seen_.size() < sweepAt_)
        return;
    for (auto it = seen_.begin(); it != seen_.end();)
        it = nowMs - it->second.atMs > memoryMs() ? seen_.erase(it) : std::next(it);
    sweepAt_ = std::max<std::size_t>(1024, 2 * seen_.size());
}

void StrayGuard::noteAnswer(const Bytes &request, const Bytes &reply, long long nowMs, Taken how)
{
    forgetOld(nowMs);
    auto found = seen_.find(reply);
    if (found == seen_.end() || how == Taken::Confirmed) {
        seen_[reply] = Seen{nowMs, request};
    } else {
        // Taken for another request too: a copy of it answers neither surely.
        if (found->second.request != request)
            found->second.request.clear();
        found->second.atMs = nowMs;
    }
    if (how == Taken::Late)
        return;  // shown by no one
    if (lastAnswer_.size() >= kMaxRequests)
        lastAnswer_.clear();
    lastAnswer_[request] = reply;
}

void StrayGuard::noteUnanswered(const Bytes &reply, long long nowMs)
{
    forgetOld(nowMs);
    seen_[reply] = Seen{nowMs, Bytes()};
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

bool StrayGuard::couldBeCopy(const Bytes &request, const Bytes &reply, long long nowMs) const
{
    const auto found = seen_.find(reply);
    return found != seen_.end() && nowMs - found->second.atMs <= memoryMs() &&
           found->second.request != request;
}

bool StrayGuard::repeatsLastAnswer(const Bytes &request, const Bytes &reply) const
{
    const auto last = lastAnswer_.find(request);
    return last != lastAnswer_.end() && last->second == reply;
}

bool StrayGuard::showsStrays(long long nowMs) const
{
    return lastStrayMs_ >= 0 && nowMs - lastStrayMs_ < memoryMs();
}

std::vector<int> StrayGuard::shapesRemembered(int station, int function, long long nowMs) const
{
    std::vector<int> shapes;
    for (const auto &s : seen_)
        if (nowMs - s.second.atMs <= memoryMs() && s.first.size() >= 3 && s.first[0] == station &&
            s.first[1] == function)
            shapes.push_back(s.first[2]);
    return shapes;
}

}  // namespace rvlink
