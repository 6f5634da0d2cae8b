#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "common/LineScanner.h"
#include "common/WorkPool.h"

namespace mervasto {

// A long input read by two threads: a job of the work pool reads the lines
// after the middle while the caller reads up to there. When the caller comes
// to the first line the job read, it may take the job's rows instead of
// reading on, if they are what it would have read itself; otherwise it reads
// on by itself, so the result never depends on the split.
//
// The rows the job makes belong to the caller: keep them apart from the
// caller's own hot variables (on the heap), declared before the SplitRead so
// that they outlive the job.
class SplitRead {
public:
    SplitRead() = default;
    SplitRead(const SplitRead&) = delete;
    SplitRead& operator=(const SplitRead&) = delete;
    // Tells the job to stop and waits for it.
    ~SplitRead() {
        cancel_ = true;
        task_ = {};
    }

    // Starts the job, once, when the input is no stream, has at least
    // splitBytes and the caller, at byte `at`, is before its middle (and the
    // pool has a second thread). The job calls eachLine(line, scanner) for every line after the
    // one the middle falls into; false ends its reading there.
    template <class EachLine>
    void start(const LineSource& source, uint64_t size, uint64_t at, uint64_t splitBytes, EachLine eachLine) {
        if (tried_ || !source.splittable() || size < splitBytes || at >= size / 2 || Jobs() < 2) return;
        tried_ = true;
        from_ = size / 2;
        task_ = Submit(
            [this, &source, from = from_, eachLine = std::move(eachLine)]() mutable { read(source, from, eachLine); });
    }

    // Whether the caller's line at lineStart lies past the middle, so that
    // it is time for joinAt. A compare with a member the job never writes.
    bool reached(uint64_t lineStart) const { return lineStart > from_; }

    // Waits for the job and ends the split. True when the job read from the
    // caller's line at lineStart on (no gap, no overlap) without a fault of
    // the input itself (a read error, a line too long: the caller meets
    // those again by itself).
    bool joinAt(uint64_t lineStart) {
        from_ = UINT64_MAX;
        task_.wait();
        return started_ && !failed_ && start_ == lineStart;
    }
    // Whether the job read to the end of the input.
    bool ended() const { return ended_; }

private:
    template <class EachLine>
    void read(const LineSource& source, uint64_t from, EachLine& eachLine) noexcept {
        try {
            LineScanner in;
            source.open(in, from);
            std::string_view line;
            if (cancel_ || !in.next(line)) return;  // the part-line the middle fell into
            uint64_t lines = 0;
            while (in.next(line)) {
                if (lines++ == 0) {
                    start_ = in.lineStart();
                    started_ = true;
                }
                if ((lines & 0xFFFF) == 0 && cancel_.load(std::memory_order_relaxed)) return;
                if (!eachLine(line, in)) return;
            }
            ended_ = true;
        } catch (...) {
            failed_ = true;
        }
    }

    uint64_t from_ = UINT64_MAX;  // where the job begins (inside some line) until the join
    bool tried_ = false;
    // Written by the job, read after it ended.
    alignas(64) uint64_t start_ = 0;  // the first line it read
    bool started_ = false;
    bool ended_ = false;
    bool failed_ = false;
    std::atomic<bool> cancel_{false};
    Task<void> task_;
};

}  // namespace mervasto
