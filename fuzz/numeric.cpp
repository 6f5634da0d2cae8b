#include "common/Numeric.h"
#include "common/RuntimeError.h"

#include <cmath>
#include <cstdlib>
#include <string_view>

// Any text: the parses never fault, and every float they give prints back
// to itself.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace mervasto;
    std::string_view text(reinterpret_cast<const char*>(data), size);
    const float x = ValSingle(text);
    (void)Val(text);
    try {
        (void)NumberText(text);
    } catch (const RuntimeError&) {}
    if (std::isfinite(x) && ValSingle(PrintForm(x)) != x) std::abort();
    return 0;
}
