#pragma once

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DsoTestSupport.h"
#include "ReplayTransport.h"
#include "dso/Instrument.h"

namespace mervasto::test {

// A driver against an exchange recorded as a maker's programming guide
// gives it: what it sends, in order, and what it makes of the replies.
class ScpiExchange : public ::testing::Test {
protected:
    void SetUp() override { TestApp(); }

    // An instrument whose link plays the opening (the identification and
    // what the driver sends after it) and the script back, connected with
    // the family left to the identification, which must choose `family`.
    void play(const std::vector<Step>& opening, const InstrumentFamily& family, const std::vector<Step>& script) {
        record = std::make_shared<ReplayTransport::Record>();
        record->script = Joined({opening, script});
        instrument = std::make_unique<Instrument>(std::make_unique<ReplayTransport>(record));
        instrument->link().setReplyTimeoutMs(300);
        instrument->link().setQuietMs(50);
        ASSERT_TRUE(instrument->connect(setup, ui, "127.0.0.1:5025", "Auto"));
        ASSERT_EQ(&instrument->family("Auto"), &family);
    }
    Outcome fetch() {
        DsoTransferInputs in{"127.0.0.1:5025", false, vrate, "Period"};
        return instrument->fetch(setup, wave, ui, in);
    }
    // Each script ends the fetch with a message holding its text, every step
    // played and the link closed.
    void expectRefusals(const std::vector<std::pair<std::vector<Step>, std::string>>& cases) {
        for (const auto& [script, message] : cases) {
            SCOPED_TRACE(message);
            playScript(script);
            const Outcome fetched = fetch();
            EXPECT_EQ(fetched.code(), ErrorCode::Link);
            EXPECT_NE(fetched.text().find(message), std::string::npos) << fetched.text();
            EXPECT_TRUE(record->done()) << record->sent.back();
            EXPECT_FALSE(instrument->linked());
        }
    }
    // The family's play with its own opening.
    virtual void playScript(const std::vector<Step>& script) = 0;

    std::shared_ptr<ReplayTransport::Record> record;
    std::unique_ptr<Instrument> instrument;
    DsoSetup setup;
    WaveRecord wave;
    ScriptedUi ui;
    std::array<std::string, 4> vrate{"", "1", "1", "1"};
};

}  // namespace mervasto::test
