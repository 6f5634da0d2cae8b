#include "store/ResultStore.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>

#include "support/PostgresServer.h"
#include "support/TestFolder.h"

extern char** environ;

using namespace mervasto;

namespace {

// A station in a process of its own, talked to through its standard input
// and output.
struct Station {
    pid_t pid = -1;
    FILE* to = nullptr;
    FILE* from = nullptr;

    Station(const std::string& target, const std::string& name, int passes) {
        int in[2], out[2];
        // Close-on-exec: the other station must not hold this one's pipes.
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        std::string program = MERVASTO_STORE_WRITER, count = std::to_string(passes);
        std::string station = name, where = target;
        char* argv[] = {program.data(), where.data(), station.data(), count.data(), nullptr};
        if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, environ) != 0) pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        close(out[1]);
        to = fdopen(in[1], "w");
        from = fdopen(out[0], "r");
    }
    // Waits for the station to have its store open.
    bool ready() const {
        char line[32] = {};
        return from && std::fgets(line, sizeof line, from) && std::string(line) == "ready\n";
    }
    void go() const {
        std::fputs("go\n", to);
        std::fflush(to);
    }
    int exitStatus() {
        std::fclose(to);
        std::fclose(from);
        int status = 0;
        if (pid < 0 || waitpid(pid, &status, 0) != pid) return -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

enum class Backend { Sqlite, Postgres };

class StoreConcurrency : public ::testing::TestWithParam<Backend> {};

// Two stations store into one store at the same moment, each a pass at a
// time: every pass arrives, under its own station's run, with its own
// numbers and its own results.
TEST_P(StoreConcurrency, TwoProcessesStoringAtOnceLoseNothing) {
    constexpr int kPasses = 150;
    const auto dir = test::FreshTestFolder("mervasto-concurrent-");
    std::string target = (dir / "line.sqlite").string();
    if (GetParam() == Backend::Postgres) {
        std::string why;
        test::PostgresServer* server = test::PostgresServer::Shared(why);
        if (!server) GTEST_SKIP() << why;
        target = server->freshDatabase("concurrent");
    }
    Station a(target, "A", kPasses), b(target, "B", kPasses);
    ASSERT_TRUE(a.ready());
    ASSERT_TRUE(b.ready());
    a.go();
    b.go();
    EXPECT_EQ(a.exitStatus(), 0);
    EXPECT_EQ(b.exitStatus(), 0);

    ResultStore store;
    ASSERT_TRUE(store.open(StoreTargetOf(target, target), false).ok());
    std::vector<RunRow> runs;
    ASSERT_TRUE(store.listRuns(runs).ok());
    ASSERT_EQ(runs.size(), 2u);
    std::map<int64_t, std::string> stationOf;
    for (const RunRow& r : runs) {
        EXPECT_EQ(r.passes, kPasses) << r.station;
        stationOf[r.id] = r.station;
    }
    std::map<std::string, std::vector<int>> seen;
    ASSERT_TRUE(store
                    .exportRows({},
                                [&](const ExportRow& e) {
                                    const std::string& station = stationOf[e.run];
                                    const double mark = station == "A" ? 1000 : 2000;
                                    const double want =
                                        mark + e.pass + static_cast<int>(e.kind) / 10.0 + (e.channel - 1) / 100.0;
                                    EXPECT_EQ(e.mean, want) << station << " pass " << e.pass;
                                    EXPECT_EQ(e.station, station);
                                    if (e.channel == 1 && e.kind == Measure::PulseWidth)
                                        seen[station].push_back(e.pass);
                                })
                    .ok());
    for (const char* station : {"A", "B"}) {
        std::vector<int> want(kPasses);
        for (int n = 0; n < kPasses; ++n) want[static_cast<size_t>(n)] = n + 1;
        EXPECT_EQ(seen[station], want) << station;
    }
}

INSTANTIATE_TEST_SUITE_P(Backends, StoreConcurrency, ::testing::Values(Backend::Sqlite, Backend::Postgres),
                         [](const auto& info) { return info.param == Backend::Sqlite ? "Sqlite" : "Postgres"; });

}  // namespace
