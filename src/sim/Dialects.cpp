#include "sim/Dialects.h"

#include <algorithm>
#include <stdexcept>

#include "sim/InstrumentModel.h"
#include "sim/KeysightModel.h"
#include "sim/RigolModel.h"
#include "sim/SiglentModel.h"

namespace mervasto {

namespace {
template <class Model>
std::unique_ptr<DialectModel> Make(SimOptions options) {
    return std::make_unique<Model>(std::move(options));
}
}  // namespace

const std::vector<SimDialect>& SimDialects() {
    static const std::vector<SimDialect> dialects = {
        {"legacy", 5198, {"DS-5354", "DS-5352"}, Make<InstrumentModel>},
        {"rigol", 5555, RigolModels(), Make<RigolModel>},
        {"siglent", 5025, SiglentModels(), Make<SiglentModel>},
        {"keysight", 5025, KeysightModels(), Make<KeysightModel>},
    };
    return dialects;
}

const SimDialect* SimDialectNamed(std::string_view name) {
    for (const SimDialect& d : SimDialects())
        if (d.name == name) return &d;
    return nullptr;
}

std::unique_ptr<DialectModel> MakeDialectModel(SimOptions options) {
    const SimDialect* dialect = SimDialectNamed(options.dialect);
    if (!dialect) throw std::invalid_argument("unknown dialect " + options.dialect);
    if (std::find(dialect->models.begin(), dialect->models.end(), options.state.model) == dialect->models.end())
        options.state.model = dialect->models.front();
    return dialect->make(std::move(options));
}

}  // namespace mervasto
