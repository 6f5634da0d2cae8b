#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sim/DialectModel.h"

namespace mervasto {

// The command sets the simulator speaks. A new dialect is one model file
// (a DialectModel) and one line in Dialects.cpp.
struct SimDialect {
    std::string_view name;            // --dialect NAME
    uint16_t port;                    // the instrument's own port
    std::vector<std::string> models;  // the first is the default
    std::unique_ptr<DialectModel> (*make)(SimOptions options);
};

const std::vector<SimDialect>& SimDialects();
const SimDialect* SimDialectNamed(std::string_view name);
// The model of options.dialect; a model the dialect does not have becomes
// its default. Throws std::invalid_argument for an unknown dialect.
std::unique_ptr<DialectModel> MakeDialectModel(SimOptions options);

}  // namespace mervasto
