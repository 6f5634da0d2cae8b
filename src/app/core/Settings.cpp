#include "app/core/Settings.h"

#include <charconv>

#include "common/TextUtil.h"

namespace mervasto {

std::array<ChannelSettings, kChannels> Settings::defaultChannels() {
    constexpr std::array<int32_t, kChannels> kBackColors = {0x00FFFF, 0xFF00FF, 0xFFFF00, 0x00FF00};
    std::array<ChannelSettings, kChannels> ch;
    for (size_t i = 0; i < ch.size(); ++i) {
        ch[i].BackColor = kBackColors[i];
        ch[i].SigName = "Ch" + std::to_string(i + 1);
    }
    return ch;
}

int ChannelTypeIndex(int ch, std::string_view text) {
    const int count = ChannelTypeCount(ch);
    for (int i = 0; i < count; ++i)
        if (kChannelTypes[static_cast<size_t>(i)] == text) return i;
    std::string_view t = TrimBlanks(text);
    int index = -1;
    auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), index);
    if (ec != std::errc() || end != t.data() + t.size() || t.empty()) return -1;
    return index >= 0 && index < count ? index : -1;
}

}  // namespace mervasto
