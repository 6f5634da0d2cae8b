#pragma once

#include <string>
#include <string_view>

namespace mervasto {

// A small writer of JSON text: enough for the command line's output.
class JsonWriter {
public:
    explicit JsonWriter(int indentStep = 2) : step_(indentStep) {}

    JsonWriter& beginObject();
    JsonWriter& endObject();
    JsonWriter& beginArray();
    JsonWriter& endArray();
    JsonWriter& key(std::string_view k);
    JsonWriter& value(std::string_view s);
    JsonWriter& value(const char* s) { return value(std::string_view(s)); }
    JsonWriter& value(double d);
    JsonWriter& value(int64_t i);
    JsonWriter& value(int32_t i) { return value(int64_t{i}); }
    JsonWriter& value(bool b);
    JsonWriter& null();

    const std::string& text() const { return out_; }

private:
    void beforeValue();
    void newline();

    std::string out_;
    int step_;
    int depth_ = 0;
    bool first_ = true;
    bool afterKey_ = false;
};

// The text as a JSON string's content. Bytes that are not well-formed UTF-8
// become U+FFFD, so that the output stays valid JSON whatever a file name or
// a file's header holds.
std::string JsonEscape(std::string_view s);

}  // namespace mervasto
