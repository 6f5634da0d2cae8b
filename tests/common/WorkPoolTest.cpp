#include <gtest/gtest.h>

#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

#include "common/WorkPool.h"
#include "support/JobsFor.h"

namespace mervasto {
namespace {

using test::JobsFor;

// Sums first..last by halves, each half a job that splits again and waits
// for its own jobs: with few workers every level waits on jobs no worker
// has begun, which must run on the waiting thread instead of hanging.
struct TreeSum {
    std::mutex mutex;
    std::set<std::thread::id> threads;

    long sum(long first, long last) {
        {
            std::lock_guard lock(mutex);
            threads.insert(std::this_thread::get_id());
        }
        if (last - first < 4) {
            long s = 0;
            for (long k = first; k <= last; ++k) s += k;
            return s;
        }
        const long mid = (first + last) / 2;
        Task<long> low = Submit([=, this] { return sum(first, mid); });
        Task<long> high = Submit([=, this] { return sum(mid + 1, last); });
        return high.get() + low.get();
    }
};

TEST(WorkPoolTest, NestedJobsGiveTheirResultsUnderEveryCap) {
    for (unsigned jobs : {1u, 2u, 3u, 8u}) {
        SCOPED_TRACE(jobs);
        JobsFor cap(jobs);
        TreeSum tree;
        EXPECT_EQ(tree.sum(1, 1000), 500500);
        // The waiting thread is one of them; a cap of 1 uses no other.
        EXPECT_LE(tree.threads.size(), jobs);
        if (jobs == 1) {
            EXPECT_EQ(*tree.threads.begin(), std::this_thread::get_id());
        }
    }
}

TEST(WorkPoolTest, AJobsFailureReachesItsWaiterAndADroppedTaskStillRuns) {
    JobsFor cap(2);
    Task<int> failing = Submit([]() -> int { throw std::runtime_error("bad row"); });
    EXPECT_THROW(failing.get(), std::runtime_error);

    int done = 0;
    {
        Task<void> dropped = Submit([&] { done = 1; });
    }
    EXPECT_EQ(done, 1);

    // Many more jobs than workers, waited for in the order they were given.
    std::vector<Task<int>> tasks;
    for (int k = 0; k < 100; ++k) tasks.push_back(Submit([k] { return k * k; }));
    for (int k = 0; k < 100; ++k) EXPECT_EQ(tasks[static_cast<size_t>(k)].get(), k * k);
}

}  // namespace
}  // namespace mervasto
