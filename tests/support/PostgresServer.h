#pragma once

#include <fcntl.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "store/SqlDatabase.h"

namespace mervasto::test {

// A throw-away PostgreSQL server in a temporary folder on a loopback port,
// started by the first test of a program that asks for it and stopped when
// the program ends. initdb refuses to run as root, so as root (CI) the
// server runs as the "postgres" user.
class PostgresServer {
public:
    // The program's server; null, with the reason, when none can be started.
    static PostgresServer* Shared(std::string& why) {
        static std::string failed;
        static std::unique_ptr<PostgresServer> server = [] {
            auto s = std::make_unique<PostgresServer>();
            if (!s->start(failed)) s.reset();
            return s;
        }();
        why = failed;
        return server.get();
    }

    // A new, empty database on the server, by its URI.
    std::string freshDatabase(const std::string& name) {
        OpenPostgres(uri("postgres"))->exec("CREATE DATABASE " + name);
        return uri(name);
    }

    ~PostgresServer() {
        if (started_) run({bin_ + "/pg_ctl", "-D", dir_ + "/data", "-m", "immediate", "-w", "stop"});
        std::error_code ec;
        if (!dir_.empty()) std::filesystem::remove_all(dir_, ec);
    }

private:
    std::string uri(const std::string& db) const {
        return "postgresql://postgres@127.0.0.1:" + std::to_string(port_) + "/" + db;
    }

    // Runs a program of the server, as "postgres" when we are root; its
    // output goes to the folder's log.
    int run(std::vector<std::string> argv) const {
        if (geteuid() == 0) argv.insert(argv.begin(), {"runuser", "-u", "postgres", "--"});
        const std::string log = dir_ + "/commands.log";
        const pid_t pid = fork();
        if (pid == 0) {
            const int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
            if (fd >= 0) {
                dup2(fd, 1);
                dup2(fd, 2);
            }
            std::vector<char*> args;
            for (auto& a : argv) args.push_back(a.data());
            args.push_back(nullptr);
            execvp(args[0], args.data());
            _exit(127);
        }
        int status = 0;
        if (pid < 0 || waitpid(pid, &status, 0) < 0) return -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // A port nobody listens on now.
    static int freePort() {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof a;
        int port = 0;
        if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
            getsockname(fd, reinterpret_cast<sockaddr*>(&a), &size) == 0)
            port = ntohs(a.sin_port);
        close(fd);
        return port;
    }

    bool start(std::string& why) {
        for (const auto& version : {"17", "16", "15", "14", "13"}) {
            const std::string bin = std::string("/usr/lib/postgresql/") + version + "/bin";
            if (std::filesystem::exists(bin + "/initdb")) {
                bin_ = bin;
                break;
            }
        }
        if (bin_.empty()) {
            why = "no PostgreSQL server is installed (scripts/install-deps postgresql)";
            return false;
        }
        char folder[] = "/tmp/mervasto-pg-XXXXXX";
        if (!mkdtemp(folder)) return (why = "no temporary folder", false);
        dir_ = folder;
        if (geteuid() == 0) {
            const passwd* pg = getpwnam("postgres");
            if (!pg || chown(folder, pg->pw_uid, pg->pw_gid) != 0)
                return (why = "there is no user \"postgres\" to run the server as", false);
        }
        if (run({bin_ + "/initdb", "-D", dir_ + "/data", "-U", "postgres", "-A", "trust", "-E", "UTF8", "--locale=C",
                 "--no-sync", "--no-instructions"}) != 0)
            return (why = "initdb failed: see " + dir_ + "/commands.log", false);
        // Another program may take the free port first: a few tries.
        for (int attempt = 0; attempt < 3 && !started_; ++attempt) {
            port_ = freePort();
            const std::string options = "-p " + std::to_string(port_) + " -k " + dir_ +
                                        " -c listen_addresses=127.0.0.1 -c fsync=off -c full_page_writes=off";
            started_ = run({bin_ + "/pg_ctl", "-D", dir_ + "/data", "-l", dir_ + "/server.log", "-w", "-t", "120", "-o",
                            options, "start"}) == 0;
        }
        if (!started_) why = "the server did not start: see " + dir_ + "/server.log";
        return started_;
    }

    std::string bin_;
    std::string dir_;
    int port_ = 0;
    bool started_ = false;
};

}  // namespace mervasto::test
