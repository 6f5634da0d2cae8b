#pragma once

#include <array>
#include <string_view>

namespace mervasto {

// The instrument families the program talks to, by the names the
// "Instrument" setting, the window's drop-down and --instrument use. "Auto"
// lets the instrument's identification choose. The instrument layer keeps a
// driver for each of the others under the same name.
inline constexpr std::string_view kInstrumentAuto = "Auto";
inline constexpr std::string_view kInstrumentLegacy = "Legacy";
inline constexpr std::string_view kInstrumentRigol = "Rigol";
inline constexpr std::string_view kInstrumentSiglent = "Siglent";
inline constexpr std::string_view kInstrumentKeysight = "Keysight";
inline constexpr std::array<std::string_view, 5> kInstrumentChoices = {
    kInstrumentAuto, kInstrumentLegacy, kInstrumentRigol, kInstrumentSiglent, kInstrumentKeysight};

}  // namespace mervasto
