#pragma once

#include <stdexcept>
#include <string>

namespace mervasto {

// The kinds of failure: the run-time faults of the measurement code, thrown
// as RuntimeError until a handler's boundary turns them into the Outcome it
// returns (readers stop at the first one and keep what they read), and the
// kinds only an Outcome carries.
enum class ErrorCode : int {
    None = 0,             // no fault (an Outcome that succeeded)
    Overflow = 6,         // a value does not fit the integer it goes into
    OutOfMemory = 7,      // memory ran out
    Subscript = 9,        // an index outside an array
    DivisionByZero = 11,  // a division by zero
    TypeMismatch = 13,    // a text that must be a number is not one
    Internal = 51,        // a fault of the program itself
    FileNotFound = 53,    // a file to read is not there
    FileIo = 57,          // a read or write of a file failed
    Link = 1000,          // the instrument link failed or was ended
    Canceled = 1001,      // the user cancelled a dialog
    BadOption = 1002,     // a command-line option, or a setting, is not acceptable
    VerdictNg = 1003,     // a count is outside its limits: no fault, but the sample did not pass
};

class RuntimeError : public std::runtime_error {
public:
    RuntimeError(ErrorCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
    ErrorCode code() const { return code_; }

private:
    ErrorCode code_;
};

}  // namespace mervasto
