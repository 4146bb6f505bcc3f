// The one way the driver takes its mutexes. Qt's contended path runs inside
// QtCore, which ThreadSanitizer cannot see, so under TSan the hand-over is
// announced explicitly; in every other build these are plain lock/unlock.
#ifndef QUORVEL_RV_LOCKS_H
#define QUORVEL_RV_LOCKS_H

#include <QMutex>

#if defined(__SANITIZE_THREAD__)
#define RV_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define RV_TSAN 1
#endif
#endif

#ifdef RV_TSAN
extern "C" void __tsan_acquire(void *addr);
extern "C" void __tsan_release(void *addr);
#endif

inline void lockMutex(QMutex &m)
{
    m.lock();
#ifdef RV_TSAN
    __tsan_acquire(&m);
#endif
}

inline void unlockMutex(QMutex &m)
{
#ifdef RV_TSAN
    __tsan_release(&m);
#endif
    m.unlock();
}

// Holds a mutex for the rest of a scope.
class MutexHold {
public:
    explicit MutexHold(QMutex &m) : m_(m) { lockMutex(m_); }
    ~MutexHold() { unlockMutex(m_); }

private:
    MutexHold(const MutexHold &);
    MutexHold &operator=(const MutexHold &);
    QMutex &m_;
};

#endif
