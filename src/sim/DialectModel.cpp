#include "sim/DialectModel.h"

#include <QBuffer>
#include <QImage>

#include <algorithm>
#include <cctype>
#include <utility>

#include "common/Channels.h"
#include "sim/Scenario.h"

namespace mervasto {

std::string_view TrimCommand(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\r')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

std::string UpperCase(std::string_view s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

std::vector<uint8_t> SimScreenPng(const SimRecord& record, const SimState& state) {
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

SimRecord GenerateSimRecord(const SimRecordOrder& order) {
    return GenerateScenario(order.scenario, order.channels, std::max(order.length, 0), order.seed);
}

DialectModel::DialectModel(SimOptions options) : opt_(std::move(options)) {
    if (opt_.faultAfterBlocks > 0) {
        faultAt_ = opt_.faultAfterBlocks;
        laterFault_ = opt_.fault;
        opt_.fault = SimFault::None;
    }
}

void DialectModel::generateFirstRecord() {
    record_ = std::make_shared<const SimRecord>(GenerateSimRecord(recordOrder()));
}

void DialectModel::setFault(SimFault fault) {
    opt_.fault = fault;
    faultAt_ = 0;
}

void DialectModel::setFaultAfter(SimFault fault, int blocks) {
    if (blocks <= 0) return setFault(fault);
    faultAt_ = blocksSent_ + blocks;
    laterFault_ = fault;
}

bool DialectModel::setState(const SimState& state) {
    const SimState old = std::exchange(opt_.state, state);
    return old.scenario != state.scenario || old.recordLength != state.recordLength ||
           channelsOf(old.model) != channelsOf(state.model);
}

SimRecordOrder DialectModel::recordOrder() const {
    return {opt_.state.scenario, channels(), opt_.state.recordLength, opt_.seed + generation_};
}

SimRecordOrder DialectModel::nextRecordOrder() {
    ++generation_;
    return recordOrder();
}

void DialectModel::setRecord(std::shared_ptr<const SimRecord> record) { record_ = std::move(record); }

void DialectModel::acquisitionDone(std::shared_ptr<const SimRecord> record) { record_ = std::move(record); }

void DialectModel::setReplyOverride(const std::string& query, const std::string& reply, bool raw) {
    overrides_[query] = {reply, raw};
}

bool DialectModel::overridden(std::string_view line, std::vector<SimReply>& out) const {
    auto o = overrides_.find(std::string(line));
    if (o == overrides_.end()) o = overrides_.find(std::string(TrimCommand(line)));
    if (o == overrides_.end()) return false;
    const auto& [reply, raw] = o->second;
    out.push_back(Deliver(opt_.fault, {SimReply::How::Now, raw ? reply : reply + "\n"}, raw));
    return true;
}

void DialectModel::text(const std::string& reply, std::vector<SimReply>& out) const {
    out.push_back(Deliver(opt_.fault, {SimReply::How::Now, reply + "\n"}, false));
}

void DialectModel::screenBlock(int lengthDigits, std::vector<SimReply>& out) {
    const bool sized = opt_.screenBytes > 0;
    const std::vector<uint8_t> png = SimScreenPng(sized ? SimRecord{} : *record_, opt_.state);
    std::string bytes(png.begin(), png.end());
    if (sized) bytes.resize(static_cast<size_t>(opt_.screenBytes), '\0');
    block(bytes, lengthDigits, out);
}

void DialectModel::block(const std::string& payload, int lengthDigits, std::vector<SimReply>& out,
                         const std::string& before, const std::string& after) {
    if (faultAt_ > 0 && blocksSent_ >= faultAt_) {
        opt_.fault = laterFault_;
        faultAt_ = 0;
    }
    ++blocksSent_;
    SimReply shaped = ShapeBlock(opt_.fault, payload, lengthDigits);
    if (shaped.how == SimReply::How::Now && !shaped.bytes.empty() && shaped.bytes.front() == '#')
        shaped.bytes = before + shaped.bytes + (opt_.fault == SimFault::NoTerminator ? "" : after);
    if (shaped.how == SimReply::How::SwitchOff) opt_.fault = SimFault::Refuse;
    out.push_back(Deliver(opt_.fault, std::move(shaped), true));
}

}  // namespace mervasto
