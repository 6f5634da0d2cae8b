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

inline std::vector<Step> Joined(std::initializer_list<std::vector<Step>> parts) {
    std::vector<Step> all;
    for (const auto& p : parts) all.insert(all.end(), p.begin(), p.end());
    return all;
}

// A family's driver against recorded exchanges: an instrument whose link
// plays a script back after its identification (the steps the family's
// identify takes), connected with the family left to that.
class ReplayExchange : public ::testing::Test {
protected:
    ReplayExchange(std::vector<Step> identification, const InstrumentFamily& family)
        : identification_(std::move(identification)), family_(family) {}
    void SetUp() override { TestApp(); }

    void play(std::vector<Step> script) {
        record = std::make_shared<ReplayTransport::Record>();
        record->script = Joined({identification_, script});
        instrument = std::make_unique<Instrument>(std::make_unique<ReplayTransport>(record));
        instrument->link().setReplyTimeoutMs(300);
        instrument->link().setQuietMs(50);
        ASSERT_TRUE(instrument->connect(setup, ui, address(), "Auto"));
        ASSERT_EQ(&instrument->family("Auto"), &family_);
    }
    Outcome fetch() {
        DsoTransferInputs in{address(), false, vrate, "Period"};
        return instrument->fetch(setup, wave, ui, in);
    }
    // A fetch the instrument ends: the message in the outcome, the script
    // played to its end, the link closed.
    void expectFetchEnds(std::vector<Step> script, const std::string& message) {
        play(std::move(script));
        const Outcome fetched = fetch();
        EXPECT_EQ(fetched.code(), ErrorCode::Link);
        EXPECT_NE(fetched.text().find(message), std::string::npos) << fetched.text();
        EXPECT_TRUE(record->done()) << record->sent.back();
        EXPECT_FALSE(instrument->linked());
    }
    // The acquisition wait: the arming steps, then the completion query
    // answered with each reply in turn; what the wait came to.
    Outcome waitWith(std::vector<Step> arm, const std::string& poll, const std::vector<std::string>& replies) {
        for (const auto& r : replies) arm.push_back({poll, r + "\n"});
        play(arm);
        const Outcome waited = Guarded([&] { EXPECT_FALSE(instrument->acquireSingle()); });
        EXPECT_TRUE(record->done());
        return waited;
    }
    std::string address() const { return "127.0.0.1:" + std::to_string(family_.port); }

    std::shared_ptr<ReplayTransport::Record> record;
    std::unique_ptr<Instrument> instrument;
    DsoSetup setup;
    WaveRecord wave;
    ScriptedUi ui;
    std::array<std::string, 4> vrate{"", "1", "1", "1"};

private:
    std::vector<Step> identification_;
    const InstrumentFamily& family_;
};

}  // namespace mervasto::test
