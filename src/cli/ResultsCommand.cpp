// results: what the results store holds, listed, exported and summarised.
#include "cli/Commands.h"

#include "app/RunState.h"
#include "cli/Json.h"
#include "common/Numeric.h"
#include "common/TextFile.h"
#include "results/SiFormat.h"
#include "store/ResultStore.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

namespace mervasto::cli {

namespace {

// Columns padded to their widest cell (in characters), two blanks apart.
void printTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows) {
    auto chars = [](const std::string& s) {
        size_t n = 0;
        for (unsigned char c : s) n += (c & 0xC0) != 0x80;
        return n;
    };
    std::vector<size_t> width;
    for (const auto& row : rows)
        for (size_t c = 0; c < row.size(); ++c) {
            if (width.size() <= c) width.push_back(0);
            width[c] = std::max(width[c], chars(row[c]));
        }
    for (const auto& row : rows) {
        std::string line;
        for (size_t c = 0; c < row.size(); ++c) {
            line += row[c];
            if (c + 1 < row.size()) line.append(width[c] - chars(row[c]) + 2, ' ');
        }
        out << line << '\n';
    }
}

// A field of a CSV row: quoted when it holds a comma, a quote or a line
// break, with its quotes doubled.
std::string csvField(const std::string& s) {
    if (s.find_first_of(",\"\r\n") == std::string::npos) return s;
    std::string out = "\"";
    for (char c : s) out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + '"';
}

void printCsv(std::ostream& out, const std::vector<std::string>& fields) {
    for (size_t i = 0; i < fields.size(); ++i) out << (i ? "," : "") << csvField(fields[i]);
    out << "\r\n";
}

std::string fixed(double v, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, v);
    return text;
}

std::string optionalNumber(const std::optional<double>& v) { return v ? ExactText(*v) : std::string(); }

// A value with its unit for the table, or as it stands for csv.
std::string shown(double v, const std::string& unit, bool table) { return table ? SiText(v, unit, 4) : ExactText(v); }

Outcome list(ResultStore& store, const Options& o, std::ostream& out) {
    std::vector<RunRow> runs;
    if (Outcome read = store.listRuns(runs); !read) return read;
    const std::vector<std::string> head = {"run", "station", "sample", "started", "passes", "judged", "go", "yield"};
    if (o.format == "json") {
        JsonWriter j;
        j.beginArray();
        for (const RunRow& r : runs) {
            j.beginObject().key("run").value(r.id).key("station").value(r.station).key("sample").value(r.sample);
            j.key("started").value(r.started).key("passes").value(r.passes).key("judged").value(r.judged);
            j.key("go").value(r.go);
            if (r.judged > 0)
                j.key("yield").value(static_cast<double>(r.go) / static_cast<double>(r.judged));
            else
                j.key("yield").null();
            j.endObject();
        }
        j.endArray();
        out << j.text() << '\n';
    } else if (o.format == "csv") {
        printCsv(out, head);
        for (const RunRow& r : runs)
            printCsv(out, {std::to_string(r.id), r.station, r.sample, r.started, std::to_string(r.passes),
                           std::to_string(r.judged), std::to_string(r.go),
                           r.judged ? ExactText(static_cast<double>(r.go) / static_cast<double>(r.judged)) : ""});
    } else {
        std::vector<std::vector<std::string>> rows = {{"Run", "Station", "Sample", "Start", "Passes", "Yield"}};
        for (const RunRow& r : runs)
            rows.push_back({std::to_string(r.id), r.station, r.sample, r.started, std::to_string(r.passes),
                            YieldText(r.judged, r.go)});
        printTable(out, rows);
    }
    return Outcome::Ok();
}

Outcome exportRows(ResultStore& store, const Options& o, const PassFilter& filter, std::ostream& out) {
    const bool json = o.format == "json";
    const std::vector<std::string> head = {"run",     "station", "pass",    "started",     "sample",  "sample_index",
                                           "comment", "source",  "channel", "signal_name", "type",    "kind",
                                           "unit",    "min",     "max",     "mean",        "sigma",   "counts",
                                           "verdict", "ll",      "ul",      "value_ll",    "value_ul"};
    if (json)
        out << '[';
    else
        printCsv(out, head);
    bool first = true;
    Outcome read = store.exportRows(filter, [&](const ExportRow& e) {
        auto number = [&](double v) { return e.measured ? ExactText(v) : std::string(); };
        const std::vector<std::string> fields = {std::to_string(e.run),
                                                 e.station,
                                                 std::to_string(e.pass),
                                                 e.started,
                                                 e.sampleName,
                                                 e.sampleIndex,
                                                 e.comment,
                                                 e.source,
                                                 std::to_string(e.channel),
                                                 e.signalName,
                                                 e.type,
                                                 kKindNames[static_cast<size_t>(e.kind)],
                                                 e.unit,
                                                 number(e.min),
                                                 number(e.max),
                                                 number(e.mean),
                                                 number(e.sigma),
                                                 std::to_string(e.counts),
                                                 e.verdict ? (*e.verdict ? "Go" : "NG") : "",
                                                 std::to_string(e.LL),
                                                 std::to_string(e.UL),
                                                 ExactText(e.valueLL),
                                                 ExactText(e.valueUL)};
        if (!json) return printCsv(out, fields);
        // One object a line: numbers as numbers, an empty one as null.
        static const std::vector<bool> numeric = {true, false, true,  false, false, false, false, false,
                                                  true, false, false, false, false, true,  true,  true,
                                                  true, true,  false, true,  true,  true,  true};
        out << (first ? "\n{" : ",\n{");
        for (size_t i = 0; i < fields.size(); ++i) {
            out << (i ? ", \"" : "\"") << head[i] << "\": ";
            if (numeric[i])
                out << (fields[i].empty() ? "null" : fields[i]);
            else
                out << '"' << JsonEscape(fields[i]) << '"';
        }
        out << '}';
        first = false;
    });
    if (json) out << (first ? "]\n" : "\n]\n");
    return read;
}

Outcome summary(ResultStore& store, const Options& o, const PassFilter& filter, std::ostream& out) {
    std::vector<SummaryRow> rows;
    if (Outcome read = store.summarise(filter, rows); !read) return read;
    const bool table = o.format == "table";
    std::vector<std::vector<std::string>> lines;
    const std::vector<std::string> head = {"channel", "type",     "kind",     "unit",  "passes", "cycles",
                                           "min",     "max",      "mean",     "sigma", "judged", "go",
                                           "yield",   "value_ll", "value_ul", "cp",    "cpk"};
    if (table)
        lines.push_back(
            {"Ch", "Type", "Kind", "Passes", "Min", "Max", "Mean", "σ", "Yield", "Value LL", "Value UL", "Cp", "Cpk"});
    else if (o.format == "csv")
        printCsv(out, head);
    JsonWriter j;
    j.beginArray();
    for (const SummaryRow& s : rows) {
        const bool measured = s.cycles > 0;
        auto value = [&](double v) { return measured ? shown(v, s.unit, table) : std::string(); };
        const std::string kind = kKindNames[static_cast<size_t>(s.kind)];
        if (table) {
            const std::string dash = "—";
            lines.push_back({"Ch" + std::to_string(s.channel), s.type, kind, std::to_string(s.passes), value(s.min),
                             value(s.max), value(s.mean), value(s.sigma), YieldText(s.judged, s.go),
                             s.valueLimits ? SiText((*s.valueLimits)[0], s.unit, 4) : dash,
                             s.valueLimits ? SiText((*s.valueLimits)[1], s.unit, 4) : dash,
                             s.cp ? fixed(*s.cp, 3) : dash, s.cpk ? fixed(*s.cpk, 3) : dash});
        } else if (o.format == "csv") {
            printCsv(out, {std::to_string(s.channel), s.type, kind, s.unit, std::to_string(s.passes),
                           std::to_string(s.cycles), value(s.min), value(s.max), value(s.mean), value(s.sigma),
                           std::to_string(s.judged), std::to_string(s.go),
                           s.judged ? ExactText(static_cast<double>(s.go) / static_cast<double>(s.judged)) : "",
                           s.valueLimits ? ExactText((*s.valueLimits)[0]) : "",
                           s.valueLimits ? ExactText((*s.valueLimits)[1]) : "", optionalNumber(s.cp),
                           optionalNumber(s.cpk)});
        } else {
            auto number = [&](const char* key, const std::optional<double>& v) {
                j.key(key);
                if (v)
                    j.value(*v);
                else
                    j.null();
            };
            auto measuredValue = [&](double v) { return measured ? std::optional<double>(v) : std::nullopt; };
            j.beginObject().key("channel").value(s.channel).key("type").value(s.type).key("kind").value(kind);
            j.key("unit").value(s.unit).key("passes").value(s.passes).key("cycles").value(s.cycles);
            number("min", measuredValue(s.min));
            number("max", measuredValue(s.max));
            number("mean", measuredValue(s.mean));
            number("sigma", measuredValue(s.sigma));
            j.key("judged").value(s.judged).key("go").value(s.go);
            number("yield", s.judged ? std::optional<double>(static_cast<double>(s.go) / static_cast<double>(s.judged))
                                     : std::nullopt);
            number("value_ll", s.valueLimits ? std::optional<double>((*s.valueLimits)[0]) : std::nullopt);
            number("value_ul", s.valueLimits ? std::optional<double>((*s.valueLimits)[1]) : std::nullopt);
            number("cp", s.cp);
            number("cpk", s.cpk);
            j.endObject();
        }
    }
    j.endArray();
    if (table) printTable(out, lines);
    if (o.format == "json") out << j.text() << '\n';
    return Outcome::Ok();
}

}  // namespace

Outcome CommandResults(const Options& o, std::ostream& out, std::ostream& err) {
    const std::string what = o.files.empty() ? std::string() : o.files.front();
    if (o.files.size() != 1 || (what != "list" && what != "export" && what != "summary"))
        return UsageError(err, "results", "name one of list, export and summary");
    RunState state;
    if (Outcome prepared = PrepareState(state, o, err); !prepared) return prepared;
    const StoreTarget target = state.storeTarget();
    if (!target.postgres && !FileExists(target.location))
        return Told(err, {ErrorCode::FileNotFound, "there is no results store at " + target.location});
    ResultStore store;
    if (Outcome opened = store.open(target, false); !opened)
        return Told(err, {opened.code(), StoreTargetText(target) + ": " + opened.text()});
    const PassFilter filter{o.runs, o.since, o.until};
    Outcome done = what == "list"     ? list(store, o, out)
                   : what == "export" ? exportRows(store, o, filter, out)
                                      : summary(store, o, filter, out);
    out.flush();
    return done ? done : Told(err, {done.code(), StoreTargetText(target) + ": " + done.text()});
}

}  // namespace mervasto::cli
