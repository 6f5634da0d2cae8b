#include "cli/Json.h"

#include "common/Numeric.h"

#include <cmath>
#include <cstdio>

namespace mervasto {

namespace {

// The length of the well-formed UTF-8 sequence at s[i], or 0 when the bytes
// there are not one (a stray continuation byte, an overlong form, a
// surrogate, a code point above U+10FFFF, a sequence cut short).
size_t utf8Length(std::string_view s, size_t i) {
    const auto b = [&](size_t k) { return i + k < s.size() ? static_cast<unsigned char>(s[i + k]) : 0u; };
    const unsigned lead = b(0);
    const auto cont = [&](size_t k, unsigned lo = 0x80, unsigned hi = 0xBF) { return b(k) >= lo && b(k) <= hi; };
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return cont(1) ? 2 : 0;
    if (lead >= 0xE0 && lead <= 0xEF) {
        const unsigned lo = lead == 0xE0 ? 0xA0 : 0x80;
        const unsigned hi = lead == 0xED ? 0x9F : 0xBF;
        return cont(1, lo, hi) && cont(2) ? 3 : 0;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        const unsigned lo = lead == 0xF0 ? 0x90 : 0x80;
        const unsigned hi = lead == 0xF4 ? 0x8F : 0xBF;
        return cont(1, lo, hi) && cont(2) && cont(3) ? 4 : 0;
    }
    return 0;
}

}  // namespace

std::string JsonEscape(std::string_view s) {
    std::string o;
    o.reserve(s.size() + 2);
    for (size_t i = 0; i < s.size();) {
        const char c = s[i];
        const size_t n = utf8Length(s, i);
        if (n == 0) {
            // File names and headers are bytes, not always UTF-8; JSON must be.
            o += "\\ufffd";
            ++i;
            continue;
        }
        if (n > 1) {
            o.append(s.substr(i, n));
            i += n;
            continue;
        }
        ++i;
        switch (c) {
        case '"': o += "\\\""; break;
        case '\\': o += "\\\\"; break;
        case '\n': o += "\\n"; break;
        case '\r': o += "\\r"; break;
        case '\t': o += "\\t"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
                char b[8];
                std::snprintf(b, sizeof b, "\\u%04x", static_cast<unsigned char>(c));
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
