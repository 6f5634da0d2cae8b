#include "app/core/ExitStatus.h"

namespace mervasto {

int ExitStatusOf(const Outcome& outcome) {
    switch (outcome.code()) {
    case ErrorCode::None: return kExitOk;
    case ErrorCode::BadOption: return kExitBadOptions;
    case ErrorCode::VerdictNg: return kExitNg;
    // The only cancel an unattended run meets is a Stop (Ctrl+C) that had to
    // cut an exchange, which closes the link.
    case ErrorCode::Link:
    case ErrorCode::Canceled: return kExitNoInstrument;
    default: return kExitFileError;  // files, and the faults of what was read from them
    }
}

}  // namespace mervasto
