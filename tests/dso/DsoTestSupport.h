#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QThread>

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "common/RuntimeError.h"
#include "common/UiPort.h"
#include "dso/DsoLink.h"
#include "sim/DsoSimulator.h"

namespace mervasto::test {

inline QCoreApplication& TestApp() {
    static int argc = 1;
    static char name[] = "test_dso";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

// A user who answers every box with `answer` and remembers what was shown.
class ScriptedUi : public UiPort {
public:
    struct Box {
        std::string text;
        MsgButtons buttons;
        std::string title;
    };
    void setStatus(int panel, const std::string& text) override { statuses.emplace_back(panel, text); }
    MsgAnswer messageBox(const std::string& text, MsgButtons buttons, const std::string& title) override {
        boxes.push_back({text, buttons, title});
        return answer;
    }
    std::optional<std::string> chooseOpenFile(const std::string&, const std::string&, const std::string&,
                                              const std::string&) override {
        return std::nullopt;
    }
    std::optional<std::string> chooseSaveFile(const std::string&, const std::string&, const std::string&,
                                              const std::string&) override {
        return std::nullopt;
    }
    std::optional<uint32_t> chooseColor(uint32_t) override { return std::nullopt; }
    void progress(int64_t done, int64_t total) override { progressCalls.emplace_back(done, total); }

    MsgAnswer answer = MsgAnswer::Ok;
    std::vector<std::pair<int, std::string>> statuses;
    std::vector<Box> boxes;
    std::vector<std::pair<int64_t, int64_t>> progressCalls;
};

// A small, quick instrument.
inline SimOptions small(const std::string& model = "DS-5354", int32_t length = 500) {
    SimOptions o;
    o.state.model = model;
    o.state.recordLength = length;
    o.acqDelayMs = 20;
    return o;
}

// A simulator on an ephemeral loopback port and a link with short waits.
class SimTest : public ::testing::Test {
protected:
    void SetUp() override { TestApp(); }
    void TearDown() override {
        link.close();
        if (sim) sim->stop();
    }

    void startSim(SimOptions options = small()) {
        sim = std::make_unique<DsoSimulator>(std::move(options));
        ASSERT_TRUE(sim->start());
        link.setReplyTimeoutMs(2000);
        link.setQuietMs(400);  // well above a busy machine's scheduling hiccups
    }
    // Connects and identifies; the log starts empty afterwards.
    void linkUp() {
        ASSERT_TRUE(ConnectAndIdentify(link, setup, ui, sim->address()));
        sim->clearLog();
    }
    // The log once it holds at least n lines (a command that gets no reply
    // may still be on its way when the call that sent it returns).
    std::vector<std::string> logOf(size_t n) {
        sim->waitUntil([n](const std::vector<std::string>& log, int) { return log.size() >= n; });
        return sim->commandLog();
    }

    // A query to a silent instrument with no time-out, ended only by what
    // `act` does once the instrument has the query: the error it ended with.
    std::pair<ErrorCode, std::string> silentQueryEndedBy(std::function<void()> act) {
        sim->setFault(SimFault::Silent);
        link.setReplyTimeoutMs(0);
        link.setExchangeDeadlineMs(0);
        sim->setCommandHook([act](const std::string&) { act(); });
        try {
            link.QueryDso("TDIV?", 80);
        } catch (const RuntimeError& e) {
            return {e.code(), e.what()};
        }
        ADD_FAILURE() << "the wait did not end";
        return {ErrorCode::None, {}};
    }

    std::unique_ptr<DsoSimulator> sim;
    DsoLink link;
    DsoSetup setup;
    ScriptedUi ui;
};

}  // namespace mervasto::test
