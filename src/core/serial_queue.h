#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace pulsebar {

// One worker thread that runs jobs one after another in the order they were queued, plus an optional
// repeating timer whose handler also runs on that thread. Everything handed to one queue is therefore
// serialised without further locking.
class SerialQueue {
public:
    using Job = std::function<void()>;

    // The label names the thread (the system may keep only its start).
    explicit SerialQueue(const char* label);
    // Cancels the timer, runs the jobs already queued, then ends the thread.
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void async(Job job);
    // Runs the job on the queue and waits for it; run directly when called from the queue itself.
    void sync(const Job& job);

    // Runs the handler on the queue every period, the first time one period from now. Replaces any timer.
    void startTimer(std::chrono::milliseconds period, Job handler);
    void cancelTimer();

    bool isCurrentThread() const { return std::this_thread::get_id() == m_thread.get_id(); }

private:
    void run(const std::string& label);

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Job> m_jobs;
    bool m_stopping = false;
    Job m_timerHandler;
    std::chrono::milliseconds m_timerPeriod{0};
    std::chrono::steady_clock::time_point m_timerDeadline;
    std::thread m_thread;
};

} // namespace pulsebar
