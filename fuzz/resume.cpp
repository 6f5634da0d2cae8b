#include "app/core/ResumeFile.h"

#include <cstdlib>
#include <string_view>

// Any bytes load without a crash, and whatever settings they give are
// written as a file that loads whole again.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    mervasto::Settings settings;
    (void)mervasto::LoadResumeText(std::string_view(reinterpret_cast<const char*>(data), size), settings);
    mervasto::Settings again;
    const mervasto::ResumeLoad reread = mervasto::LoadResumeText(mervasto::ResumeText(settings), again);
    if (!reread.complete || !reread.problems.empty()) std::abort();
    return 0;
}
