#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Numbers to and from text the way the measurement files have always held
// them. Every layer converts through here, never with ad-hoc casts, so that a
// file written by one part of the program reads back identically elsewhere.
namespace mervasto {

// Lenient numeric parse of a text: leading blanks and tabs are skipped, then
// the longest leading number is taken; anything after it is ignored.
//   Val("  12.5 V") == 12.5     Val(".5") == 0.5     Val("-.25") == -0.25
//   Val("1e-6") == 1e-6         Val("1E+3x") == 1000 Val("") == 0
//   Val("abc") == 0             Val("+7") == 7       Val("1e") == 1
double Val(std::string_view text);

// Val straight to single precision (one rounding, so that a float's print
// form always reads back to the same float).
float ValSingle(std::string_view text);

// Strict conversion of a whole text to a number: surrounding blanks are
// allowed, anything else that is not part of the number is a TypeMismatch
// RuntimeError (so is an empty text).
//   NumberText(" 1.5 ") == 1.5   NumberText("abc") throws
double NumberText(std::string_view text);

// Round to the nearest whole number, halves to the even neighbour.
//   RoundHalfEven(2.5) == 2   RoundHalfEven(3.5) == 4   RoundHalfEven(-2.5) == -2
double RoundHalfEven(double x);

// Round half to even into a 16-bit or 32-bit integer. A value outside the
// range (or not a number) is an Overflow RuntimeError.
//   ToInt16(32767.4) == 32767   ToInt16(32767.5) throws   ToInt32(-0.5) == 0
int16_t ToInt16(double x);
int32_t ToInt32(double x);

// Conversion to single precision; a finite value beyond the float range is an
// Overflow RuntimeError.
float ToSingle(double x);

// The print form of a number as the files carry it: a leading blank when the
// value is not negative, one trailing blank, no leading zero before the point,
// exponent form with a capital E for very small or large magnitudes.
//   PrintForm(0.001f) == " .001 "   PrintForm(-0.5f) == "-.5 "
//   PrintForm(0.0f) == " 0 "        PrintForm(1e-5f) == " 1E-05 "
//   PrintForm(int32_t{16711680}) == " 16711680 "
// A float is written with at most 7 significant digits when those read back
// through Val to the same float, otherwise with the few more digits needed.
std::string PrintForm(float x);
std::string PrintForm(double x);
std::string PrintForm(int64_t x);
inline std::string PrintForm(int32_t x) { return PrintForm(int64_t{x}); }
inline std::string PrintForm(int16_t x) { return PrintForm(int64_t{x}); }

// Appends PrintForm(x) to out without a temporary (the wave writer's hot path).
void AppendPrintForm(std::string& out, float x);

// The shortest text of a number, without blanks, with a leading zero, at most
// 7 significant digits for a float and 15 for a double (the conventional
// display precision of each), exponent form with a capital E outside the
// plain range.
//   ShortestText(0.25f) == "0.25"   ShortestText(1234567.0f) == "1234567"
//   ShortestText(1e-5f) == "1E-05"  ShortestText(12.299999594688416) == "12.2999995946884"
std::string ShortestText(float x);
std::string ShortestText(double x);
void AppendShortestText(std::string& out, float x);

// Text that reads back to exactly the same double (for machine-read output).
std::string ExactText(double x);

// The Boolean print form and its reading: "True"/"False"; reading accepts
// those words in any case and numbers (non-zero is true). Anything else is a
// TypeMismatch RuntimeError.
std::string BoolText(bool b);
bool BoolFromText(std::string_view text);

}  // namespace mervasto
