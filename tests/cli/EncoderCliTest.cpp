#include "cli/Cli.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

#include "CliRun.h"

#include <filesystem>
#include <sstream>

using namespace mervasto;

// The application object comes from the other test file of this program.
namespace {

// The encoder block in each output form, only when the encoder is on.
class EncoderCli : public test::CliRun {
protected:
    EncoderCli() : CliRun("mervasto-cli-enc-") {}
};

TEST_F(EncoderCli, EachFormGainsAnEncoderBlock) {
    const std::string pulses = example("pulses");
    const auto encoderFile = dir_ / "data" / "OutputData" / "EncoderData.csv";

    ASSERT_EQ(run({"analyze", "--format", "json", "--no-save", pulses}), 0) << err.str();
    EXPECT_EQ(out.str().find("\"encoder\""), std::string::npos);

    struct Case {
        const char* format;
        std::vector<const char*> keys;
    };
    const Case cases[] = {
        {"json",
         {"\"encoder\": {", "\"analysed\": true", "\"position\": ", "\"reversals\": ", "\"droppedBounces\": ",
          "\"illegal\": 0", "\"phase\": {", "\"phasePlus\": {", "\"phaseMinus\": {", "\"stateWidth\": {",
          "\"dutyA\": {", "\"zWidth\": {", "\"direction\": {", "\"sigma\": "}},
        {"csv", {",encoder,phase,true,", ",encoder,position,true,", ",encoder,droppedBounces,true,"}},
        {"table", {"Encoder\n", "Phase+(deg)", "Phase-(deg)", "Dropped Bounces", "Index Count", "Illegal"}},
    };
    for (const auto& c : cases) {
        ASSERT_EQ(run({"analyze", "--format", c.format, "--no-save", "--set", "Encoder=1", "--set",
                       "MinStateWidth=1e-6", pulses}),
                  0)
            << err.str();
        for (const char* key : c.keys) EXPECT_NE(out.str().find(key), std::string::npos) << c.format << " " << key;
    }
    EXPECT_FALSE(std::filesystem::exists(encoderFile));  // --no-save writes neither file

    ASSERT_EQ(run({"analyze", "--format", "csv", "--set", "Encoder=1", "--set", "EncoderB=1", pulses}), 0);
    EXPECT_NE(out.str().find(",encoder,phase,false,0,0,0,0,0,,A, B and Z must be different channels"),
              std::string::npos)
        << out.str();
    EXPECT_TRUE(std::filesystem::exists(encoderFile));
}

}  // namespace
