#pragma once

// Clang's thread-safety attributes, so that the compiler checks which lock
// guards what and what a caller must hold (-Wthread-safety, on in the clang
// build of the sanitizer stage). Other compilers see nothing.
#if defined(__clang__)
#define WHITEBOARD_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define WHITEBOARD_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) WHITEBOARD_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY WHITEBOARD_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) WHITEBOARD_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) WHITEBOARD_THREAD_ANNOTATION(pt_guarded_by(x))
#define ACQUIRED_BEFORE(...) WHITEBOARD_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define ACQUIRED_AFTER(...) WHITEBOARD_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#define REQUIRES(...) WHITEBOARD_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) WHITEBOARD_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) WHITEBOARD_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) WHITEBOARD_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define EXCLUDES(...) WHITEBOARD_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define RETURN_CAPABILITY(x) WHITEBOARD_THREAD_ANNOTATION(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS WHITEBOARD_THREAD_ANNOTATION(no_thread_safety_analysis)
