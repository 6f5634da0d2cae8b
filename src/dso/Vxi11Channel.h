#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "dso/MessageTransport.h"

namespace mervasto {

inline constexpr const char* kVxi11Scheme = "vxi11://";
inline constexpr const char* kVxi11DefaultDevice = "inst0";

// "vxi11://HOST[:PORT][/DEVICE]": the instrument's host, the port of its
// portmapper (111 unless named) and the device of the link (inst0).
struct Vxi11Address {
    std::string host;
    uint16_t portmapPort = 111;
    std::string device = kVxi11DefaultDevice;
};
// False when the text is not of that form (no host, a bad port).
bool ParseVxi11Address(std::string_view text, Vxi11Address& out);

// The VXI-11 core channel: create_link, device_write, device_read (a reply
// in as many reads as the device cuts it into, up to END), destroy_link.
// Through liblxi when the portmapper is on its usual port; liblxi cannot be
// told another, so a portmapper elsewhere (the local simulator's) is asked
// by the program's own client.
std::unique_ptr<MessageChannel> MakeVxi11Channel(const Vxi11Address& address);
// The program's own client, whatever the port.
std::unique_ptr<MessageChannel> MakeRpcVxi11Channel(const Vxi11Address& address);

}  // namespace mervasto
