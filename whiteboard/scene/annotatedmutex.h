#pragma once

#include <QMutex>
#include <QRecursiveMutex>

#if defined(__SANITIZE_THREAD__)
#define WHITEBOARD_TSAN_ANNOTATIONS 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define WHITEBOARD_TSAN_ANNOTATIONS 1
#endif
#endif

#include <mutex>

namespace whiteboard {

// The scene's locks, as ThreadSanitizer can see them. QMutex and
// QRecursiveMutex wait on futexes inside QtCore, which is not instrumented,
// and annotating them by hand left TSan without the order between an unlock
// on one thread and the next lock on another: it reported races between
// accesses that both held the lock. In a TSan build the scene's locks are
// therefore the standard mutexes, whose pthread calls TSan intercepts, behind
// the Qt mutex interface (lock, unlock, tryLock) that QMutexLocker and
// std::unique_lock use; elsewhere they are the Qt mutexes themselves.
template <class Standard>
class AnnotatedMutex
{
public:
    void lock() { m_mutex.lock(); }
    void unlock() { m_mutex.unlock(); }
    bool try_lock() { return m_mutex.try_lock(); }
    // Only the forms the scene uses: at once, or waiting without end.
    bool tryLock(int timeout = 0)
    {
        if (timeout < 0) {
            m_mutex.lock();
            return true;
        }
        return m_mutex.try_lock();
    }

private:
    Standard m_mutex;
};

#ifdef WHITEBOARD_TSAN_ANNOTATIONS
using SceneRecursiveMutex = AnnotatedMutex<std::recursive_mutex>;
using SceneMutex = AnnotatedMutex<std::mutex>;
#else
using SceneRecursiveMutex = QRecursiveMutex;
using SceneMutex = QMutex;
#endif

} // namespace whiteboard
