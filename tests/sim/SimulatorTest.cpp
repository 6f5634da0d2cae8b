#include <gtest/gtest.h>

#include <QBuffer>
#include <QCoreApplication>
#include <QImage>
#include <QTcpSocket>
#include <QThread>

#include <cmath>
#include <stdexcept>

#include "common/TextUtil.h"
#include "sim/DsoSimulator.h"
#include "sim/Scenario.h"

namespace mervasto {
namespace {

QCoreApplication& App() {
    static int argc = 1;
    static char name[] = "test_sim";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

// Rising edges through the middle of 0..high, with a little hysteresis.
int Rises(const std::vector<float>& v, float high) {
    int n = 0;
    bool up = v.empty() ? false : v[0] > high / 2;
    for (float x : v) {
        if (!up && x > high * 0.6f) {
            up = true;
            ++n;
        } else if (up && x < high * 0.4f) {
            up = false;
        }
    }
    return n;
}

double HighFraction(const std::vector<float>& v, float high, size_t from = 0, size_t to = SIZE_MAX) {
    to = std::min(to, v.size());
    size_t n = 0;
    for (size_t i = from; i < to; ++i) n += v[i] > high / 2;
    return static_cast<double>(n) / static_cast<double>(to - from);
}

TEST(ScenarioTest, EveryScenarioHasTheShapeAsked) {
    for (const auto& name : ScenarioNames())
        for (int channels : {2, 4})
            for (int32_t length : {500, 20000}) {
                SCOPED_TRACE(name + " " + std::to_string(channels) + " " + std::to_string(length));
                const auto w = GenerateScenario(name, channels, length, 7);
                ASSERT_EQ(w.size(), static_cast<size_t>(channels));
                for (const auto& ch : w) {
                    ASSERT_EQ(ch.size(), static_cast<size_t>(length));
                    for (float x : ch) ASSERT_TRUE(std::isfinite(x) && x > -0.5f && x < 5.5f);
                }
                EXPECT_EQ(GenerateScenario(name, channels, length, 7), w);
                if (name != "flat") {
                    EXPECT_NE(GenerateScenario(name, channels, length, 8), w);
                }
            }
    EXPECT_THROW(GenerateScenario("sine", 4, 500), std::invalid_argument);
}

TEST(ScenarioTest, PulsesDifferPerChannel) {
    const auto w = GenerateScenario("pulses", 4, 100000);
    const std::array<int, 4> cycles = {25, 40, 16, 10};
    const std::array<double, 4> duty = {0.5, 0.3, 0.2, 0.7};
    const std::array<float, 4> high = {3.3f, 5.0f, 2.5f, 5.0f};
    for (size_t ch = 0; ch < 4; ++ch) {
        SCOPED_TRACE(ch + 1);
        EXPECT_NEAR(Rises(w[ch], high[ch]), cycles[ch], 1);
        EXPECT_NEAR(HighFraction(w[ch], high[ch]), duty[ch], 0.05);
    }
}

TEST(ScenarioTest, DutySweepEncoderGateFlat) {
    const int32_t n = 100000;
    const auto sweep = GenerateScenario("duty-sweep", 2, n);
    EXPECT_LT(HighFraction(sweep[0], 3.3f, 0, n / 10), 0.25);
    EXPECT_GT(HighFraction(sweep[0], 3.3f, n - n / 10), 0.75);

    const auto enc = GenerateScenario("encoder", 4, n);
    EXPECT_NEAR(Rises(enc[0], 5), 50, 1);
    EXPECT_NEAR(Rises(enc[1], 5), 50, 1);
    size_t both = 0, index = 0, indexInBoth = 0;
    for (int32_t i = 0; i < n; ++i) {
        const bool a = enc[0][i] > 2.5f, b = enc[1][i] > 2.5f, z = enc[2][i] > 2.5f;
        both += a && b;
        index += z;
        indexInBoth += z && a && b;
    }
    EXPECT_NEAR(static_cast<double>(both) / n, 0.25, 0.03);  // B a quarter period behind A
    EXPECT_GE(Rises(enc[2], 5), 3);
    EXPECT_GT(static_cast<double>(indexInBoth) / static_cast<double>(index), 0.9);

    const auto gate = GenerateScenario("gate", 4, n);
    EXPECT_LT(gate[3][n / 4 - 1], 0.5f);
    EXPECT_GT(gate[3][n / 4], 4.5f);
    EXPECT_GT(gate[3][3 * n / 4 - 1], 4.5f);
    EXPECT_LT(gate[3][3 * n / 4], 0.5f);
    EXPECT_NEAR(Rises(gate[0], 3.3f), 25, 1);

    const auto flat = GenerateScenario("flat", 4, n);
    for (float x : flat[0]) ASSERT_EQ(x, 1.0f);
    EXPECT_NEAR(Rises(flat[1], 5), 40, 1);
}

TEST(SimEncodingTest, CountsAreRoundedAndClamped) {
    struct Case {
        float v;
        double vdiv, offset;
        bool word;
        int32_t counts;
    };
    const std::vector<Case> cases = {
        {1.0f, 1.0, 0.0, false, 32},     {1.0f, 1.0, 0.0, true, 8192},  {-1.0f, 0.5, 0.0, false, -64},
        {1.0f, 1.0, 0.5, false, 48},     {10.0f, 1.0, 0.0, false, 127}, {-10.0f, 1.0, 0.0, false, -128},
        {10.0f, 1.0, 0.0, true, 32767},  {-10.0f, 1.0, 0.0, true, -32768},
        {0.015625f, 1.0, 0.0, false, 0}, // half a count rounds to even
    };
    for (const auto& c : cases) EXPECT_EQ(SimCounts(c.v, c.vdiv, c.offset, c.word), c.counts) << c.v;
}

TEST(SimEncodingTest, DtinfCarriesTheFieldsTheHostReads) {
    SimState s;
    for (const auto& [model, field, other] : std::vector<std::tuple<std::string, size_t, size_t>>{
             {"DS-5354", 23, 15}, {"DS-5352", 15, 23}}) {
        s.model = model;
        s.recordLength = 123450;
        const auto f = SplitFields(SimDtinf(s));
        ASSERT_EQ(f.size(), 25u);
        EXPECT_EQ(std::string(RightText(f[0], 7)), model);
        EXPECT_EQ(std::string(RightText(f[1], 1)), "1");
        const std::string when(RightText(f[2], 19));  // "yyyy/MM/dd hh:mm:ss"
        EXPECT_EQ(when.substr(4, 1) + when.substr(7, 1) + when.substr(10, 1) + when.substr(13, 1), "// :");
        EXPECT_EQ(std::string(MidText(f[field], 17)), "123450");
        EXPECT_EQ(std::string(MidText(f[other], 17)), "1");
    }
}

TEST(SimEncodingTest, ScreenIsARealPngThatFits) {
    App();
    SimState s;
    const auto png = SimScreenPng(GenerateScenario("pulses", 4, 200000), s);
    EXPECT_LT(png.size(), 32767u);
    QImage img;
    ASSERT_TRUE(img.loadFromData(png.data(), static_cast<int>(png.size()), "PNG"));
    EXPECT_EQ(img.width(), 320);
    EXPECT_EQ(img.height(), 240);
}

// The wire, spoken directly.
class WireTest : public ::testing::Test {
protected:
    void SetUp() override {
        App();
        SimOptions o;
        o.state.recordLength = 1000;
        o.acqDelayMs = 10;
        sim = std::make_unique<DsoSimulator>(o);
        ASSERT_TRUE(sim->start());
        sock.connectToHost("127.0.0.1", sim->port());
        ASSERT_TRUE(sock.waitForConnected(2000));
    }
    void send(const std::string& line) {
        sock.write((line + "\n").c_str());
        sock.waitForBytesWritten(1000);
    }
    std::string query(const std::string& line) {
        send(line);
        while (!sock.canReadLine())
            if (!sock.waitForReadyRead(2000)) return "<none>";
        std::string r = sock.readLine().toStdString();
        return r.substr(0, r.size() - 1);
    }
    QByteArray block(const std::string& line) {
        send(line);
        QByteArray got;
        while (got.size() < 10 || got.size() < 11 + got.mid(2, 8).toInt()) {
            if (!sock.waitForReadyRead(2000)) break;
            got += sock.readAll();
        }
        return got;
    }
    std::unique_ptr<DsoSimulator> sim;
    QTcpSocket sock;
};

TEST_F(WireTest, AnswersAndLogsExactly) {
    EXPECT_EQ(query("*IDN?"), "MERVASTO SIMULATOR,DS-5354,0001,1.00");
    EXPECT_EQ(query("C2:OFST? "), "0.0000E+00");
    send("TDIV 2e-3");
    EXPECT_EQ(std::stod(query("TDIV?")), 2e-3);
    send("STOP;ROLL OFF;DISP OFF");
    EXPECT_EQ(query("NOSUCH?"), "");
    EXPECT_EQ(sim->commandLog(),
              (std::vector<std::string>{"*IDN?", "C2:OFST? ", "TDIV 2e-3", "TDIV?", "STOP;ROLL OFF;DISP OFF", "NOSUCH?"}));
}

TEST_F(WireTest, AcquisitionSetsAndReadingClearsBitZero) {
    EXPECT_EQ(query("TESR?"), "0");
    const auto before = sim->record();
    send("WSGL");
    QThread::msleep(100);
    EXPECT_EQ(query("TESR?"), "1");
    EXPECT_EQ(query("TESR?"), "0");
    EXPECT_NE(sim->record(), before);  // a fresh record
}

TEST_F(WireTest, WaveBlocksHonourFormatRangeAndOrder) {
    const auto rec = sim->record();
    send("DTFORM BYTE");
    send("DTPOINTS 100");
    send("DTSTART 900");
    send("WAVESRC CH3");
    QByteArray b = block("DTWAVE?");
    ASSERT_EQ(b.left(10), "#800000100");
    ASSERT_EQ(b.size(), 111);
    EXPECT_EQ(b[110], '\n');
    EXPECT_EQ(static_cast<int8_t>(b[10 + 5]), SimCounts(rec[2][905], 1.0, 0.0, false));

    send("DTFORM WORD");
    send("DTBORD L/H");
    send("DTSTART 950");  // only 50 samples are left
    b = block("DTWAVE?");
    ASSERT_EQ(b.left(10), "#800000100");
    const int32_t c = SimCounts(rec[2][951], 1.0, 0.0, true);
    EXPECT_EQ(static_cast<uint8_t>(b[10 + 2]), static_cast<uint8_t>(c & 0xFF));
    EXPECT_EQ(static_cast<int8_t>(b[10 + 3]), static_cast<int8_t>(c >> 8));
}

TEST_F(WireTest, FaultsShowOnTheWire) {
    sim->setFault(SimFault::BadHeader);
    EXPECT_EQ(block("DTWAVE?").left(10), "#8 12X4567");
    sim->setFault(SimFault::HugeBlock);
    send("DTWAVE?");
    ASSERT_TRUE(sock.waitForReadyRead(2000));
    EXPECT_EQ(sock.readAll().left(10), "#899999999");
    sim->setFault(SimFault::Garbage);
    EXPECT_NE(query("*IDN?"), "MERVASTO SIMULATOR,DS-5354,0001,1.00");
    sim->setFault(SimFault::None);
    EXPECT_EQ(query("TRMD?"), "SINGLE");
    sim->setFault(SimFault::Refuse);
    QTcpSocket other;
    other.connectToHost("127.0.0.1", sim->port());
    EXPECT_FALSE(other.waitForConnected(1000));
    sim->setFault(SimFault::None);
    other.connectToHost("127.0.0.1", sim->port());
    EXPECT_TRUE(other.waitForConnected(1000));
}

TEST(SimFaultTest, NamesRoundTrip) {
    for (const auto& name : SimFaultNames()) {
        SimFault f;
        ASSERT_TRUE(SimFaultFromName(name, f));
        EXPECT_EQ(SimFaultName(f), name);
    }
    SimFault f;
    EXPECT_FALSE(SimFaultFromName("flaky", f));
}

}  // namespace
}  // namespace mervasto
