#include "scene/bandworkers.h"

#include <algorithm>

namespace whiteboard {

BandWorkers::BandWorkers(int helpers)
    : m_helpers(helpers)
{
}

BandWorkers::~BandWorkers()
{
    {
        std::lock_guard<std::mutex> locker(m_mutex);
        m_quit = true;
    }
    m_wake.notify_all();
    for (std::thread& thread : m_threads)
        thread.join();
}

void BandWorkers::run(int count, const std::function<void(int)>& job)
{
    std::unique_lock<std::mutex> running(m_runMutex, std::try_to_lock);
    if (!running.owns_lock()) {
        for (int band = 0; band < count; ++band)
            job(band);
        return;
    }
    const int shared = std::min(count, width());
    if (shared > 1) {
        std::lock_guard<std::mutex> locker(m_mutex);
        while (int(m_threads.size()) < m_helpers)
            m_threads.emplace_back(&BandWorkers::serve, this, int(m_threads.size()) + 1);
        m_job = &job;
        m_count = shared;
        m_pending = shared - 1;
        ++m_round;
        m_wake.notify_all();
    }
    job(0);
    // More bands than threads: the rest are the caller's.
    for (int band = shared; band < count; ++band)
        job(band);
    if (shared <= 1)
        return;
    std::unique_lock<std::mutex> locker(m_mutex);
    m_done.wait(locker, [this] { return m_pending == 0; });
    m_job = nullptr;
}

void BandWorkers::serve(int band)
{
    unsigned seen = 0;
    std::unique_lock<std::mutex> locker(m_mutex);
    for (;;) {
        m_wake.wait(locker, [&] { return m_quit || m_round != seen; });
        if (m_quit)
            return;
        seen = m_round;
        if (band >= m_count)
            continue;
        const std::function<void(int)>* job = m_job;
        locker.unlock();
        (*job)(band);
        locker.lock();
        if (--m_pending == 0)
            m_done.notify_one();
    }
}

} // namespace whiteboard
