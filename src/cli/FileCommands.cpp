// The commands on wave files alone: info, convert and make-examples.
#include "cli/Commands.h"

#include "app/core/DataFolders.h"
#include "cli/Report.h"
#include "wavefile/ExampleRecords.h"
#include "wavefile/GenericCsv.h"
#include "wavefile/WaveCsv.h"

#include <ostream>
#include <string>
#include <vector>

namespace mervasto::cli {

namespace {
void printWarnings(std::ostream& err, const WaveCsvLoadResult& r) {
    for (const auto& w : r.warnings) err << "mervasto-cli: warning: " << w << '\n';
}

// One file, or with --combine the files of one capture as one record.
WaveCsvLoadResult loadInput(const Options& o, const std::vector<std::string>& files, DsoSetup& setup,
                            WaveRecord& record) {
    if (o.combine) return LoadCombinedWaveCsv(files, setup, record, ImportOptionsOf(o));
    return LoadAnyWaveCsv(files.front(), setup, record, ImportOptionsOf(o));
}
}  // namespace

Outcome CommandInfo(const Options& o, std::ostream& out, std::ostream& err) {
    if (o.files.empty()) return UsageError(err, "info", "name at least one wave CSV file");
    std::vector<std::vector<std::string>> inputs;
    if (o.combine)
        inputs.push_back(o.files);
    else
        for (const auto& f : o.files) inputs.push_back({f});
    Outcome result;
    for (const auto& files : inputs) {
        const std::string f = CombinedName(files);
        DsoSetup setup;
        WaveRecord record;
        const WaveCsvLoadResult r = loadInput(o, files, setup, record);
        if (!r.ok()) KeepFirst(result, Told(err, r.outcome));
        printWarnings(err, r);
        if (!r.ok() && r.generic) {
            // A refused capture gave no setup: nothing to show but the rows.
            out << "Source: " << f << "\nLayout: generic CSV, refused\nRows read: " << r.rowsRead << '\n';
            continue;
        }
        PrintSetupText(out, f, setup);
        out << "Layout: " << (r.generic ? r.layout : std::string("wave CSV")) << '\n';
        out << "Rows read: " << r.rowsRead << '\n';
        PrintRecordSummary(out, setup, record);
    }
    return result;
}

Outcome CommandConvert(const Options& o, std::ostream& out, std::ostream& err) {
    if (o.files.size() < 2 || (!o.combine && o.files.size() != 2))
        return UsageError(err, "convert", "name the input file and the output file");
    const std::vector<std::string> in(o.files.begin(), o.files.end() - 1);
    const std::string& to = o.files.back();
    DsoSetup setup;
    WaveRecord record;
    const WaveCsvLoadResult r = loadInput(o, in, setup, record);
    if (!r.ok()) return Told(err, r.outcome);
    printWarnings(err, r);
    const Outcome saved = o.generic ? SaveGenericCsv(to, setup, record) : SaveWaveCsv(to, setup, record);
    if (!saved) return Told(err, saved);
    out << "Converted " << setup.RecordLength << " samples of " << setup.ChannelCount << " channels from "
        << CombinedName(in) << " to " << to << '\n';
    return Outcome::Ok();
}

Outcome CommandMakeExamples(const Options& o, std::ostream& out, std::ostream& err) {
    if (o.files.size() != 1) return UsageError(err, "make-examples", "name the folder to write into");
    // Only files really written are listed; the first failure ends the run.
    for (const auto& name : ExampleNames()) {
        DsoSetup setup;
        WaveRecord record;
        MakeExampleRecord(name, setup, record);
        std::string file = JoinPath(o.files[0], name + ".csv");
        if (Outcome saved = SaveWaveCsv(file, setup, record); !saved) return Told(err, saved);
        out << file << '\n';
    }
    return Outcome::Ok();
}

}  // namespace mervasto::cli
