#include "results/Comparator.h"

#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    mervasto::ChannelResultTable table;
    (void)mervasto::LoadComparatorText(std::string_view(reinterpret_cast<const char*>(data), size), table);
    mervasto::JudgeAll(table);
    return 0;
}
