// The Windows build reaches its instruments over the raw socket only: the
// VXI-11 and USBTMC channels stand on POSIX sockets, liblxi and the Linux
// kernel's USBTMC driver.
#include "dso/UsbtmcChannel.h"
#include "dso/Vxi11Channel.h"

namespace mervasto {

std::unique_ptr<MessageChannel> MakeVxi11Channel(const Vxi11Address& address) { return MakeRpcVxi11Channel(address); }

std::unique_ptr<MessageChannel> MakeRpcVxi11Channel(const Vxi11Address&) {
    throw ChannelError("VXI-11 is not available in this build of the program; use the raw socket (HOST:PORT).");
}

std::unique_ptr<MessageChannel> MakeUsbtmcChannel(const std::string&) {
    throw ChannelError("USBTMC device nodes are a Linux facility; use the raw socket (HOST:PORT).");
}

std::vector<std::string> UsbtmcNodes() { return {}; }

}  // namespace mervasto
