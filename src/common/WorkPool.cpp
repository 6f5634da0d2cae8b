#include "common/WorkPool.h"

#include <algorithm>
#include <deque>
#include <thread>
#include <vector>

namespace mervasto {

namespace {

// Workers start on demand and stay for the program's life: starting a thread
// for every file cost more than reading a short file.
class Pool {
public:
    static Pool& get() {
        static Pool pool;
        return pool;
    }

    ~Pool() {
        {
            std::lock_guard lock(mutex_);
            stop_ = true;
        }
        wake_.notify_all();
        for (std::thread& t : workers_) t.join();
    }

    void setJobs(unsigned n) {
        {
            std::lock_guard lock(mutex_);
            jobs_ = std::max(n, 1u);
        }
        wake_.notify_all();
    }

    unsigned jobs() {
        std::lock_guard lock(mutex_);
        return jobs_;
    }

    void enqueue(std::shared_ptr<detail::JobBase> job) {
        {
            std::lock_guard lock(mutex_);
            queue_.push_back(std::move(job));
            if (queue_.size() > idle_ && workers_.size() + 1 < jobs_) {
                const auto index = static_cast<unsigned>(workers_.size());
                workers_.emplace_back([this, index] { work(index); });
            }
        }
        // All: a worker beyond a lowered cap must not swallow the wake-up.
        wake_.notify_all();
    }

    // True when job was still queued: the caller runs it then.
    bool takeBack(const detail::JobBase* job) {
        std::lock_guard lock(mutex_);
        const auto it = std::find_if(queue_.begin(), queue_.end(), [&](const auto& j) { return j.get() == job; });
        if (it == queue_.end()) return false;
        queue_.erase(it);
        return true;
    }

private:
    Pool() : jobs_(DefaultJobs()) {}

    void work(unsigned index) {
        std::unique_lock lock(mutex_);
        while (true) {
            ++idle_;
            wake_.wait(lock, [&] { return stop_ || (!queue_.empty() && index + 1 < jobs_); });
            --idle_;
            if (stop_) return;
            std::shared_ptr<detail::JobBase> job = std::move(queue_.front());
            queue_.pop_front();
            lock.unlock();
            job->execute();
            job.reset();
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::shared_ptr<detail::JobBase>> queue_;
    std::vector<std::thread> workers_;
    unsigned idle_ = 0;
    unsigned jobs_;
    bool stop_ = false;
};

}  // namespace

void SetJobs(unsigned n) { Pool::get().setJobs(n); }

unsigned Jobs() { return Pool::get().jobs(); }

unsigned DefaultJobs() { return std::max(std::thread::hardware_concurrency(), 2u); }

namespace detail {

void Enqueue(std::shared_ptr<JobBase> job) { Pool::get().enqueue(std::move(job)); }

void JobBase::wait() {
    if (Pool::get().takeBack(this)) execute();
    std::unique_lock lock(mutex_);
    done_.wait(lock, [&] { return finished_; });
    if (error_) std::rethrow_exception(error_);
}

void JobBase::execute() noexcept {
    std::exception_ptr error;
    try {
        run();
    } catch (...) {
        error = std::current_exception();
    }
    {
        std::lock_guard lock(mutex_);
        error_ = error;
        finished_ = true;
    }
    done_.notify_all();
}

}  // namespace detail

}  // namespace mervasto
