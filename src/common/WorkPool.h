#pragma once

#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>

// One pool of threads for all the work the program runs beside its main
// line, so that one number caps all of it (the user's --jobs).
//
//   Task<int> t = Submit([&] { return count(half); });
//   const int mine = count(otherHalf);
//   const int both = mine + t.get();
//
// Waiting for a task that no worker has begun runs it on the waiting thread.
// So a job may submit jobs and wait for them however few workers there are,
// and with a cap of 1 every job runs on the thread that waits for it.
namespace mervasto {

// At most n threads work at once, the waiting one included: n - 1 workers.
// The default is the machine's hardware threads, but at least 2. A lower cap
// leaves the extra workers idle; it holds for jobs not yet begun.
void SetJobs(unsigned n);
unsigned Jobs();
unsigned DefaultJobs();

namespace detail {

// Not copied: its mutex and condition make it a fixed place to wait at.
class JobBase {
public:
    virtual ~JobBase() = default;

    // Runs the job here unless a worker has begun it, then waits for its end;
    // rethrows what it threw.
    void wait();
    // Called by whoever took the job from the queue.
    void execute() noexcept;

protected:
    virtual void run() = 0;

private:
    std::mutex mutex_;
    std::condition_variable done_;
    bool finished_ = false;
    std::exception_ptr error_;
};

// Queues job for a worker (starting one when none is idle and the cap allows).
void Enqueue(std::shared_ptr<JobBase> job);

template <class T>
class ResultJob : public JobBase {
public:
    T take() { return std::move(*result_); }

protected:
    std::optional<T> result_;
};

template <>
class ResultJob<void> : public JobBase {
public:
    void take() {}
};

template <class Fn, class T = std::invoke_result_t<Fn&>>
class FnJob final : public ResultJob<T> {
public:
    explicit FnJob(Fn fn) : fn_(std::move(fn)) {}

private:
    void run() override {
        if constexpr (std::is_void_v<T>)
            fn_();
        else
            this->result_.emplace(fn_());
    }
    Fn fn_;
};

}  // namespace detail

// A job handed to the pool. A task that goes out of scope waits for its job
// (running it if no worker has), so nothing it refers to can vanish under it.
template <class T>
class Task {
public:
    Task() = default;
    Task(Task&&) noexcept = default;
    Task& operator=(Task&& other) noexcept {
        finish();
        job_ = std::move(other.job_);
        return *this;
    }
    ~Task() { finish(); }

    bool valid() const { return job_ != nullptr; }
    // Waits for the job; rethrows what it threw. Waiting again returns at once.
    void wait() { job_->wait(); }
    // Waits, then hands over the result (once).
    T get() {
        job_->wait();
        return job_->take();
    }

private:
    template <class Fn>
    friend auto Submit(Fn fn) -> Task<std::invoke_result_t<Fn&>>;
    explicit Task(std::shared_ptr<detail::ResultJob<T>> job) : job_(std::move(job)) {}

    void finish() noexcept {
        if (!job_) return;
        try {
            job_->wait();
        } catch (...) {
            // Its owner dropped it without asking how it went.
        }
        job_.reset();
    }

    std::shared_ptr<detail::ResultJob<T>> job_;
};

template <class Fn>
auto Submit(Fn fn) -> Task<std::invoke_result_t<Fn&>> {
    using T = std::invoke_result_t<Fn&>;
    auto job = std::make_shared<detail::FnJob<Fn>>(std::move(fn));
    detail::Enqueue(job);
    return Task<T>(std::move(job));
}

}  // namespace mervasto
