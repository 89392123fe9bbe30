#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace whiteboard {

// Threads that paint bands of one image beside the render thread. Started
// on first use, so that a board that never repaints much keeps no threads.
// Standard threads and locks, not Qt's: ThreadSanitizer sees their order,
// and the threads live as long as the worker, so that each keeps its own
// font cache from frame to frame.
class BandWorkers
{
public:
    // `helpers` threads beside the caller's.
    explicit BandWorkers(int helpers);
    ~BandWorkers();

    BandWorkers(const BandWorkers&) = delete;
    BandWorkers& operator=(const BandWorkers&) = delete;

    // The bands that can be painted at once: the helpers and the caller.
    int width() const { return m_helpers + 1; }
    // Any thread. Calls job(0) on the calling thread and job(1 .. count - 1)
    // on the helpers; returns when all have returned. While another thread's
    // run is under way the caller does every job itself, one after another:
    // a thumbnail pass on the GUI thread never waits for a frame's bands.
    void run(int count, const std::function<void(int)>& job);

private:
    void serve(int band);

    const int m_helpers;
    // Held by the thread whose run is under way.
    std::mutex m_runMutex;
    // m_mutex guards the rest.
    std::vector<std::thread> m_threads;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_done;
    const std::function<void(int)>* m_job = nullptr;
    int m_count = 0;
    unsigned m_round = 0;
    int m_pending = 0;
    bool m_quit = false;
};

} // namespace whiteboard
