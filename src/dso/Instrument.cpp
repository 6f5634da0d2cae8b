#include "dso/Instrument.h"

#include "common/RuntimeError.h"
#include "dso/DsoSetupReadout.h"
#include "dso/LegacyDriver.h"

namespace mervasto {

Instrument::Instrument(std::unique_ptr<ByteTransport> transport) : link_(std::move(transport)) {}

InstrumentDriver& Instrument::driver(std::string_view familyName) {
    if (linked() && driver_) return *driver_;
    const InstrumentFamily* named = FamilyNamed(familyName);
    const InstrumentFamily& f = named ? *named : LegacyFamily();
    if (!driver_ || &driver_->family() != &f) driver_ = f.makeDriver();
    return *driver_;
}

InstrumentDriver& Instrument::current() {
    if (!driver_) driver_ = LegacyFamily().makeDriver();
    return *driver_;
}

const InstrumentFamily& Instrument::family(std::string_view familyName) { return driver(familyName).family(); }

FeatureSupport Instrument::supports(InstrumentFeature feature, std::string_view familyName) {
    return driver(familyName).supports(feature);
}

Outcome Instrument::connect(DsoSetup& setup, UiPort& ui, const std::string& addressText, std::string_view familyName) {
    if (link_.DsoLinked) return Outcome::Ok();
    return Guarded([&]() -> Outcome {
        ui.setStatus(1, kConnectingToDso);
        const DsoAddress address = ParseDsoAddress(addressText);
        const InstrumentFamily* named = FamilyNamed(familyName);
        std::vector<std::string> ports;
        if (address.portGiven)
            ports = {address.port};
        else if (named)
            ports = {std::to_string(named->port)};
        else
            for (uint16_t p : probedPorts_) ports.push_back(std::to_string(p));
        probedPort_ = 0;
        bool up = false;
        for (const std::string& port : ports) {
            link_.setConnectTimeoutMs(ports.size() > 1 ? kProbeConnectMs : 0);
            const int16_t state = link_.LinkToSLA(address.host, port);
            link_.setConnectTimeoutMs(0);
            if (state == kLinkError) continue;
            up = true;
            if (ports.size() > 1) probedPort_ = static_cast<uint16_t>(std::stoi(port));
            break;
        }
        if (!up) {
            // The fixed text stays; the door's own reason goes to the status line.
            if (const std::string why = link_.transportFailure(); !why.empty()) ui.setStatus(1, why);
            return {ErrorCode::Link, kDsoNotConnected};
        }
        host_ = address.host;
        port_ = address.portGiven ? address.port : std::string();
        if (probedPort_ != 0) ui.setStatus(1, "The DSO answered on port " + std::to_string(probedPort_) + ".");

        const std::string reply = link_.QueryDso("*IDN?", 256);
        const InstrumentFamily* family = named ? named : FamilyIdentifiedBy(IdentityOf(reply));
        if (!family) {
            // The legacy instrument's own refusal, and what else would have been known.
            try {
                LegacyDriver().identify(link_, reply, setup);
            } catch (const RuntimeError& e) {
                throw RuntimeError(
                    e.code(), std::string(e.what()) + " The program knows these families: " + FamilyListText() + ".");
            }
            family = &LegacyFamily();
        }
        if (!driver_ || &driver_->family() != family) driver_ = family->makeDriver();
        driver_->identify(link_, reply, setup);
        link_.DsoLinked = true;
        return Outcome::Ok();
    });
}

bool Instrument::linkedElsewhere(const std::string& addressText, std::string_view familyName) const {
    const std::string peer = link_.peer();
    if (peer.empty()) return false;
    // Auto takes whichever family is linked; a named one must be the linked one.
    const InstrumentFamily* named = FamilyNamed(familyName);
    if (named && driver_ && &driver_->family() != named) return true;
    const DsoAddress a = ParseDsoAddress(addressText);
    if (a.portGiven) return peer != a.peer();
    // Without a port the link stands on whichever port answered.
    return a.host != host_ || !port_.empty();
}

Outcome Instrument::readSetup(DsoSetup& setup, UiPort& ui, const std::string& addressText, std::string_view familyName,
                              bool memoryInput) {
    if (!linked()) {
        Outcome up = connect(setup, ui, addressText, familyName);
        if (up.code() == ErrorCode::Link && up.text() == kDsoNotConnected) {
            FillDsoSetupDefaults(setup);
            return {ErrorCode::Link, kDsoNotInterfaced};
        }
        if (!up) return up;
    }
    return driver(familyName).readSetup(link_, setup, ui, addressText, memoryInput);
}

void Instrument::prepareForPass(const DsoSetup& setup) { current().prepareForPass(link_, setup); }

bool Instrument::acquireSingle() { return current().acquireSingle(link_); }

Outcome Instrument::fetch(DsoSetup& setup, WaveRecord& record, UiPort& ui, DsoTransferInputs& in) {
    return current().fetch(link_, setup, record, ui, in);
}

Outcome Instrument::returnToLocal() { return current().returnToLocal(link_); }

Outcome Instrument::readRejectRange(DsoSetup& setup, int32_t recordLength, ZoomReadout& out) {
    return current().readRejectRange(link_, setup, recordLength, out);
}

Outcome Instrument::saveScreen(DsoSetup& setup, UiPort& ui, const std::string& addressText, std::string_view familyName,
                               const std::string& fileName, int32_t* bytes) {
    if (bytes) *bytes = -1;
    if (!linked()) {
        Outcome up = connect(setup, ui, addressText, familyName);
        if (up.code() == ErrorCode::Link && up.text() == kDsoNotConnected) return {ErrorCode::Link, kDsoNotInterfaced};
        if (!up) return up;
    }
    return driver(familyName).saveScreen(link_, ui, addressText, fileName, bytes);
}

}  // namespace mervasto
