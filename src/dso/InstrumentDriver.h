#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/Outcome.h"
#include "common/UiPort.h"
#include "dso/AcquisitionPass.h"
#include "dso/DsoLink.h"
#include "dso/RejectRange.h"
#include "wavefile/DsoSetup.h"
#include "wavefile/WaveRecord.h"

namespace mervasto {

// What an instrument family may lack, and why: the window greys the control
// with the reason as its tip, the command line refuses the option (exit 2).
enum class InstrumentFeature { RejectRange, Screen };
struct FeatureSupport {
    bool available = true;
    std::string whyNot;
};

// The four fields of an identification ("*IDN?"): maker, model, serial
// number, firmware; missing ones are empty.
struct Identity {
    std::string maker;
    std::string model;
    std::string serial;
    std::string firmware;
};
Identity IdentityOf(const std::string& reply);

class InstrumentDriver;

// A family of instruments that speak one dialect: its name (the Instrument
// setting's word), the model lines it covers, the port of its raw socket,
// whether an identification is one of its instruments, and its driver.
struct InstrumentFamily {
    std::string_view name;
    std::string_view modelLines;
    uint16_t port;
    bool (*identifies)(const Identity& identity);
    std::unique_ptr<InstrumentDriver> (*makeDriver)();
};

// One family's dialect. The link is connected when a driver is called, and
// every call talks only through it, so the link's time-outs, reply caps,
// Stop and block checks hold for every family. Failures of an exchange throw
// (DsoLink::failExchange closes the link first) or come back as an Outcome,
// as each method says; none shows anything but status texts and progress.
class InstrumentDriver {
public:
    virtual ~InstrumentDriver() = default;

    virtual const InstrumentFamily& family() const = 0;
    // The reply to "*IDN?" (already asked): takes the model and its channel
    // count into the setup, or refuses an instrument the driver cannot
    // measure with (throws after closing the link; the setup unchanged).
    virtual void identify(DsoLink& link, const std::string& reply, DsoSetup& setup) = 0;
    // The instrument's setup into `setup`, without the waves. memoryInput
    // keeps the per-channel fields (the legacy MemoryInput box).
    virtual Outcome readSetup(DsoLink& link, DsoSetup& setup, UiPort& ui, const std::string& addressText,
                              bool memoryInput) = 0;
    // Before every pass of a run.
    virtual void prepareForPass(DsoLink& link, const DsoSetup& setup) = 0;
    // Arms one single acquisition and waits for the family's completion
    // (never a fixed time). True when Stop ended the wait.
    virtual bool acquireSingle(DsoLink& link) = 0;
    // The setup and every enabled channel into the record: volts, the
    // interval, and raw codes the level rules read (8192 per division of the
    // setup's scale). Channels switched off are left out (no raw samples).
    virtual Outcome fetch(DsoLink& link, DsoSetup& setup, WaveRecord& record, UiPort& ui, DsoTransferInputs& in) = 0;
    // The front panel back to the user at the end of a run.
    virtual Outcome returnToLocal(DsoLink& link) = 0;

    virtual FeatureSupport supports(InstrumentFeature feature) const {
        (void)feature;
        return {};
    }
    // What the user is asked to do on the instrument before the reject range
    // is read, and the reading (zoom window and cursors as sample indices).
    virtual std::string rejectRangePrompt() const = 0;
    virtual Outcome readRejectRange(DsoLink& link, DsoSetup& setup, int32_t recordLength, ZoomReadout& out) = 0;
    // The instrument's screen into fileName; *bytes the image's size.
    virtual Outcome saveScreen(DsoLink& link, UiPort& ui, const std::string& addressText, const std::string& fileName,
                               int32_t* bytes) = 0;
};

// Every family, the legacy instrument first.
const std::vector<const InstrumentFamily*>& InstrumentFamilies();
// The family of a name as the setting or --instrument gives it (any case);
// nullptr for "Auto" and for names no family has.
const InstrumentFamily* FamilyNamed(std::string_view name);
// The family whose instruments an identification names; nullptr for none.
const InstrumentFamily* FamilyIdentifiedBy(const Identity& identity);
// "Legacy (DS-5352, DS-5354), Rigol (DS1000Z, MSO1000Z)".
std::string FamilyListText();

}  // namespace mervasto
