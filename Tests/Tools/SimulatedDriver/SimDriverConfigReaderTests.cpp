// The configuration reader: what a full file gives, the defaults that make a driver legacy
// or packet by its version, and one clear line for each kind of mistake.
#include "Tools/SimulatedDriver/SimDriverConfigReader.h"

#include "Common/ECommand.h"
#include "Common/Settings/CSettingsMap.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace
{
SSimDriverConfig Read(const std::string& text)
{
    SSimDriverConfig config;
    std::string error;
    EXPECT_TRUE(ReadSimDriverConfigText(text, config, error)) << error;
    return config;
}

std::string Refusal(const std::string& text)
{
    SSimDriverConfig config;
    std::string error;
    EXPECT_FALSE(ReadSimDriverConfigText(text, config, error)) << text;
    EXPECT_EQ(error.find('\n'), std::string::npos) << "one line: " << error;
    return error;
}

const std::string kKelto = R"("PortName": "com.kelto.KeltoTabletDriverMessageServer")";
const std::string kPen = R"("PortName": "com.kelto.PenTabletDriverMessageServer")";
} // namespace

TEST(SimDriverConfigReader, ReadsEveryKey)
{
    SSimDriverConfig config = Read(R"({
        "Name": "K", )" + kKelto + R"(, "Version": "6.3.0",
        "PacketMessaging": false, "ByteOrder": "other", "EndiannessReply": 7,
        "Tablets": [ {"SystemID": 5, "Model": "M", "TouchCapabilities": {"Fingers": 10}},
                     {} ],
        "LastTabletUsed": 1, "LastTabletUsedTimestamp": 4294967295,
        "CountByIndex": 3, "CountByID": 4, "CreateStatus": 1542, "IndexStatus": 513,
        "AppleEvents": {"Reply": false, "ErrorNumber": -1708},
        "Faults": [ {"Request": "tablet-block", "Command": "Set", "Action": "slow",
                     "Milliseconds": 250, "Skip": 1, "Times": 2},
                    {"Request": "any", "Action": "exit", "ExitCode": 9} ]
    })");
    EXPECT_EQ(config.name, "K");
    EXPECT_EQ(config.portName, "com.kelto.KeltoTabletDriverMessageServer");
    EXPECT_EQ(config.version, FileVersion(6, 3, 0, FileVersion::EFinalVersion, 0));
    EXPECT_FALSE(config.packetMessaging);
    EXPECT_TRUE(config.otherByteOrder);
    EXPECT_EQ(config.endiannessCode, 7);
    ASSERT_EQ(config.tablets.size(), 2u);
    EXPECT_EQ(config.tablets[0].systemID, 5);
    EXPECT_EQ(config.tablets[0].model, "M");
    ASSERT_TRUE(config.tablets[0].touchCapabilities);
    EXPECT_EQ(config.tablets[0].touchCapabilities->IntegerForKeyWithDefault("Fingers", 0), 10);
    // A tablet without "SystemID" starts with its local index.
    EXPECT_EQ(config.tablets[1].systemID, 1);
    EXPECT_FALSE(config.tablets[1].touchCapabilities);
    EXPECT_EQ(config.lastTabletUsed, 1);
    EXPECT_EQ(config.lastTabletUsedTimestamp, 0xFFFFFFFFu);
    EXPECT_EQ(config.countByIndex, 3);
    EXPECT_EQ(config.countByID, 4);
    EXPECT_EQ(config.createStatus, 0x0606);
    EXPECT_EQ(config.indexStatus, 0x0201);
    EXPECT_FALSE(config.appleEventReply);
    EXPECT_EQ(config.appleEventErrorNumber, -1708);
    ASSERT_EQ(config.faults.size(), 2u);
    EXPECT_EQ(config.faults[0].request, ESimRequestKind::eTabletBlock);
    EXPECT_EQ(config.faults[0].command, ECommandSet);
    EXPECT_EQ(config.faults[0].action, ESimFaultAction::eSlow);
    EXPECT_EQ(config.faults[0].milliseconds, 250u);
    EXPECT_EQ(config.faults[0].skip, 1u);
    EXPECT_EQ(config.faults[0].times, 2u);
    EXPECT_EQ(config.faults[1].request, ESimRequestKind::eAny);
    EXPECT_FALSE(config.faults[1].command);
    EXPECT_EQ(config.faults[1].exitCode, 9);
}

TEST(SimDriverConfigReader, DefaultsFollowThePortAndTheVersion)
{
    // The coordinator sends packets to the Kelto port from 6.1.2, to the Pen port from 5.2.0.
    EXPECT_FALSE(Read("{" + kKelto + R"(, "Version": "6.1.1"})").packetMessaging);
    EXPECT_TRUE(Read("{" + kKelto + R"(, "Version": "6.1.2"})").packetMessaging);
    EXPECT_FALSE(Read("{" + kPen + R"(, "Version": "5.1.9"})").packetMessaging);
    EXPECT_TRUE(Read("{" + kPen + R"(, "Version": "5.2.0"})").packetMessaging);
    // The old short form 6.12 is 6.1.2.
    EXPECT_TRUE(Read("{" + kKelto + R"(, "Version": "6.12"})").packetMessaging);

    SSimDriverConfig plain = Read("{" + kPen + R"(, "Version": "5.3.0"})");
    EXPECT_EQ(plain.name, plain.portName);
    EXPECT_FALSE(plain.otherByteOrder);
    EXPECT_EQ(plain.endiannessCode, 1);
    EXPECT_TRUE(plain.tablets.empty());
    EXPECT_EQ(plain.lastTabletUsed, -1);
    EXPECT_FALSE(plain.countByIndex);
    EXPECT_FALSE(plain.countByID);
    EXPECT_TRUE(plain.appleEventReply);
    EXPECT_FALSE(plain.appleEventErrorNumber);
    // The other byte order answers 'ENDI' with a code other than 1.
    EXPECT_EQ(Read("{" + kPen + R"(, "Version": "5.3.0", "ByteOrder": "other"})").endiannessCode,
              2);
    // A hang holds the request an hour unless told otherwise.
    SSimDriverConfig hang = Read("{" + kPen + R"(, "Version": "5.3.0",
        "Faults": [{"Request": "system-id", "Action": "hang"}]})");
    EXPECT_EQ(hang.faults.at(0).milliseconds, 3600u * 1000u);
    EXPECT_EQ(hang.faults.at(0).exitCode, 70);
}

TEST(SimDriverConfigReader, RefusesEachMistakeWithALineNamingTheKey)
{
    const std::string head = "{" + kKelto + R"(, "Version": "6.3.0", )";
    struct SCase
    {
        std::string text;
        std::string expected;
    };
    const SCase cases[] = {
        {"not json at all", "line 1, column 2: syntax error while parsing value"},
        {"{\"Tablets\": [1\n 2]}", "line 2, column 2: syntax error while parsing array"},
        {"[1, 2]", "not a JSON object"},
        {R"({"Version": "6.3.0"})", "PortName: is required"},
        {"{" + kKelto + "}", "Version: is required"},
        {"{" + kKelto + R"(, "Version": "six"})", "Version: must be a version such as"},
        {"{" + kKelto + R"(, "Version": 6})", "Version: must be a string"},
        {head + R"("Tablet": []})", "unknown key \"Tablet\""},
        // Text from the file stays on the one line.
        {head + "\"Bad\nKey\\\"\": 1}", "unknown key \"Bad\\x0AKey\\x22\" (known: Name,"},
        {head + R"("ByteOrder": "big"})", "ByteOrder: must be \"same\" or \"other\""},
        {head + R"("EndiannessReply": 256})",
         "EndiannessReply: must be an integer from -1 to 255, not 256"},
        {head + R"("Tablets": {}})", "Tablets: must be an array"},
        {head + R"("Tablets": [1]})", "Tablets[0]: must be an object"},
        {head + R"("Tablets": [{}, {"SystemID": 70000}]})",
         "Tablets[1].SystemID: must be an integer from 0 to 65535, not 70000"},
        {head + R"("Tablets": [{"SystemID": 1.5}]})", "Tablets[0].SystemID: must be an integer"},
        {head + R"("Tablets": [{"Colour": "red"}]})", "Tablets[0]: unknown key \"Colour\""},
        {head + R"("Tablets": [{"TouchCapabilities": [1]}]})",
         "Tablets[0].TouchCapabilities: must be an object"},
        // The last tablet used must be one of the tablets.
        {head + R"("Tablets": [{}], "LastTabletUsed": 1})",
         "LastTabletUsed: must be an integer from -1 to 0, not 1"},
        {head + R"("LastTabletUsedTimestamp": -1})", "LastTabletUsedTimestamp: must be"},
        {head + R"("PacketMessaging": "yes"})", "PacketMessaging: must be true or false"},
        {head + R"("AppleEvents": {"Reply": true, "Errn": 1}})",
         "AppleEvents: unknown key \"Errn\""},
        {head + R"("Faults": [{"Request": "system-id"}]})",
         "Faults[0]: needs \"Request\" and \"Action\""},
        {head + R"("Faults": [{"Request": "tablets", "Action": "slow"}]})",
         "Faults[0].Request: unknown request \"tablets\""},
        {head + R"("Faults": [{"Request": "any", "Action": "crash"}]})",
         "Faults[0].Action: unknown action \"crash\""},
        {head + R"("Faults": [{"Request": "any", "Action": "slow", "Command": "get"}]})",
         "Faults[0].Command: unknown command \"get\""},
        {head + R"("Faults": [{"Request": "any", "Action": "exit", "ExitCode": 300}]})",
         "Faults[0].ExitCode: must be an integer from 0 to 255"},
    };
    for (const SCase& c : cases)
    {
        std::string error = Refusal(c.text);
        EXPECT_NE(error.find(c.expected), std::string::npos)
            << "text: " << c.text << "\nerror: " << error;
    }
}

TEST(SimDriverConfigReader, FilesNameThemselvesInTheirErrors)
{
    SSimDriverConfig config;
    std::string error;
    EXPECT_FALSE(ReadSimDriverConfigFile("/nonexistent/driver.json", config, error));
    EXPECT_EQ(error.rfind("/nonexistent/driver.json: cannot open: ", 0), 0u) << error;

    const std::string path = testing::TempDir() + "simdriver-config-test.json";
    {
        std::ofstream file(path);
        file << "{" << kPen << R"(, "Version": "5.3.0", "Tablets": [{"SystemID": -2}]})";
    }
    EXPECT_FALSE(ReadSimDriverConfigFile(path, config, error));
    EXPECT_EQ(error, path + ": Tablets[0].SystemID: must be an integer from 0 to 65535, not -2");
    std::remove(path.c_str());
}
