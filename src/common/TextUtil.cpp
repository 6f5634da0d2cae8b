#include "common/TextUtil.h"

#include "common/Numeric.h"
#include "common/RuntimeError.h"

#include <algorithm>
#include <cmath>

namespace mervasto {

void TooManyFields() {
    throw RuntimeError(ErrorCode::FileIo,
                       "The line has more than " + std::to_string(kMaxFields) + " fields; reading stops here.");
}

std::vector<std::string> SplitFields(std::string_view text) {
    std::vector<std::string> fields;
    const size_t n = SplitFieldsInto(text, fields);
    fields.resize(n);
    return fields;
}

size_t SplitFieldsInto(std::string_view text, std::vector<std::string>& fields) {
    const size_t count = static_cast<size_t>(std::count(text.begin(), text.end(), ',')) + 1;
    if (count > kMaxFields) TooManyFields();
    if (fields.size() < count) fields.reserve(count);
    size_t n = 0;
    size_t start = 0;
    while (true) {
        size_t comma = text.find(',', start);
        std::string_view field =
            text.substr(start, comma == std::string_view::npos ? std::string_view::npos : comma - start);
        if (n < fields.size())
            fields[n].assign(field);
        else
            fields.emplace_back(field);
        ++n;
        if (comma == std::string_view::npos) break;
        start = comma + 1;
    }
    return n;
}

std::string FirstLine(std::string_view text) {
    size_t end = text.find_first_of("\r\n");
    return std::string(text.substr(0, end));
}

std::string LimitValueText(std::string_view text, int64_t lo, int64_t hi) {
    double v = RoundHalfEven(Val(text));
    if (std::isnan(v) || v < static_cast<double>(lo)) v = static_cast<double>(lo);
    if (v > static_cast<double>(hi)) v = static_cast<double>(hi);
    return std::to_string(static_cast<int64_t>(v));
}

std::string_view MidText(std::string_view text, size_t start, size_t count) {
    if (start == 0 || start > text.size()) return {};
    return text.substr(start - 1, count);
}

std::string_view RightText(std::string_view text, size_t count) {
    return count >= text.size() ? text : text.substr(text.size() - count);
}

std::string_view LeftText(std::string_view text, size_t count) { return text.substr(0, count); }

std::string_view TrimBlanks(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

Outcome CheckFileNamePart(std::string_view name, std::string_view what) {
    auto refuse = [&](const std::string& why) {
        return Outcome(ErrorCode::TypeMismatch,
                       std::string(what) + " \"" + std::string(name) + "\" cannot be part of a file name: " + why);
    };
    for (unsigned char c : name) {
        if (c == '/' || c == '\\' || c == ':')
            return refuse("it holds \"" + std::string(1, static_cast<char>(c)) + "\".");
        if (c < 0x20 || c == 0x7F) return refuse("it holds a control character.");
    }
    if (name.find("..") != std::string_view::npos) return refuse("it holds \"..\".");
    return Outcome::Ok();
}

}  // namespace mervasto
