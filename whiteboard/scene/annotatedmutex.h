#pragma once

#include <QMutex>
#include <QRecursiveMutex>

#include "threadannotations.h"

#if defined(__SANITIZE_THREAD__)
#define WHITEBOARD_TSAN_ANNOTATIONS 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define WHITEBOARD_TSAN_ANNOTATIONS 1
#endif
#endif

#include <mutex>

namespace whiteboard {

// The scene's locks, as ThreadSanitizer and Clang's thread-safety analysis
// can see them. QMutex and QRecursiveMutex wait on futexes inside QtCore,
// which is not instrumented, and annotating them by hand left TSan without
// the order between an unlock on one thread and the next lock on another: it
// reported races between accesses that both held the lock. In a TSan build
// the scene's locks therefore wrap the standard mutexes, whose pthread calls
// TSan intercepts; elsewhere they wrap the Qt mutexes. Either way the wrapper
// is a capability, so that GUARDED_BY and REQUIRES can name it, and it keeps
// the Qt mutex interface (lock, unlock, tryLock) for the few places that
// still lock it through QMutexLocker.
template <class Native>
class CAPABILITY("mutex") AnnotatedMutex
{
public:
    void lock() ACQUIRE() { m_mutex.lock(); }
    void unlock() RELEASE() { m_mutex.unlock(); }
    bool try_lock() TRY_ACQUIRE(true) { return m_mutex.try_lock(); }
    // Only the forms the scene uses: at once, or waiting without end.
    bool tryLock(int timeout = 0) TRY_ACQUIRE(true)
    {
        if (timeout < 0) {
            m_mutex.lock();
            return true;
        }
        return m_mutex.try_lock();
    }

private:
    Native m_mutex;
};

// Holds one of the scene's locks for its scope, as QMutexLocker does, but
// visible to the analysis (Qt 6.4's QMutexLocker carries no attributes).
template <class Mutex>
class SCOPED_CAPABILITY SceneLocker
{
public:
    explicit SceneLocker(Mutex* mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex->lock(); }
    ~SceneLocker() RELEASE() { if (m_locked) m_mutex->unlock(); }
    SceneLocker(const SceneLocker&) = delete;
    SceneLocker& operator=(const SceneLocker&) = delete;

    void unlock() RELEASE()
    {
        m_locked = false;
        m_mutex->unlock();
    }
    void relock() ACQUIRE()
    {
        m_mutex->lock();
        m_locked = true;
    }

private:
    Mutex* m_mutex;
    bool m_locked = true;
};

#ifdef WHITEBOARD_TSAN_ANNOTATIONS
using SceneRecursiveMutex = AnnotatedMutex<std::recursive_mutex>;
using SceneMutex = AnnotatedMutex<std::mutex>;
#else
using SceneRecursiveMutex = AnnotatedMutex<QRecursiveMutex>;
using SceneMutex = AnnotatedMutex<QMutex>;
#endif

} // namespace whiteboard
