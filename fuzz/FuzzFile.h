#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

// The readers take file names: each input goes through one file per process.
inline std::string WriteFuzzFile(const uint8_t* data, size_t size) {
    static const std::string name = "/tmp/mervasto-fuzz-" + std::to_string(getpid());
    std::FILE* f = std::fopen(name.c_str(), "wb");
    if (f) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
    }
    return name;
}
