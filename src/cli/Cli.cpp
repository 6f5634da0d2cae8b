#include "cli/Cli.h"

#include "app/core/Startup.h"
#include "app/core/Version.h"
#include "cli/Commands.h"
#include "cli/Options.h"
#include "common/PackageVersion.h"
#include "common/WorkPool.h"

#include <map>
#include <ostream>

namespace mervasto {

int RunCli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    for (const auto& a : args) {
        if (a == "--help" || a == "-h") {
            out << cli::UsageText();
            return kExitOk;
        }
        if (a == "--version") {
            // The settings keep the fixed identity of the resume file; saying
            // which one tells a user where their settings live.
            out << "mervasto-cli " << kPackageVersion << '\n'
                << "settings: Resume" << kVersionText << ".txt " << CaptionSuffix() << '\n';
            return kExitOk;
        }
    }
    cli::Options o;
    if (const Outcome parsed = cli::ParseOptions(args, o); !parsed) {
        err << "mervasto-cli: " << parsed.text() << '\n';
        return ExitStatusOf(parsed);
    }
    if (o.command.empty()) {
        err << cli::UsageText();
        return kExitBadOptions;
    }
    SetJobs(o.jobs ? static_cast<unsigned>(*o.jobs) : DefaultJobs());
    using Command = Outcome (*)(const cli::Options&, std::ostream&, std::ostream&);
    static const std::map<std::string, Command> commands = {
        {"info", cli::CommandInfo},       {"analyze", cli::CommandAnalyze},
        {"convert", cli::CommandConvert}, {"make-examples", cli::CommandMakeExamples},
        {"readout", cli::CommandReadout}, {"fetch", cli::CommandFetch},
        {"acquire", cli::CommandAcquire}, {"results", cli::CommandResults},
    };
    const auto command = commands.find(o.command);
    if (command == commands.end()) {
        err << "mervasto-cli: unknown command " << o.command << "\n(try --help)\n";
        return kExitBadOptions;
    }
    // The command has told its own failures; a fault that escaped it is told here.
    Outcome done;
    if (const Outcome escaped = Guarded([&] { done = command->second(o, out, err); }); !escaped)
        return ExitStatusOf(cli::Told(err, escaped));
    return ExitStatusOf(done);
}

}  // namespace mervasto
