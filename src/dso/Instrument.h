#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dso/InstrumentDriver.h"

namespace mervasto {

// The ports tried, in this order, when neither the address nor the
// Instrument setting names one: the legacy instrument's, then the SCPI
// families' raw sockets.
inline constexpr uint16_t kProbedPorts[] = {5198, 5025, 5555, 4000};
// How long each of them may take to accept a connection.
inline constexpr int kProbeConnectMs = 1500;

// The instrument a run talks to: the one link, and the driver of the family
// its identification (or the Instrument setting) chose. Everything the run,
// the command line and the window do with an instrument goes through here.
// familyName is the Instrument setting's word: "Auto" or a family's name.
class Instrument {
public:
    explicit Instrument(std::unique_ptr<ByteTransport> transport = nullptr);

    DsoLink& link() { return link_; }
    const DsoLink& link() const { return link_; }

    // Connects and identifies when not linked: "Connecting to the DSO.";
    // the address's port, else the family's, else the probed ports one after
    // another (saying which answered); "*IDN?" then chooses the driver, or
    // the named family's driver takes it. "DSO not connected normally." when
    // nothing answers; an identification no family knows closes the link
    // and lists the families.
    Outcome connect(DsoSetup& setup, UiPort& ui, const std::string& addressText, std::string_view familyName);
    bool linked() const { return link_.DsoLinked; }
    // Linked, but to another address than this names, or to another family
    // than the one named ("Auto" takes any).
    bool linkedElsewhere(const std::string& addressText, std::string_view familyName) const;
    // The port that answered when ports were tried; 0 when the address or
    // the family named it.
    uint16_t probedPort() const { return probedPort_; }
    // The ports tried when none is named: kProbedPorts, or another list (a
    // test's loopback ports).
    void setProbedPorts(std::vector<uint16_t> ports) { probedPorts_ = std::move(ports); }

    // The linked family's driver; before a link, the named family's (the
    // legacy instrument's for "Auto", as the program always assumed).
    InstrumentDriver& driver(std::string_view familyName);
    const InstrumentFamily& family(std::string_view familyName);
    FeatureSupport supports(InstrumentFeature feature, std::string_view familyName);

    // The driver's steps on the link (see InstrumentDriver).
    Outcome readSetup(DsoSetup& setup, UiPort& ui, const std::string& addressText, std::string_view familyName,
                      bool memoryInput);
    void prepareForPass(const DsoSetup& setup);
    bool acquireSingle();
    Outcome fetch(DsoSetup& setup, WaveRecord& record, UiPort& ui, DsoTransferInputs& in);
    Outcome returnToLocal();
    Outcome readRejectRange(DsoSetup& setup, int32_t recordLength, ZoomReadout& out);
    // Connects first when not linked ("DSO not interfaced normally." when
    // nothing answers).
    Outcome saveScreen(DsoSetup& setup, UiPort& ui, const std::string& addressText, std::string_view familyName,
                       const std::string& fileName, int32_t* bytes = nullptr);

    void close() { link_.close(); }

private:
    // The driver of the link (of the last one when it has dropped).
    InstrumentDriver& current();

    DsoLink link_;
    std::unique_ptr<InstrumentDriver> driver_;  // the linked family's, or the last one asked for
    // What the link was opened for: the host and the port the address named
    // (empty when none).
    std::string host_;
    std::string port_;
    uint16_t probedPort_ = 0;
    std::vector<uint16_t> probedPorts_{std::begin(kProbedPorts), std::end(kProbedPorts)};
};

}  // namespace mervasto
