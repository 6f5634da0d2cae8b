#include "wavefile/GenericCsv.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string>

#include "common/TextFile.h"

namespace mervasto {

Outcome SaveGenericCsv(std::string_view fileName, const DsoSetup& setup, const WaveRecord& record) {
    FileReplacer out(fileName);
    // Channels the record does not hold (Ch3 and Ch4 of a file that gave
    // two) have no column.
    int columns = setup.ChannelCount == 2 ? 2 : 4;
    while (columns > 1 && record.wave[columns - 1].empty()) --columns;
    std::string buf = "Time(s)";
    for (int c = 1; c <= columns; ++c) buf += ",CH" + std::to_string(c) + "(V)";
    buf += "\r\n";
    size_t rows = setup.RecordLength > 0 ? static_cast<size_t>(setup.RecordLength) : 0;
    for (int c = 0; c < columns; ++c) rows = std::min(rows, record.wave[c].size());
    const double dt = setup.SampleInterval;
    const double t0 = -(static_cast<double>(setup.TriggerDelay) + 5.0 * static_cast<double>(setup.TimePerDiv));
    // Enough digits that the last one is well below the interval.
    const double span = std::max(std::fabs(t0), std::fabs(t0 + dt * static_cast<double>(rows)));
    int digits = 9;
    if (dt > 0 && span > 0) digits = std::clamp(static_cast<int>(std::ceil(std::log10(span / dt))) + 4, 6, 17);
    char text[64];
    for (size_t k = 0; k < rows; ++k) {
        const double t = t0 + dt * static_cast<double>(k);
        const auto r = std::to_chars(text, text + sizeof text, t, std::chars_format::general, digits);
        buf.append(text, r.ptr);
        for (int c = 0; c < columns; ++c) {
            buf.push_back(',');
            // The shortest text that reads back to the same float.
            const auto v = std::to_chars(text, text + sizeof text, record.wave[c][k]);
            buf.append(text, v.ptr);
        }
        buf.append("\r\n");
        if (buf.size() >= (size_t{4} << 20)) {
            out.write(buf);
            buf.clear();
        }
    }
    out.write(buf);
    return out.commit();
}

}  // namespace mervasto
