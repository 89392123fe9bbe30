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

#ifdef WHITEBOARD_TSAN_ANNOTATIONS
#include <sanitizer/tsan_interface.h>
#endif

namespace whiteboard {

// A Qt mutex that ThreadSanitizer can see. QMutex and QRecursiveMutex wait on
// futexes inside QtCore, which is not instrumented, so without these
// annotations TSan sees no order between the GUI and render threads and
// cannot tell a real race on the scene's state from a locked access. The
// scene's locks are of this type; outside a TSan build it is the Qt mutex.
//
// Chosen over std::mutex and std::recursive_mutex, which TSan intercepts,
// because the render worker waits with tryLock(-1) and the lockers stay
// QMutexLocker: only the declarations change.
template <class Base, unsigned CreateFlags>
class AnnotatedMutex : public Base
{
public:
#ifdef WHITEBOARD_TSAN_ANNOTATIONS
    AnnotatedMutex() { __tsan_mutex_create(this, CreateFlags); }
    ~AnnotatedMutex() { __tsan_mutex_destroy(this, 0); }

    void lock()
    {
        __tsan_mutex_pre_lock(this, 0);
        Base::lock();
        __tsan_mutex_post_lock(this, 0, 0);
    }
    bool tryLock(int timeout = 0)
    {
        __tsan_mutex_pre_lock(this, __tsan_mutex_try_lock);
        const bool locked = Base::tryLock(timeout);
        __tsan_mutex_post_lock(this, locked ? __tsan_mutex_try_lock : __tsan_mutex_try_lock | __tsan_mutex_try_lock_failed, 0);
        return locked;
    }
    void unlock()
    {
        __tsan_mutex_pre_unlock(this, 0);
        Base::unlock();
        __tsan_mutex_post_unlock(this, 0);
    }
#endif
};

#ifdef WHITEBOARD_TSAN_ANNOTATIONS
using SceneRecursiveMutex = AnnotatedMutex<QRecursiveMutex, __tsan_mutex_write_reentrant>;
#else
using SceneRecursiveMutex = AnnotatedMutex<QRecursiveMutex, 0>;
#endif
using SceneMutex = AnnotatedMutex<QMutex, 0>;

} // namespace whiteboard
