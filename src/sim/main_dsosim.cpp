// mervasto-dsosim: the simulated instrument on a loopback port, for trying
// the program and its tests without the real thing.
#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "common/Numeric.h"
#include "common/PackageVersion.h"
#include "sim/Dialects.h"
#include "sim/DsoSimulator.h"
#include "sim/Scenario.h"

namespace {

void Usage() {
    std::printf(
        "usage: mervasto-dsosim [--dialect NAME] [--port N] [--vxi11 | --usbtmc PATH]\n"
        "                       [--model M] [--scenario NAME]\n"
        "                       [--record-length N] [--fault NAME] [--acq-delay-ms N]\n"
        "                       [--fault-after BLOCKS] [--fault-rate MS]\n"
        "                       [--bad-setup-field FIELD] [--help] [--version]\n"
        "Serves an instrument's command set on 127.0.0.1 until killed; the port is\n"
        "the dialect's own unless --port names one.\n"
        "--vxi11 serves it over VXI-11 instead: a portmapper on --port (111 when it\n"
        "is free, else any free port) and the core channel beside it.\n"
        "--usbtmc PATH stands in for a USBTMC device node: a local packet socket\n"
        "at PATH, one message per packet (mervasto --usb PATH).\n"
        "dialects and their models:\n");
    for (const auto& d : mervasto::SimDialects()) {
        std::printf("  %-8.*s port %u:", static_cast<int>(d.name.size()), d.name.data(), static_cast<unsigned>(d.port));
        for (const auto& m : d.models) std::printf(" %s", m.c_str());
        std::printf("\n");
    }
    std::printf("scenarios:");
    for (const auto& s : mervasto::ScenarioNames()) std::printf(" %s", s.c_str());
    std::printf("\nfaults:");
    for (const auto& f : mervasto::SimFaultNames()) std::printf(" %s", f.c_str());
    std::printf("\nbad-setup fields:");
    for (const auto& f : mervasto::SimBadSetupFields()) std::printf(" %s", f.c_str());
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    using namespace mervasto;
    QCoreApplication app(argc, argv);
    SimOptions options;
    bool portGiven = false;
    std::string model;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            Usage();
            return 0;
        }
        if (a == "--vxi11") {
            options.transport = "vxi11";
            continue;
        }
        if (a == "--version") {
            std::printf("mervasto-dsosim %.*s\n", static_cast<int>(kPackageVersion.size()), kPackageVersion.data());
            return 0;
        }
        if (i + 1 >= argc) {
            std::fprintf(stderr, "mervasto-dsosim: %s needs a value\n", a.c_str());
            return 2;
        }
        const std::string v = argv[++i];
        if (a == "--port") {
            const double p = Val(v);
            if (p < 0 || p > 65535) {
                std::fprintf(stderr, "mervasto-dsosim: bad port %s\n", v.c_str());
                return 2;
            }
            options.port = static_cast<uint16_t>(p);
            portGiven = true;
        } else if (a == "--dialect") {
            if (!SimDialectNamed(v)) {
                std::fprintf(stderr, "mervasto-dsosim: unknown dialect %s\n", v.c_str());
                return 2;
            }
            options.dialect = v;
        } else if (a == "--usbtmc") {
            options.transport = "usbtmc";
            options.usbtmcPath = v;
        } else if (a == "--model") {
            model = v;
        } else if (a == "--scenario") {
            bool known = false;
            for (const auto& s : ScenarioNames()) known = known || s == v;
            if (!known) {
                std::fprintf(stderr, "mervasto-dsosim: unknown scenario %s\n", v.c_str());
                return 2;
            }
            options.state.scenario = v;
        } else if (a == "--record-length") {
            const double n = Val(v);
            if (n < 1 || n > 5000011) {
                std::fprintf(stderr, "mervasto-dsosim: record length must be 1 .. 5000011\n");
                return 2;
            }
            options.state.recordLength = static_cast<int32_t>(n);
        } else if (a == "--fault") {
            if (!SimFaultFromName(v, options.fault)) {
                std::fprintf(stderr, "mervasto-dsosim: unknown fault %s\n", v.c_str());
                return 2;
            }
        } else if (a == "--acq-delay-ms") {
            options.acqDelayMs = static_cast<int>(Val(v));
        } else if (a == "--fault-after") {
            options.faultAfterBlocks = static_cast<int>(Val(v));
        } else if (a == "--fault-rate") {
            const double ms = Val(v);
            if (!(ms >= 0 && ms <= 60000)) {
                std::fprintf(stderr, "mervasto-dsosim: --fault-rate takes 0 .. 60000 ms\n");
                return 2;
            }
            options.tricklePeriodMs = static_cast<int>(ms);
        } else if (a == "--bad-setup-field") {
            const auto& fields = SimBadSetupFields();
            if (std::find(fields.begin(), fields.end(), v) == fields.end()) {
                std::fprintf(stderr, "mervasto-dsosim: unknown setup field %s\n", v.c_str());
                return 2;
            }
            options.badSetupField = v;
        } else {
            std::fprintf(stderr, "mervasto-dsosim: unknown option %s\n", a.c_str());
            Usage();
            return 2;
        }
    }

    const SimDialect& dialect = *SimDialectNamed(options.dialect);
    const bool vxi11 = options.transport == "vxi11";
    if (!portGiven) options.port = vxi11 ? 111 : dialect.port;
    if (model.empty()) model = dialect.models.front();
    if (std::find(dialect.models.begin(), dialect.models.end(), model) == dialect.models.end()) {
        std::fprintf(stderr, "mervasto-dsosim: the %s dialect has no model %s\n", options.dialect.c_str(),
                     model.c_str());
        return 2;
    }
    options.state.model = model;

    auto sim = std::make_unique<DsoSimulator>(options);
    if (!sim->start() && vxi11 && !portGiven) {
        // The usual portmapper port needs root and may be taken.
        options.port = 0;
        sim = std::make_unique<DsoSimulator>(options);
    }
    if (!sim->started() && !sim->start()) {
        if (options.transport == "usbtmc")
            std::fprintf(stderr, "mervasto-dsosim: cannot make the socket %s\n", options.usbtmcPath.c_str());
        else
            std::fprintf(stderr, "mervasto-dsosim: cannot listen on port %u\n", static_cast<unsigned>(options.port));
        return 1;
    }
    std::printf("mervasto-dsosim: %s listening on %s (scenario %s, record length %d, fault %s)\n",
                options.state.model.c_str(), sim->address().c_str(), options.state.scenario.c_str(),
                options.state.recordLength, SimFaultName(options.fault));
    std::fflush(stdout);
    return app.exec();
}
