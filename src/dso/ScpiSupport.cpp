#include "dso/ScpiSupport.h"

#include <cctype>

#include "common/Numeric.h"
#include "common/TextUtil.h"
#include "dso/DsoSetupReadout.h"
#include "dso/LinkFraming.h"

namespace mervasto {

namespace {
constexpr int kMostErrorEntries = 8;
}  // namespace

float ScpiSetupNumber(DsoLink& link, const std::string& query, const std::string& field, bool mustBePositive) {
    const std::string reply = link.QueryDso(query, 80);
    const std::string problem = SetupNumberProblem(reply, mustBePositive);
    if (!problem.empty())
        link.failExchange("The DSO's " + field + " (\"" + query + "\") " + problem + ": \"" +
                          PrintableBytes(reply, 24) + "\"" + kReadoutEnded);
    return ValSingle(reply);
}

std::optional<int> ErrorQueueCode(std::string_view reply) {
    const std::string_view t = TrimBlanks(reply);
    const size_t comma = t.find(',');
    const std::string_view code = comma == std::string_view::npos ? t : t.substr(0, comma);
    if (!IsNumberText(code)) return std::nullopt;
    const double v = Val(code);
    if (v != static_cast<double>(static_cast<int>(v))) return std::nullopt;
    return static_cast<int>(v);
}

std::string ErrorQueueEntry(DsoLink& link, const std::string& query) {
    const std::string reply = link.QueryDso(query, 256);
    const std::optional<int> code = ErrorQueueCode(reply);
    return code && *code == 0 ? std::string() : PrintableBytes(reply, 120);
}

void CheckErrorQueue(DsoLink& link, const std::string& query, const std::string& after) {
    std::string errors;
    for (int i = 0; i < kMostErrorEntries; ++i) {
        const std::string reply = link.QueryDso(query, 256);
        const std::optional<int> code = ErrorQueueCode(reply);
        if (!code)
            link.failExchange("The DSO's error queue (\"" + query + "\") replied \"" + PrintableBytes(reply, 40) +
                              "\", which is no entry; the link was closed.");
        if (*code == 0) {
            if (errors.empty()) return;
            break;
        }
        errors += (errors.empty() ? "" : "; ") + PrintableBytes(reply, 120);
    }
    link.failExchange("The DSO reports an error after " + after + ": " + errors + "; the link was closed.");
}

}  // namespace mervasto
