#pragma once

#include <exception>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include "common/RuntimeError.h"

namespace mervasto {

// What a command handler, a reader or a writer reports to its caller: a code
// and the text the user reads. ErrorCode::None with an empty text is success.
// The window shows a failure through the UI port; the command line maps the
// code to its exit status. Run-time faults inside the core stay RuntimeError
// exceptions until a handler's boundary turns them into an Outcome.
class [[nodiscard]] Outcome {
public:
    Outcome() = default;
    Outcome(ErrorCode code, std::string text) : code_(code), text_(std::move(text)) {}

    static Outcome Ok() { return {}; }
    static Outcome From(const RuntimeError& e) { return {e.code(), e.what()}; }

    // The same failure, marked as already told to the user in its own words
    // (a status text or a box of its own), so that the boundary that shows
    // failures does not show it again.
    Outcome reported() && {
        reported_ = true;
        return std::move(*this);
    }
    bool wasReported() const { return reported_; }

    bool ok() const { return code_ == ErrorCode::None; }
    explicit operator bool() const { return ok(); }
    ErrorCode code() const { return code_; }
    const std::string& text() const { return text_; }
    // The same code and text (whether it was reported does not matter).
    bool operator==(const Outcome& o) const { return code_ == o.code_ && text_ == o.text_; }

private:
    ErrorCode code_ = ErrorCode::None;
    std::string text_;
    bool reported_ = false;
};

// Runs body and turns whatever it throws into an Outcome, so that nothing
// leaves a handler's boundary. A body that returns nothing succeeded when it
// returns.
template <class Body>
Outcome Guarded(Body&& body) noexcept {
    try {
        if constexpr (std::is_void_v<std::invoke_result_t<Body>>) {
            std::forward<Body>(body)();
            return Outcome::Ok();
        } else {
            return std::forward<Body>(body)();
        }
    } catch (const RuntimeError& e) {
        return Outcome::From(e);
    } catch (const std::bad_alloc&) {
        return {ErrorCode::OutOfMemory, "Out of memory."};
    } catch (const std::exception& e) {
        return {ErrorCode::Internal, std::string("Internal error: ") + e.what()};
    } catch (...) {
        return {ErrorCode::Internal, "Internal error."};
    }
}

}  // namespace mervasto
