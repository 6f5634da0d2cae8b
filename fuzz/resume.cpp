#include "FuzzFile.h"
#include "app/core/ResumeFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    mervasto::Settings settings;
    mervasto::LoadResumeParam(WriteFuzzFile(data, size), settings);
    return 0;
}
