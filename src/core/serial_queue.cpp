#include "core/serial_queue.h"

#include "core/platform_services.h"

namespace pulsebar {

SerialQueue::SerialQueue(const char* label) : m_thread([this, name = std::string(label)] { run(name); })
{
}

SerialQueue::~SerialQueue()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
        m_timerHandler = nullptr;
    }
    m_wake.notify_all();
    m_thread.join();
}

void SerialQueue::async(Job job)
{
    {
        std::lock_guard lock(m_mutex);
        m_jobs.push_back(std::move(job));
    }
    m_wake.notify_all();
}

void SerialQueue::sync(const Job& job)
{
    if (isCurrentThread()) {
        job();
        return;
    }
    std::mutex doneMutex;
    std::condition_variable doneSignal;
    bool done = false;
    async([&] {
        job();
        std::lock_guard lock(doneMutex);
        done = true;
        doneSignal.notify_all();
    });
    std::unique_lock lock(doneMutex);
    doneSignal.wait(lock, [&] { return done; });
}

void SerialQueue::startTimer(std::chrono::milliseconds period, Job handler)
{
    {
        std::lock_guard lock(m_mutex);
        m_timerPeriod = std::max(period, std::chrono::milliseconds(1));
        m_timerDeadline = std::chrono::steady_clock::now() + m_timerPeriod;
        m_timerHandler = std::move(handler);
    }
    m_wake.notify_all();
}

void SerialQueue::cancelTimer()
{
    std::lock_guard lock(m_mutex);
    m_timerHandler = nullptr;
}

void SerialQueue::run(const std::string& label)
{
    platformServices().nameCurrentThread(label);

    std::unique_lock lock(m_mutex);
    for (;;) {
        if (!m_jobs.empty()) {
            Job job = std::move(m_jobs.front());
            m_jobs.pop_front();
            lock.unlock();
            job();
            lock.lock();
            continue;
        }
        if (m_stopping)
            return;
        if (!m_timerHandler) {
            m_wake.wait(lock);
            continue;
        }
        if (m_wake.wait_until(lock, m_timerDeadline) == std::cv_status::timeout && m_timerHandler
            && m_jobs.empty() && !m_stopping) {
            // The next deadline counts from the planned one, so the period does not drift with the work.
            m_timerDeadline += m_timerPeriod;
            if (m_timerDeadline < std::chrono::steady_clock::now())
                m_timerDeadline = std::chrono::steady_clock::now() + m_timerPeriod;
            Job handler = m_timerHandler;
            lock.unlock();
            handler();
            lock.lock();
        }
    }
}

} // namespace pulsebar
