#pragma once

#include <memory>
#include <string>
#include <vector>

#include "dso/MessageTransport.h"

namespace mervasto {

// A USB instrument through the kernel's USBTMC driver: the device node is
// written one message at a time and a read returns one message. A path that
// is a local socket of packets is taken as a stand-in for the node (the
// simulator's), read and written the same way.
std::unique_ptr<MessageChannel> MakeUsbtmcChannel(const std::string& path);

// The USBTMC device nodes present ("/dev/usbtmc0", ...), in order.
std::vector<std::string> UsbtmcNodes();

}  // namespace mervasto
