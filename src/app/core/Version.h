#pragma once

#include <string>
#include <string_view>

namespace mervasto {

// The program's fixed identity: the caption suffix and the resume file name.
// It is not the package version (common/PackageVersion.h) and must not follow
// it: each identity keeps its own resume file, so changing these digits would
// leave every user's saved settings behind.
inline constexpr std::string_view kVersionText = "340";

// "(Ver3.40)": the first digit, a point, the other two.
inline std::string CaptionSuffix() {
    return "(Ver" + std::string(kVersionText.substr(0, 1)) + "." + std::string(kVersionText.substr(1)) + ")";
}

}  // namespace mervasto
