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

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

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

// A recursive AnnotatedMutex whose threads take turns: a thread that lets go
// of it while another waits gives way, before it takes it again, until the
// waiting one has had it (or 2 ms have passed). Neither Qt's nor the standard
// mutex is fair: the GUI thread applying received messages back to back
// unlocked and locked again before the woken render thread ran, and frames
// stopped for as long as the stream lasted.
template <class Native>
class CAPABILITY("mutex") FairRecursiveMutex
{
public:
    void lock() ACQUIRE()
    {
        const std::thread::id self = std::this_thread::get_id();
        if (m_owner.load(std::memory_order_relaxed) == self) {
            m_mutex.lock();
            ++m_depth;
            return;
        }
        if (m_handOver.load(std::memory_order_acquire)) {
            const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(2);
            while (m_handOver.load(std::memory_order_acquire) && std::chrono::steady_clock::now() < until)
                std::this_thread::yield();
        }
        if (!m_mutex.try_lock()) {
            m_waiting.fetch_add(1, std::memory_order_relaxed);
            m_mutex.lock();
            m_waiting.fetch_sub(1, std::memory_order_relaxed);
        }
        taken(self);
    }
    void unlock() RELEASE()
    {
        if (--m_depth == 0) {
            m_owner.store(std::thread::id(), std::memory_order_relaxed);
            if (m_waiting.load(std::memory_order_relaxed) > 0)
                m_handOver.store(true, std::memory_order_release);
        }
        m_mutex.unlock();
    }
    bool try_lock() TRY_ACQUIRE(true)
    {
        if (!m_mutex.try_lock())
            return false;
        const std::thread::id self = std::this_thread::get_id();
        if (m_owner.load(std::memory_order_relaxed) == self)
            ++m_depth;
        else
            taken(self);
        return true;
    }
    // Only the forms the scene uses: at once, or waiting without end.
    bool tryLock(int timeout = 0) TRY_ACQUIRE(true)
    {
        if (timeout < 0) {
            lock();
            return true;
        }
        return try_lock();
    }

private:
    void taken(std::thread::id self)
    {
        m_handOver.store(false, std::memory_order_relaxed);
        m_owner.store(self, std::memory_order_relaxed);
        m_depth = 1;
    }

    Native m_mutex;
    // The holder and its depth; the depth is the holder's alone.
    std::atomic<std::thread::id> m_owner {};
    int m_depth = 0;
    // Threads blocked in lock(), and whether the last one out saw any.
    std::atomic<int> m_waiting { 0 };
    std::atomic<bool> m_handOver { false };
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
using SceneRecursiveMutex = FairRecursiveMutex<std::recursive_mutex>;
using SceneMutex = AnnotatedMutex<std::mutex>;
#else
using SceneRecursiveMutex = FairRecursiveMutex<QRecursiveMutex>;
using SceneMutex = AnnotatedMutex<QMutex>;
#endif

} // namespace whiteboard
