#include "sim/DsoSimulator.h"

#include <QBuffer>
#include <QDateTime>
#include <QHostAddress>
#include <QImage>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <cmath>
#include <cstdio>

#include "common/Channels.h"
#include "common/Numeric.h"
#include "sim/Scenario.h"

namespace mervasto {

namespace {

constexpr std::array<const char*, 14> kFaultNames = {
    "none",       "refuse",  "silent",      "late",       "one-byte",      "close-mid-block", "bad-header",
    "huge-block", "garbage", "short-block", "long-block", "no-terminator", "endless-reply",   "bad-setup"};
// An endless reply: this much every few milliseconds, never a line end.
constexpr int kEndlessChunk = 4096;
constexpr int kEndlessPeriodMs = 2;
const char kGarbage[] = "\x01\x02gArBaGe,,\x7f~";

int ChannelsOf(const std::string& model) { return model.size() >= 7 && model[6] == '2' ? 2 : 4; }

std::string SciText(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.4E", v);
    return buf;
}

std::string_view Trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\r')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

bool StartsWith(std::string_view s, std::string_view p) { return s.substr(0, p.size()) == p; }

}  // namespace

const char* SimFaultName(SimFault fault) { return kFaultNames[static_cast<size_t>(fault)]; }

const std::vector<std::string>& SimFaultNames() {
    static const std::vector<std::string> names(kFaultNames.begin(), kFaultNames.end());
    return names;
}

bool SimFaultFromName(const std::string& name, SimFault& fault) {
    for (size_t i = 0; i < kFaultNames.size(); ++i)
        if (name == kFaultNames[i]) {
            fault = static_cast<SimFault>(i);
            return true;
        }
    return false;
}

int32_t SimCounts(float volts, double voltsPerDiv, double offset, bool word) {
    const double perDiv = word ? 8192.0 : 32.0;
    const double lo = word ? -32768.0 : -128.0;
    const double hi = word ? 32767.0 : 127.0;
    if (!(voltsPerDiv != 0)) return 0;
    const double c = std::nearbyint((volts + offset) / voltsPerDiv * perDiv);
    return static_cast<int32_t>(std::clamp(c, lo, hi));
}

std::string SimDtinf(const SimState& state) {
    std::vector<std::string> f(25);
    for (size_t i = 0; i < f.size(); ++i) f[i] = "Info Field " + std::to_string(i) + " = 0";
    f[0] = "Model Name = " + state.model;
    f[1] = "Data Info = 1";
    f[2] = "Record Time = " + QDateTime::currentDateTime().toString("yyyy/MM/dd hh:mm:ss").toStdString();
    // "Record Length = " and "Segment Count = " are both 16 characters long:
    // the number starts at the 17th.
    const bool two = ChannelsOf(state.model) == 2;
    f[two ? 15 : 23] = "Record Length = " + std::to_string(state.recordLength);
    f[two ? 23 : 15] = "Segment Count = 1";
    std::string out;
    for (size_t i = 0; i < f.size(); ++i) out += (i ? "," : "") + f[i];
    return out;
}

std::vector<uint8_t> SimScreenPng(const std::vector<std::vector<float>>& record, const SimState& state) {
    constexpr int kW = 320, kH = 240;
    QImage img(kW, kH, QImage::Format_RGB32);
    img.fill(qRgb(0, 0, 0));
    const QRgb grid = qRgb(60, 60, 60);
    for (int d = 0; d <= 10; ++d)
        for (int y = 0; y < kH; ++y) img.setPixel(std::min(kW - 1, d * kW / 10), y, grid);
    for (int d = 0; d <= 8; ++d)
        for (int x = 0; x < kW; ++x) img.setPixel(x, std::min(kH - 1, d * kH / 8), grid);
    const std::array<QRgb, 4> colours = {qRgb(255, 255, 0), qRgb(0, 255, 255), qRgb(255, 0, 255), qRgb(0, 255, 0)};
    for (size_t ch = 0; ch < record.size() && ch < kChannels; ++ch) {
        const auto& v = record[ch];
        if (v.empty()) continue;
        const double vdiv = state.ch[ch].voltsPerDiv != 0 ? state.ch[ch].voltsPerDiv : 1.0;
        auto row = [&](float volts) {
            const double div = (volts + state.ch[ch].offset) / vdiv;
            return std::clamp(static_cast<int>(kH / 2.0 - div * kH / 8), 0, kH - 1);
        };
        // One column per screen pixel: the min and max of its samples.
        for (int x = 0; x < kW; ++x) {
            const size_t a = v.size() * static_cast<size_t>(x) / kW;
            const size_t b = std::max(a + 1, v.size() * static_cast<size_t>(x + 1) / kW);
            const auto [lo, hi] = std::minmax_element(v.begin() + static_cast<std::ptrdiff_t>(a),
                                                      v.begin() + static_cast<std::ptrdiff_t>(std::min(b, v.size())));
            for (int y = row(*hi); y <= row(*lo); ++y) img.setPixel(x, y, colours[ch]);
        }
    }
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    img.save(&buffer, "PNG");
    return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

struct DsoSimulator::Shared {
    mutable std::mutex m;
    std::condition_variable logged;  // a command was added to the log
    SimOptions opt;
    std::vector<std::vector<float>> record;
    std::vector<std::string> log;
    std::map<std::string, std::pair<std::string, bool>> overrides;
    int connections = 0;      // accepted since the start
    int openConnections = 0;  // accepted and not yet closed
    int blocksSent = 0;
    int faultAt = 0;  // the block count at which laterFault starts (0 = never)
    SimFault laterFault = SimFault::None;
    uint16_t port = 0;
    // Transfer settings as the host left them.
    bool word = false;
    bool lowFirst = false;
    int64_t points = 0;
    int64_t start = 0;
    std::string source = "CH1";
    bool acquired = false;  // bit 0 of the trigger event register
    uint32_t generation = 0;
    int statusPolls = 0;
    std::function<void(const std::string&)> hook;

    void generate() {
        const SimState s = opt.state;
        uint32_t seed = opt.seed + generation;
        auto fresh = GenerateScenario(s.scenario, ChannelsOf(s.model), std::max(s.recordLength, 0), seed);
        record = std::move(fresh);
    }
};

class DsoSimulator::Worker : public QObject {
public:
    explicit Worker(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}

    bool listen() {
        server_ = new QTcpServer(this);
        trickle_ = new QTimer(this);
        QObject::connect(trickle_, &QTimer::timeout, this, [this] { trickleOut(); });
        endless_ = new QTimer(this);
        endless_->setInterval(kEndlessPeriodMs);
        QObject::connect(endless_, &QTimer::timeout, this, [this] { endlessOut(); });
        QObject::connect(server_, &QTcpServer::newConnection, this, [this] { accept(); });
        uint16_t port;
        SimFault fault;
        {
            std::lock_guard lock(shared_->m);
            port = shared_->opt.port;
            fault = shared_->opt.fault;
        }
        if (!server_->listen(QHostAddress::LocalHost, port)) return false;
        {
            std::lock_guard lock(shared_->m);
            shared_->port = server_->serverPort();
        }
        applyFault(fault);
        return true;
    }

    // Refusing means not listening: the port answers connects with a reset.
    void applyFault(SimFault fault) {
        if (fault == SimFault::Refuse) {
            server_->close();
        } else if (!server_->isListening()) {
            std::lock_guard lock(shared_->m);
            server_->listen(QHostAddress::LocalHost, shared_->port);
        }
    }

    // Power off: nothing more is answered, every connection drops (once the
    // handler in progress has returned), connects are refused.
    void switchOff() {
        {
            std::lock_guard lock(shared_->m);
            shared_->opt.fault = SimFault::Refuse;
        }
        server_->close();
        QTimer::singleShot(0, this, [this] { abortAll(); });
    }

    // Aborting a socket runs its disconnect handler, which erases it from
    // the map: abort from a copy of the keys, never while iterating the map.
    void abortAll() {
        std::vector<QTcpSocket*> sockets;
        sockets.reserve(conns_.size());
        for (const auto& entry : conns_) sockets.push_back(entry.first);
        for (QTcpSocket* s : sockets)
            if (conns_.count(s)) s->abort();
    }

    void shutdown() {
        abortAll();
        conns_.clear();
        if (server_) server_->close();
    }

private:
    struct Conn {
        QByteArray in;
        QByteArray trickle;
        bool endless = false;
    };

    void accept() {
        while (QTcpSocket* s = server_->nextPendingConnection()) {
            s->setSocketOption(QAbstractSocket::LowDelayOption, 1);
            conns_[s] = Conn{};
            {
                std::lock_guard lock(shared_->m);
                ++shared_->connections;
                ++shared_->openConnections;
                shared_->logged.notify_all();
            }
            QObject::connect(s, &QTcpSocket::readyRead, this, [this, s] { readFrom(s); });
            QObject::connect(s, &QTcpSocket::disconnected, this, [this, s] {
                conns_.erase(s);
                s->deleteLater();
                std::lock_guard lock(shared_->m);
                --shared_->openConnections;
                shared_->logged.notify_all();
            });
        }
    }

    void readFrom(QTcpSocket* s) {
        auto it = conns_.find(s);
        if (it == conns_.end()) return;
        it->second.in += s->readAll();
        for (;;) {
            it = conns_.find(s);
            if (it == conns_.end()) return;
            const qsizetype lf = it->second.in.indexOf('\n');
            if (lf < 0) return;
            const std::string line = it->second.in.left(lf).toStdString();
            it->second.in.remove(0, lf + 1);
            handle(s, line);
        }
    }

    void handle(QTcpSocket* s, const std::string& line) {
        std::function<void(const std::string&)> hook;
        {
            std::lock_guard lock(shared_->m);
            hook = shared_->hook;
        }
        if (hook) hook(line);
        std::string overrideReply;
        bool overridden = false;
        bool raw = false;
        {
            std::lock_guard lock(shared_->m);
            shared_->log.push_back(line);
            shared_->logged.notify_all();
            if (Trim(line) == "TESR?") ++shared_->statusPolls;
            auto o = shared_->overrides.find(line);
            if (o == shared_->overrides.end()) o = shared_->overrides.find(std::string(Trim(line)));
            if (o != shared_->overrides.end()) {
                overridden = true;
                overrideReply = o->second.first;
                raw = o->second.second;
            }
        }
        if (overridden) {
            reply(s, QByteArray::fromStdString(raw ? overrideReply : overrideReply + "\n"), raw);
            return;
        }
        std::string_view rest = line;
        while (!rest.empty()) {
            const size_t semi = rest.find(';');
            statement(s, Trim(rest.substr(0, semi)));
            if (semi == std::string_view::npos) break;
            rest.remove_prefix(semi + 1);
        }
    }

    void statement(QTcpSocket* s, std::string_view cmd) {
        if (cmd == "DTWAVE?") return block(s, waveBlock());
        if (cmd == "TSCRN? PNG" || cmd == "TSCRN?") return block(s, screenBlock());
        if (cmd == "WSGL") return arm();
        std::string text;
        bool isQuery = false;
        {
            std::lock_guard lock(shared_->m);
            isQuery = answer(cmd, text);
        }
        if (isQuery) reply(s, QByteArray::fromStdString(text + "\n"), false);
    }

    // Settings are applied; queries fill `out` and return true. Under the lock.
    bool answer(std::string_view cmd, std::string& out) {
        Shared& sh = *shared_;
        SimState& st = sh.opt.state;
        auto arg = [&](std::string_view head) { return std::string(Trim(cmd.substr(head.size()))); };
        if (sh.opt.fault == SimFault::BadSetup && badSetupReply(cmd, out)) return true;
        if (cmd == "*IDN?") return out = "MERVASTO SIMULATOR," + st.model + ",0001,1.00", true;
        if (cmd == "DTINF?") return out = SimDtinf(st), true;
        if (cmd == "TDIV?") return out = SciText(st.timePerDiv), true;
        if (cmd == "TRDL?") return out = SciText(st.triggerDelay), true;
        if (cmd == "ACQ?") return out = st.acqMode, true;
        if (cmd == "TSRC?") return out = st.triggerSource, true;
        if (cmd == "TLVL?") return out = SciText(st.triggerLevel), true;
        if (cmd == "TRMD?") return out = st.triggerMode, true;
        if (cmd == "HCUR?") return out = SciText(st.cursor1) + "," + SciText(st.cursor2), true;
        if (cmd == "CURM?") return out = st.cursorMode, true;
        if (cmd == "TESR?") {
            out = sh.acquired ? "1" : "0";
            sh.acquired = false;
            return true;
        }
        if (StartsWith(cmd, "TDIV ")) return st.timePerDiv = Val(arg("TDIV ")), false;
        if (StartsWith(cmd, "TRDL ")) return st.triggerDelay = Val(arg("TRDL ")), false;
        if (StartsWith(cmd, "ACQ ")) return st.acqMode = arg("ACQ "), false;
        if (StartsWith(cmd, "CURM ")) return st.cursorMode = arg("CURM "), false;
        if (StartsWith(cmd, "HCUR ")) {
            const std::string a = arg("HCUR ");
            const size_t comma = a.find(',');
            st.cursor1 = Val(a.substr(0, comma));
            st.cursor2 = comma == std::string::npos ? 0.0 : Val(a.substr(comma + 1));
            return false;
        }
        if (StartsWith(cmd, "DTFORM ")) return sh.word = arg("DTFORM ") == "WORD", false;
        if (StartsWith(cmd, "DTBORD ")) return sh.lowFirst = arg("DTBORD ") == "L/H", false;
        if (StartsWith(cmd, "DTPOINTS ")) return sh.points = static_cast<int64_t>(Val(arg("DTPOINTS "))), false;
        if (StartsWith(cmd, "DTSTART ")) return sh.start = static_cast<int64_t>(Val(arg("DTSTART "))), false;
        if (StartsWith(cmd, "WAVESRC ")) return sh.source = arg("WAVESRC "), false;
        if (cmd.size() >= 3 && cmd[0] == 'C' && cmd[1] >= '1' && cmd[1] <= '4' && cmd[2] == ':') {
            SimChannel& c = st.ch[static_cast<size_t>(cmd[1] - '1')];
            const std::string_view what = cmd.substr(3);
            if (what == "VDIV?") return out = SciText(c.voltsPerDiv), true;
            if (what == "OFST?") return out = SciText(c.offset), true;
            if (what == "TRA?") return out = c.trace, true;
            if (what == "CPL?") return out = c.coupling, true;
            if (what == "BWL?") return out = c.bandwidth, true;
            if (what == "INV?") return out = c.inverted, true;
            if (StartsWith(what, "VDIV ")) return c.voltsPerDiv = Val(what.substr(5)), false;
            if (StartsWith(what, "OFST ")) return c.offset = Val(what.substr(5)), false;
            if (StartsWith(what, "INV ")) return c.inverted = std::string(Trim(what.substr(4))), false;
            if (StartsWith(what, "TRA ")) return c.trace = std::string(Trim(what.substr(4))), false;
        }
        // "*ESE 255", "STOP;ROLL OFF;DISP OFF", "DISP ON", "GTL" and anything
        // unknown change nothing the host can see. An unknown query still
        // gets a line so that the host does not hang on it.
        if (!cmd.empty() && cmd.back() == '?') return out.clear(), true;
        return false;
    }

    // The one malformed setup reply of the BadSetup fault, when cmd asks for it.
    bool badSetupReply(std::string_view cmd, std::string& out) const {
        const std::string& field = shared_->opt.badSetupField;
        if (field == "DTINF" && cmd == "DTINF?") {
            out = "Model Name = " + shared_->opt.state.model + ",Data Info = 1,Record Time = 2026/01/01 00:00:00";
            return true;
        }
        const bool channelQuery = cmd.size() > 3 && cmd[0] == 'C' && cmd[2] == ':';
        if ((field == "TDIV" && cmd == "TDIV?") || (channelQuery && field == "VDIV" && cmd.substr(3) == "VDIV?") ||
            (channelQuery && field == "OFST" && cmd.substr(3) == "OFST?")) {
            out = "ERR?";
            return true;
        }
        return false;
    }

    void arm() {
        int delay;
        {
            std::lock_guard lock(shared_->m);
            shared_->acquired = false;
            delay = shared_->opt.acqDelayMs;
        }
        QTimer::singleShot(std::max(delay, 0), this, [this] {
            std::lock_guard lock(shared_->m);
            ++shared_->generation;
            shared_->generate();
            shared_->acquired = true;
        });
    }

    QByteArray waveBlock() {
        std::lock_guard lock(shared_->m);
        const Shared& sh = *shared_;
        const auto& rec = sh.record;
        const int64_t len = sh.opt.state.recordLength;
        const int64_t start = std::clamp<int64_t>(sh.start, 0, len);
        const int64_t n = std::clamp<int64_t>(sh.points, 0, len - start);
        const bool math = sh.source == "MATH";
        size_t ch = 0;
        if (!math && sh.source.size() == 3 && sh.source[2] >= '1' && sh.source[2] <= '4')
            ch = static_cast<size_t>(sh.source[2] - '1');
        const SimChannel& scale = sh.opt.state.ch[math ? 0 : ch];
        const bool present = math ? rec.size() >= 2 : ch < rec.size();
        const int width = sh.word ? 2 : 1;
        QByteArray payload(static_cast<qsizetype>(n * width), '\0');
        if (present) {
            auto* out = reinterpret_cast<uint8_t*>(payload.data());
            for (int64_t k = 0; k < n; ++k) {
                const size_t i = static_cast<size_t>(start + k);
                const float v = math ? rec[0][i] - rec[1][i] : rec[ch][i];
                const int32_t c = SimCounts(v, scale.voltsPerDiv, scale.offset, sh.word);
                if (sh.word) {
                    const auto u = static_cast<uint16_t>(static_cast<int16_t>(c));
                    out[2 * k + (sh.lowFirst ? 1 : 0)] = static_cast<uint8_t>(u >> 8);
                    out[2 * k + (sh.lowFirst ? 0 : 1)] = static_cast<uint8_t>(u & 0xFF);
                } else {
                    out[k] = static_cast<uint8_t>(static_cast<int8_t>(c));
                }
            }
        }
        return payload;
    }

    QByteArray screenBlock() {
        std::vector<uint8_t> png;
        int bytes;
        {
            std::lock_guard lock(shared_->m);
            bytes = shared_->opt.screenBytes;
            if (bytes > 0) {
                // A tiny picture, padded after its end chunk to the size asked for.
                std::vector<std::vector<float>> none;
                SimState st = shared_->opt.state;
                png = SimScreenPng(none, st);
            } else {
                png = SimScreenPng(shared_->record, shared_->opt.state);
            }
        }
        QByteArray out(reinterpret_cast<const char*>(png.data()), static_cast<qsizetype>(png.size()));
        if (bytes > 0) out.resize(bytes, '\0');
        return out;
    }

    void block(QTcpSocket* s, const QByteArray& payload) {
        SimFault fault;
        {
            std::lock_guard lock(shared_->m);
            if (shared_->faultAt > 0 && shared_->blocksSent >= shared_->faultAt) {
                shared_->opt.fault = shared_->laterFault;
                shared_->faultAt = 0;
            }
            fault = shared_->opt.fault;
            ++shared_->blocksSent;
        }
        if (fault == SimFault::Refuse) return switchOff();
        char header[16];
        std::snprintf(header, sizeof header, "#8%08lld", static_cast<long long>(payload.size()));
        switch (fault) {
        case SimFault::BadHeader: std::snprintf(header, sizeof header, "#8 12X4567"); break;
        case SimFault::HugeBlock: reply(s, QByteArray("#899999999") + payload.left(16), true); return;
        case SimFault::Garbage: reply(s, QByteArray(kGarbage) + "\n", true); return;
        case SimFault::CloseMidBlock:
            s->write(QByteArray(header) + payload.left(payload.size() / 2));
            s->disconnectFromHost();
            return;
        case SimFault::ShortBlock: {
            const QByteArray half = payload.left(payload.size() / 2);
            std::snprintf(header, sizeof header, "#8%08lld", static_cast<long long>(half.size()));
            reply(s, QByteArray(header) + half + "\n", true);
            return;
        }
        case SimFault::LongBlock: reply(s, QByteArray(header) + payload + QByteArray(16, '\x55') + "\n", true); return;
        case SimFault::NoTerminator: reply(s, QByteArray(header) + payload, true); return;
        default: break;
        }
        reply(s, QByteArray(header) + payload + "\n", true);
    }

    void reply(QTcpSocket* s, const QByteArray& bytes, bool isBlock) {
        SimFault fault;
        int late;
        {
            std::lock_guard lock(shared_->m);
            fault = shared_->opt.fault;
            late = shared_->opt.lateMs;
        }
        switch (fault) {
        case SimFault::Silent:
        case SimFault::Refuse:  // switched off
            return;
        case SimFault::Garbage:
            if (!isBlock) return (void)s->write(QByteArray(kGarbage) + "\n");
            break;
        case SimFault::EndlessReply:
            if (isBlock) break;
            conns_[s].endless = true;
            if (!endless_->isActive()) endless_->start();
            return;
        case SimFault::Late: {
            QPointer<QTcpSocket> p(s);
            QTimer::singleShot(late, this, [p, bytes] {
                if (p) p->write(bytes);
            });
            return;
        }
        case SimFault::OneByte:
            conns_[s].trickle += bytes;
            if (!trickle_->isActive()) {
                std::lock_guard lock(shared_->m);
                trickle_->setInterval(std::max(shared_->opt.tricklePeriodMs, 0));
                trickle_->start();
            }
            return;
        default: break;
        }
        s->write(bytes);
    }

    void endlessOut() {
        bool on;
        {
            std::lock_guard lock(shared_->m);
            on = shared_->opt.fault == SimFault::EndlessReply;
        }
        bool any = false;
        for (auto& [s, c] : conns_) {
            if (!c.endless) continue;
            c.endless = on;
            // Only as fast as the host takes it: the bytes are what counts, not the memory here.
            if (on && s->bytesToWrite() < 4 * kEndlessChunk) s->write(QByteArray(kEndlessChunk, 'x'));
            any = any || c.endless;
        }
        if (!any) endless_->stop();
    }

    void trickleOut() {
        bool more = false;
        for (auto& [s, c] : conns_) {
            if (c.trickle.isEmpty()) continue;
            s->write(c.trickle.left(1));
            s->flush();
            c.trickle.remove(0, 1);
            more = more || !c.trickle.isEmpty();
        }
        if (!more) trickle_->stop();
    }

    std::shared_ptr<Shared> shared_;
    QTcpServer* server_ = nullptr;
    QTimer* trickle_ = nullptr;
    QTimer* endless_ = nullptr;
    std::map<QTcpSocket*, Conn> conns_;
};

DsoSimulator::DsoSimulator(SimOptions options) : shared_(std::make_shared<Shared>()) {
    shared_->opt = std::move(options);
    if (shared_->opt.faultAfterBlocks > 0) {
        shared_->faultAt = shared_->opt.faultAfterBlocks;
        shared_->laterFault = shared_->opt.fault;
        shared_->opt.fault = SimFault::None;
    }
    shared_->generate();
}

DsoSimulator::~DsoSimulator() { stop(); }

bool DsoSimulator::start() {
    if (thread_) return true;
    thread_ = std::make_unique<QThread>();
    worker_ = new Worker(shared_);
    worker_->moveToThread(thread_.get());
    thread_->start();
    bool ok = false;
    Worker* w = worker_;
    QMetaObject::invokeMethod(
        w, [w, &ok] { ok = w->listen(); }, Qt::BlockingQueuedConnection);
    if (!ok) stop();
    return ok;
}

void DsoSimulator::stop() {
    if (!thread_) return;
    Worker* w = worker_;
    QMetaObject::invokeMethod(
        w,
        [w] {
            w->shutdown();
            delete w;
        },
        Qt::BlockingQueuedConnection);
    worker_ = nullptr;
    thread_->quit();
    thread_->wait();
    thread_.reset();
}

uint16_t DsoSimulator::port() const {
    std::lock_guard lock(shared_->m);
    return shared_->port;
}

std::string DsoSimulator::address() const { return "127.0.0.1:" + std::to_string(port()); }

std::vector<std::string> DsoSimulator::commandLog() const {
    std::lock_guard lock(shared_->m);
    return shared_->log;
}

bool DsoSimulator::waitForLastCommand(const std::string& command, int timeoutMs) const {
    return waitUntil([&](const std::vector<std::string>& log, int) { return !log.empty() && log.back() == command; },
                     timeoutMs);
}

bool DsoSimulator::waitUntil(const std::function<bool(const std::vector<std::string>& log, int open)>& done,
                             int timeoutMs) const {
    std::unique_lock lock(shared_->m);
    return shared_->logged.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                    [&] { return done(shared_->log, shared_->openConnections); });
}

void DsoSimulator::clearLog() {
    std::lock_guard lock(shared_->m);
    shared_->log.clear();
}

int DsoSimulator::connectionCount() const {
    std::lock_guard lock(shared_->m);
    return shared_->connections;
}

SimState DsoSimulator::state() const {
    std::lock_guard lock(shared_->m);
    return shared_->opt.state;
}

void DsoSimulator::setState(const SimState& state) {
    std::lock_guard lock(shared_->m);
    const SimState old = shared_->opt.state;
    shared_->opt.state = state;
    if (old.scenario != state.scenario || old.recordLength != state.recordLength ||
        ChannelsOf(old.model) != ChannelsOf(state.model))
        shared_->generate();
}

void DsoSimulator::setFault(SimFault fault) {
    {
        std::lock_guard lock(shared_->m);
        shared_->opt.fault = fault;
        shared_->faultAt = 0;  // a fault still waiting for its block is dropped
    }
    if (worker_) {
        Worker* w = worker_;
        // From a command hook the call is already in the simulator's thread.
        if (QThread::currentThread() == thread_.get())
            w->applyFault(fault);
        else
            QMetaObject::invokeMethod(
                w, [w, fault] { w->applyFault(fault); }, Qt::BlockingQueuedConnection);
    }
}

void DsoSimulator::setFaultAfter(SimFault fault, int blocks) {
    if (blocks <= 0) return setFault(fault);
    std::lock_guard lock(shared_->m);
    shared_->faultAt = shared_->blocksSent + blocks;
    shared_->laterFault = fault;
}

void DsoSimulator::switchOff() {
    if (!worker_) return setFault(SimFault::Refuse);
    Worker* w = worker_;
    QMetaObject::invokeMethod(
        w, [w] { w->switchOff(); }, Qt::BlockingQueuedConnection);
}

int DsoSimulator::blocksSent() const {
    std::lock_guard lock(shared_->m);
    return shared_->blocksSent;
}

SimFault DsoSimulator::fault() const {
    std::lock_guard lock(shared_->m);
    return shared_->opt.fault;
}

void DsoSimulator::setAcqDelayMs(int ms) {
    std::lock_guard lock(shared_->m);
    shared_->opt.acqDelayMs = ms;
}

void DsoSimulator::setLateMs(int ms) {
    std::lock_guard lock(shared_->m);
    shared_->opt.lateMs = ms;
}

void DsoSimulator::setScreenBytes(int bytes) {
    std::lock_guard lock(shared_->m);
    shared_->opt.screenBytes = bytes;
}

void DsoSimulator::setTricklePeriodMs(int ms) {
    std::lock_guard lock(shared_->m);
    shared_->opt.tricklePeriodMs = ms;
}

void DsoSimulator::setBadSetupField(const std::string& field) {
    std::lock_guard lock(shared_->m);
    shared_->opt.badSetupField = field;
}

int DsoSimulator::statusPolls() const {
    std::lock_guard lock(shared_->m);
    return shared_->statusPolls;
}

void DsoSimulator::setCommandHook(std::function<void(const std::string&)> hook) {
    std::lock_guard lock(shared_->m);
    shared_->hook = std::move(hook);
}

void DsoSimulator::setReplyOverride(const std::string& query, const std::string& reply, bool raw) {
    std::lock_guard lock(shared_->m);
    shared_->overrides[query] = {reply, raw};
}

void DsoSimulator::clearReplyOverrides() {
    std::lock_guard lock(shared_->m);
    shared_->overrides.clear();
}

void DsoSimulator::regenerate() {
    std::lock_guard lock(shared_->m);
    ++shared_->generation;
    shared_->generate();
}

std::vector<std::vector<float>> DsoSimulator::record() const {
    std::lock_guard lock(shared_->m);
    return shared_->record;
}

}  // namespace mervasto
