#pragma once

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "dso/ByteTransport.h"

namespace mervasto::test {

// An instrument played back from a recorded exchange: every line the link
// sends is logged, and the next step of the script answers it when it is
// that step's line (with the reply bytes as recorded, line end included).
// A line off the script gets no answer, so the exchange fails there.
struct Step {
    std::string sent;
    std::string reply;
};

class ReplayTransport : public ByteTransport {
public:
    struct Record {
        std::vector<Step> script;
        size_t next = 0;
        std::vector<std::string> sent;
        bool done() const { return next == script.size(); }
    };

    explicit ReplayTransport(std::shared_ptr<Record> record) : record_(std::move(record)) {}

    void open(const std::string&, uint16_t) override { state_ = State::Connected; }
    State state() const override { return state_; }
    int64_t readAvailable(std::string& into) override {
        const auto n = static_cast<int64_t>(in_.size());
        into += in_;
        in_.clear();
        return n;
    }
    void write(const std::string& bytes) override {
        out_ += bytes;
        for (size_t lf; (lf = out_.find('\n')) != std::string::npos;) {
            const std::string line = out_.substr(0, lf);
            out_.erase(0, lf + 1);
            Record& r = *record_;
            r.sent.push_back(line);
            if (r.next < r.script.size() && r.script[r.next].sent == line) in_ += r.script[r.next++].reply;
        }
    }
    int64_t bytesToWrite() const override { return 0; }
    void abort() override {
        state_ = State::Closed;
        in_.clear();
    }

private:
    std::shared_ptr<Record> record_;
    State state_ = State::Closed;
    std::string out_;
    std::string in_;
};

// A definite-length block as the SCPI families send it: "#9", nine length
// digits, the payload and a line feed.
inline std::string Block9(const std::string& payload) {
    std::string digits = std::to_string(payload.size());
    return "#9" + std::string(9 - digits.size(), '0') + digits + payload + "\n";
}

// The steps up to and with the one that sends `last`.
inline std::vector<Step> Until(std::vector<Step> steps, const std::string& last) {
    const auto at = std::find_if(steps.begin(), steps.end(), [&](const Step& s) { return s.sent == last; });
    steps.erase(at + 1, steps.end());
    return steps;
}

inline std::vector<Step> Joined(std::initializer_list<std::vector<Step>> parts) {
    std::vector<Step> all;
    for (const auto& p : parts) all.insert(all.end(), p.begin(), p.end());
    return all;
}

}  // namespace mervasto::test
