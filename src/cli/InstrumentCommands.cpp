// readout and fetch: one exchange with the instrument, without a run.
#include "cli/Commands.h"

#include "app/RunState.h"
#include "app/ScriptedUi.h"
#include "cli/Report.h"
#include "wavefile/WaveCsv.h"

#include <functional>
#include <ostream>

namespace mervasto::cli {

namespace {
// Connects, identifies and runs one exchange with the instrument, then hands
// the front panel back.
Outcome withInstrument(RunState& state, const std::string& ip, std::ostream& err,
                       const std::function<Outcome(ScriptedUi&)>& exchange) {
    ScriptedUi ui;
    if (const Outcome linked = state.ConnectInstrument(ui, ip); !linked) {
        // The door's reason, when it told one (a VXI-11 or USB instrument).
        const std::string why = ui.status[1] == kConnectingToDso ? std::string() : " " + ui.status[1];
        return Told(err, Outcome(linked.code(), linked.text() + " (" + ip + ")" + why));
    }
    ReportProbedPort(state, err);
    if (const Outcome exchanged = exchange(ui); !exchanged) return Told(err, exchanged);
    if (const Outcome local = state.HandBackInstrument(); !local) return Told(err, local);
    return Outcome::Ok();
}

// The run state for a direct exchange: the data folder and the time-out.
void prepareForExchange(RunState& state, const Options& o) {
    state.FormLoad(o.dataFolder.value_or(""));
    ApplyTimeout(state, o);
}
}  // namespace

Outcome CommandReadout(const Options& o, std::ostream& out, std::ostream& err) {
    if (!o.ip) return UsageError(err, "readout", "--ip HOST[:PORT] is needed");
    RunState state;
    prepareForExchange(state, o);
    Outcome read = withInstrument(state, *o.ip, err, [&](ScriptedUi& ui) {
        const Outcome setup = state.ReadInstrumentSetup(ui, *o.ip);
        return setup ? setup : Outcome(setup.code(), setup.text() + " (" + *o.ip + ")");
    });
    if (!read) return read;
    if (o.format == "json")
        PrintSetupJson(out, state.setup());
    else
        PrintSetupText(out, *o.ip, state.setup());
    return Outcome::Ok();
}

Outcome CommandFetch(const Options& o, std::ostream& out, std::ostream& err) {
    if (!o.ip || o.files.size() != 1)
        return UsageError(err, "fetch", "--ip HOST[:PORT] and one output file are needed");
    RunState state;
    prepareForExchange(state, o);
    Outcome fetched =
        withInstrument(state, *o.ip, err, [&](ScriptedUi& ui) { return state.WaveTrans(ui, kInputTypeDso, {}); });
    if (!fetched) return fetched;
    if (Outcome saved = SaveWaveCsv(o.files[0], state.setup(), state.record()); !saved) return Told(err, saved);
    out << "Saved " << state.record().WaveLength << " samples of " << state.setup().ChannelCount << " channels to "
        << o.files[0] << '\n';
    return Outcome::Ok();
}

}  // namespace mervasto::cli
