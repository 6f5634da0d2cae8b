#include "FuzzFile.h"
#include "wavefile/WaveCsv.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace mervasto;
    static WaveFieldTable table;  // kept between inputs, as the program keeps it between files
    DsoSetup setup;
    static WaveRecord record;  // and the record, whose arrays only grow
    LoadWaveCsv(WriteFuzzFile(data, size), setup, record, table);
    return 0;
}
