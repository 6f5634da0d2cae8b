#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/Outcome.h"

namespace mervasto {

// The most fields a line may have in any file the program reads; more is
// refused, since each field costs a string of its own.
inline constexpr size_t kMaxFields = 1000;

// Splits a text at every comma into a zero-based list; no quoting, no
// trimming. An empty text gives one empty field.
//   SplitFields("a,,b") == {"a", "", "b"}   SplitFields("") == {""}
// Throws a FileIo RuntimeError for more than kMaxFields fields.
std::vector<std::string> SplitFields(std::string_view text);

// Splits into an existing list, overwriting only as many entries as the text
// has fields; entries beyond them keep what they held (and the list never
// shrinks). Returns the number of fields of this text. A text of more than
// kMaxFields fields throws a FileIo RuntimeError and leaves the list as it was.
size_t SplitFieldsInto(std::string_view text, std::vector<std::string>& fields);
// The RuntimeError both splitters throw for too many fields.
[[noreturn]] void TooManyFields();

// A name from the settings or a file that becomes part of a file name (the
// sample name, the detail and wave base names). Refused, with a text that
// says why, when it could leave its folder or is no plain name: it holds
// "/", "\", ":", ".." or a control character. what names the setting.
Outcome CheckFileNamePart(std::string_view name, std::string_view what);

// The text before the first carriage return or line feed (all of it if there
// is none).   FirstLine("1\r\n") == "1"   FirstLine("abc") == "abc"
std::string FirstLine(std::string_view text);

// The numeric value of a text (Val), rounded half to even, raised to lo or
// lowered to hi, as plain decimal text.
//   LimitValueText("20000", 1, 16000) == "16000"   LimitValueText("abc", 1, 16000) == "1"
std::string LimitValueText(std::string_view text, int64_t lo, int64_t hi);

// The characters from the 1-based position `start` on, at most `count` of
// them (Mid$); an empty text when start lies past the end.
std::string_view MidText(std::string_view text, size_t start, size_t count = std::string_view::npos);
// The last `count` characters (Right$) and the first `count` (Left$).
std::string_view RightText(std::string_view text, size_t count);
std::string_view LeftText(std::string_view text, size_t count);

// Blanks and tabs removed from both ends.
std::string_view TrimBlanks(std::string_view text);

}  // namespace mervasto
