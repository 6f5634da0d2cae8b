#include "dso/UsbtmcChannel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "dso/DsoLink.h"

namespace mervasto {

namespace {

class UsbtmcChannel : public MessageChannel {
public:
    explicit UsbtmcChannel(std::string path) : path_(std::move(path)) {}
    ~UsbtmcChannel() override { close(); }

    void connect(int) override {
        struct stat st {};
        if (::stat(path_.c_str(), &st) == 0 && S_ISSOCK(st.st_mode)) {
            socket_ = true;
            fd_ = openStandIn();
        } else {
            fd_ = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
        }
        if (fd_ < 0) {
            const int e = errno;
            std::string why = "Cannot open the USB instrument " + path_ + ": " + std::strerror(e) + ".";
            if (e == EACCES)
                why += " The user needs read and write access to the device node (its group, or a udev rule).";
            throw ChannelError(why);
        }
    }

    void send(const std::string& message, int) override {
        // One write is one message to the device.
        const ssize_t n = socket_ ? ::send(fd_, message.data(), message.size(), MSG_NOSIGNAL)
                                  : ::write(fd_, message.data(), message.size());
        if (n != static_cast<ssize_t>(message.size()))
            throw ChannelError("The USB instrument did not take a message: " +
                               std::string(n < 0 ? std::strerror(errno) : "cut short") + ".");
    }

    void receive(const std::function<void(const char*, size_t)>& take, int timeoutMs) override {
        // One read is one message; the buffer holds the longest the link takes.
        if (buffer_.empty()) buffer_.resize(static_cast<size_t>(kMaxBlockBytes) + 4096);
        if (socket_) {
            // The kernel's driver bounds its own reads; the stand-in is waited for here.
            pollfd p{fd_, POLLIN, 0};
            int ready;
            do ready = poll(&p, 1, timeoutMs > 0 ? timeoutMs : -1);
            while (ready < 0 && errno == EINTR);
            if (ready == 0) throw ChannelError("The USB instrument had no reply within its time-out.");
        }
        ssize_t n;
        do n = ::read(fd_, buffer_.data(), buffer_.size());
        while (n < 0 && errno == EINTR);
        if (n < 0)
            throw ChannelError(errno == ETIMEDOUT
                                   ? "The USB instrument had no reply within its time-out."
                                   : "The USB instrument failed a read: " + std::string(std::strerror(errno)) + ".");
        if (n == 0) throw ChannelError("The USB instrument is gone.");
        take(buffer_.data(), static_cast<size_t>(n));
    }

    void close() override {
        const int fd = fd_.exchange(-1);
        if (fd >= 0) ::close(fd);
    }

    void interrupt() override {
        const int fd = fd_.load();
        if (fd >= 0 && socket_) shutdown(fd, SHUT_RDWR);
    }

private:
    int openStandIn() const {
        sockaddr_un a{};
        a.sun_family = AF_UNIX;
        if (path_.size() >= sizeof a.sun_path) {
            errno = ENAMETOOLONG;
            return -1;
        }
        std::memcpy(a.sun_path, path_.c_str(), path_.size() + 1);
        const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        if (fd < 0) return -1;
        if (::connect(fd, reinterpret_cast<const sockaddr*>(&a), sizeof a) < 0) {
            const int e = errno;
            ::close(fd);
            errno = e;
            return -1;
        }
        return fd;
    }

    std::string path_;
    std::atomic<int> fd_{-1};
    std::atomic<bool> socket_{false};
    std::vector<char> buffer_;
};

}  // namespace

std::unique_ptr<MessageChannel> MakeUsbtmcChannel(const std::string& path) {
    return std::make_unique<UsbtmcChannel>(path);
}

std::vector<std::string> UsbtmcNodes() {
    std::vector<std::string> nodes;
    std::error_code e;
    for (const auto& entry : std::filesystem::directory_iterator("/dev", e)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind("usbtmc", 0) == 0) nodes.push_back(entry.path().string());
    }
    std::sort(nodes.begin(), nodes.end());
    return nodes;
}

}  // namespace mervasto
