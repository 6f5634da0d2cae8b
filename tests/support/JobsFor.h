#pragma once

#include "common/WorkPool.h"

namespace mervasto::test {

// The work pool's cap for one scope; the cap before it comes back after.
struct JobsFor {
    explicit JobsFor(unsigned n) : old(Jobs()) { SetJobs(n); }
    ~JobsFor() { SetJobs(old); }
    JobsFor(const JobsFor&) = delete;
    JobsFor& operator=(const JobsFor&) = delete;
    unsigned old;
};

}  // namespace mervasto::test
