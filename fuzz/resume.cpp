#include "app/core/ResumeFile.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

// Any bytes load without a crash, and whatever settings they give are
// written as a file that loads whole again, unless the comment is full.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    mervasto::Settings settings;
    (void)mervasto::LoadResumeText(std::string_view(reinterpret_cast<const char*>(data), size), settings);
    // A loaded comment starts with a line feed, which is written as a line of
    // its own: a comment loaded with 256 lines or more is written with one
    // more, and what does not fit the 257 lines read before "//" spills into
    // the next setting's place, as the format has it.
    const auto& comment = settings.analysis.Comment;
    if (std::count(comment.begin(), comment.end(), '\n') >= 256) return 0;
    mervasto::Settings again;
    const mervasto::ResumeLoad reread = mervasto::LoadResumeText(mervasto::ResumeText(settings), again);
    if (!reread.complete || !reread.problems.empty()) std::abort();
    return 0;
}
