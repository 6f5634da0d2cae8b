#include "cli/Json.h"

#include "common/Numeric.h"

#include <cmath>
#include <cstdio>

namespace mervasto {

std::string JsonEscape(std::string_view s) {
    std::string o;
    o.reserve(s.size() + 2);
    for (char c : s) {
        switch (c) {
        case '"': o += "\\\""; break;
        case '\\': o += "\\\\"; break;
        case '\n': o += "\\n"; break;
        case '\r': o += "\\r"; break;
        case '\t': o += "\\t"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                char b[8];
                std::snprintf(b, sizeof b, "\\u%04x", c);
                o += b;
            } else {
                o.push_back(c);
            }
        }
    }
    return o;
}

void JsonWriter::newline() {
    if (step_ <= 0) return;
    out_.push_back('\n');
    out_.append(static_cast<size_t>(depth_ * step_), ' ');
}

void JsonWriter::beforeValue() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (depth_ > 0) {
        if (!first_) out_.push_back(',');
        newline();
    }
    first_ = false;
}

JsonWriter& JsonWriter::beginObject() {
    beforeValue();
    out_.push_back('{');
    ++depth_;
    first_ = true;
    return *this;
}

JsonWriter& JsonWriter::endObject() {
    --depth_;
    if (!first_) newline();
    out_.push_back('}');
    first_ = false;
    return *this;
}

JsonWriter& JsonWriter::beginArray() {
    beforeValue();
    out_.push_back('[');
    ++depth_;
    first_ = true;
    return *this;
}

JsonWriter& JsonWriter::endArray() {
    --depth_;
    if (!first_) newline();
    out_.push_back(']');
    first_ = false;
    return *this;
}

JsonWriter& JsonWriter::key(std::string_view k) {
    beforeValue();
    out_ += '"' + JsonEscape(k) + "\":";
    if (step_ > 0) out_.push_back(' ');
    afterKey_ = true;
    return *this;
}

JsonWriter& JsonWriter::value(std::string_view s) {
    beforeValue();
    out_ += '"' + JsonEscape(s) + '"';
    return *this;
}

JsonWriter& JsonWriter::value(double d) {
    beforeValue();
    out_ += std::isfinite(d) ? ExactText(d) : "null";
    return *this;
}

JsonWriter& JsonWriter::value(int64_t i) {
    beforeValue();
    out_ += std::to_string(i);
    return *this;
}

JsonWriter& JsonWriter::value(bool b) {
    beforeValue();
    out_ += b ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::null() {
    beforeValue();
    out_ += "null";
    return *this;
}

}  // namespace mervasto
