#include <cctype>

#include "common/InstrumentFamilies.h"
#include "common/TextUtil.h"
#include "dso/InstrumentDriver.h"
#include "dso/KeysightDriver.h"
#include "dso/LegacyDriver.h"
#include "dso/RigolDriver.h"
#include "dso/SiglentDriver.h"

namespace mervasto {

namespace {
bool SameName(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}
}  // namespace

Identity IdentityOf(const std::string& reply) {
    const std::vector<std::string> f = SplitFields(reply);
    auto field = [&](size_t i) { return i < f.size() ? std::string(TrimBlanks(f[i])) : std::string(); };
    return {field(0), field(1), field(2), field(3)};
}

const std::vector<const InstrumentFamily*>& InstrumentFamilies() {
    // A new family is one line here (and its word in common/InstrumentFamilies.h).
    static const std::vector<const InstrumentFamily*> families = {
        &LegacyFamily(),
        &RigolFamily(),
        &SiglentFamily(),
        &KeysightFamily(),
    };
    return families;
}

const InstrumentFamily* FamilyNamed(std::string_view name) {
    for (const InstrumentFamily* f : InstrumentFamilies())
        if (SameName(f->name, TrimBlanks(name))) return f;
    return nullptr;
}

const InstrumentFamily* FamilyIdentifiedBy(const Identity& identity) {
    // The makers' families first: the legacy instrument is whatever none of
    // them claims (one of their models may read as a legacy channel count).
    const auto& all = InstrumentFamilies();
    for (size_t i = 1; i < all.size(); ++i)
        if (all[i]->identifies(identity)) return all[i];
    return all.front()->identifies(identity) ? all.front() : nullptr;
}

std::string FamilyListText() {
    std::string text;
    for (const InstrumentFamily* f : InstrumentFamilies())
        text += (text.empty() ? "" : ", ") + std::string(f->name) + " (" + std::string(f->modelLines) + ")";
    return text;
}

}  // namespace mervasto
