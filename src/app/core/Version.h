#pragma once

#include <string>
#include <string_view>

namespace mervasto {

// Each version keeps its own resume file, so the digits also name that file.
inline constexpr std::string_view kVersionText = "340";

// "(Ver3.40)": the first digit, a point, the other two.
inline std::string CaptionSuffix() {
    return "(Ver" + std::string(kVersionText.substr(0, 1)) + "." + std::string(kVersionText.substr(1)) + ")";
}

}  // namespace mervasto
