#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "ChildProgram.h"
#include "ControllerFixture.h"

namespace {

using test::arguments;
using test::ChildProgram;
using test::contains;

class ControllerInputTest : public test::ControllerFixture {};

TEST_F(ControllerInputTest, Firmware_ThatWasWritten_IsLoaded) {
    ChildProgram writer(RADIO_UNIT_CONTROLLER, {"--write-firmware", file("dsp.img")});
    ASSERT_EQ(writer.exitCode(), 0) << writer.errors();
    ASSERT_EQ(std::filesystem::file_size(file("dsp.img")), 16U + 16384U);

    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({"--firmware", file("dsp.img")}));

    EXPECT_EQ(controller.exitCode(), 0) << controller.errors();
    EXPECT_TRUE(std::filesystem::exists(file("dsp.img"))) << "a given image is not the controller's to remove";
}

TEST_F(ControllerInputTest, Firmware_InAFolderThatIsMissing_CanNotBeWritten) {
    ChildProgram writer(RADIO_UNIT_CONTROLLER, {"--write-firmware", file("missing/dsp.img")});

    EXPECT_EQ(writer.exitCode(), 1);

    EXPECT_TRUE(contains(writer.errors(), "firmware image " + file("missing/dsp.img") +
                                              " can not be written: No such file or directory"))
        << writer.errors();
}

struct BadImage {
    const char *name;
    void (*damage)(std::string &bytes);
    const char *message; ///< Behind the image's path.
};

void PrintTo(const BadImage &image, std::ostream *out) {
    *out << image.name;
}

class BadFirmwareTest : public ControllerInputTest, public testing::WithParamInterface<BadImage> {};

TEST_P(BadFirmwareTest, Firmware_ThatIsDamaged_FailsTheStartAndSaysHow) {
    ChildProgram writer(RADIO_UNIT_CONTROLLER, {"--write-firmware", file("dsp.img")});
    ASSERT_EQ(writer.exitCode(), 0) << writer.errors();
    std::ifstream in(file("dsp.img"), std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    GetParam().damage(bytes);
    fileWith("dsp.img", bytes);

    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({"--firmware", file("dsp.img")}));

    EXPECT_EQ(controller.exitCode(), 1);
    EXPECT_TRUE(contains(controller.errors(), "module DspLoader failed in phase StorageObjectsRetrieved with "
                                              "eAF_E_FAILED: "))
        << controller.errors();
    EXPECT_TRUE(contains(controller.errors(), file("dsp.img") + GetParam().message)) << controller.errors();
    EXPECT_TRUE(contains(controller.errors(), "; write a good one with --write-firmware FILE\n"));
}

INSTANTIATE_TEST_SUITE_P(
    , BadFirmwareTest,
    testing::Values(BadImage{"OneBitFlipped",
                             [](std::string &bytes) { bytes[5000] = static_cast<char>(bytes[5000] ^ 1); },
                             " is damaged: checksum 0x"},
                    BadImage{"OneByteMissing", [](std::string &bytes) { bytes.pop_back(); },
                             " holds 16383 bytes of code instead of 16384"},
                    BadImage{"OneByteMore", [](std::string &bytes) { bytes += 'x'; },
                             " holds 16385 bytes of code instead of 16384"},
                    BadImage{"OtherMark", [](std::string &bytes) { bytes[0] = 'X'; }, " is no firmware image"},
                    BadImage{"HeaderCut", [](std::string &bytes) { bytes.resize(15); }, " is no firmware image"},
                    BadImage{"Empty", [](std::string &bytes) { bytes.clear(); }, " is no firmware image"}),
    [](const auto &test) { return std::string(test.param.name); });

TEST_F(ControllerInputTest, Firmware_ThatIsMissing_FailsTheFirstPhase) {
    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({"--firmware", file("missing.img")}));

    EXPECT_EQ(controller.exitCode(), 1);

    EXPECT_TRUE(contains(controller.errors(),
                         "module DspLoader failed in phase RegisterStorageObjects with eAF_E_FAILED: firmware image " +
                             file("missing.img") + " can not be read: No such file or directory; write a good one"))
        << controller.errors();
}

TEST_F(ControllerInputTest, FrameFormat_FromAFile_IsUsed) {
    const std::string path = fileWith("format", "# a short frame\n\nname shorter\nsymbols 12 # extended prefix\n"
                                                "slots DSUUUDSUUU\nspecial 6 3 3\n");

    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({"--frame-format", path}));

    EXPECT_EQ(controller.exitCode(), 0) << controller.errors();
    EXPECT_TRUE(contains(controller.output(), "frame format shorter is in order: DSUUUDSUUU, 36 downlink symbols\n"))
        << controller.output();
}

struct BadFormat {
    const char *name;
    const char *text;
    const char *message;
};

void PrintTo(const BadFormat &format, std::ostream *out) {
    *out << format.name;
}

class BadFrameFormatTest : public ControllerInputTest, public testing::WithParamInterface<BadFormat> {};

TEST_P(BadFrameFormatTest, FrameFormat_ThatIsWrong_FailsTheStartAndSaysWhere) {
    const std::string path = fileWith("format", GetParam().text);

    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({"--frame-format", path}));

    EXPECT_EQ(controller.exitCode(), 1);
    EXPECT_TRUE(contains(controller.errors(), "module FrameFormatLoader failed in phase PreFrameFormatLoad with "
                                              "eAF_E_FAILED: " +
                                                  std::string(GetParam().message)))
        << controller.errors();
}

INSTANTIATE_TEST_SUITE_P(
    , BadFrameFormatTest,
    testing::Values(
        BadFormat{"UnknownSetting", "name a\ncolour red\n",
                  "line 2 of the frame format reads \"colour red\"; it takes: "},
        BadFormat{"ValueMissing", "name\n", "line 1 of the frame format reads \"name\"; it takes: "},
        BadFormat{"ValueTooMany", "symbols 14 14\n", "line 1 of the frame format reads \"symbols 14 14\""},
        BadFormat{"NumberIsNoNumber", "special ten 2 2\n", "line 1 of the frame format reads \"special ten 2 2\""},
        BadFormat{"NoName", "symbols 14\nslots DDDSUUDDSU\nspecial 10 2 2\n", "the frame format has no name"},
        BadFormat{"NoSymbols", "name a\nslots DDDSUUDDSU\nspecial 10 2 2\n",
                  "frame format a has 0 symbols in a slot; it takes 12 or 14"},
        BadFormat{"NineSlots", "name a\nsymbols 14\nslots DDDSUUDDS\nspecial 10 2 2\n",
                  "frame format a has the slots \"DDDSUUDDS\"; it takes 10 letters of D, S, U"},
        BadFormat{"OtherLetter", "name a\nsymbols 14\nslots DDDSUUDDSX\nspecial 10 2 2\n",
                  "frame format a has the slots \"DDDSUUDDSX\"; it takes 10 letters of D, S, U"},
        BadFormat{"NoSpecialBetween", "name a\nsymbols 14\nslots DDDUUUDDSU\nspecial 10 2 2\n",
                  "frame format a goes from D to U without an S between"},
        BadFormat{"SpecialTooLong", "name a\nsymbols 14\nslots DDDSUUDDSU\nspecial 10 3 2\n",
                  "frame format a has a special slot of 10 + 3 + 2 symbols; with a guard of at least 1 it takes 14"},
        BadFormat{"SpecialThatWrapsAround", "name a\nsymbols 14\nslots DDDSUUDDSU\nspecial 4294967295 2 13\n",
                  "frame format a has a special slot of 4294967295 + 2 + 13 symbols"},
        BadFormat{"NoGuard", "name a\nsymbols 14\nslots DDDSUUDDSU\nspecial 12 0 2\n",
                  "frame format a has a special slot of 12 + 0 + 2 symbols"}),
    [](const auto &test) { return std::string(test.param.name); });

TEST_F(ControllerInputTest, FrameFormat_InAMissingFile_FailsTheStartAndSaysWhich) {
    ChildProgram controller(RADIO_UNIT_CONTROLLER, arguments({"--frame-format", file("missing")}));

    EXPECT_EQ(controller.exitCode(), 1);

    EXPECT_TRUE(contains(controller.errors(), "frame format file " + file("missing") +
                                                  " can not be read: No such file or directory; give another with "
                                                  "--frame-format FILE\n"))
        << controller.errors();
}

struct BadCommandLine {
    const char *name;
    std::vector<std::string> arguments;
    const char *message;
};

void PrintTo(const BadCommandLine &line, std::ostream *out) {
    *out << line.name;
}

class CommandLineTest : public ControllerInputTest, public testing::WithParamInterface<BadCommandLine> {};

TEST_P(CommandLineTest, Run_WithABadCommandLine_SaysWhatIsWrongAndDoesNothing) {
    ChildProgram controller(RADIO_UNIT_CONTROLLER, GetParam().arguments);

    EXPECT_EQ(controller.exitCode(), 2);

    EXPECT_TRUE(contains(controller.errors(), GetParam().message)) << controller.errors();
    EXPECT_EQ(controller.output(), "");
}

INSTANTIATE_TEST_SUITE_P(
    , CommandLineTest,
    testing::Values(
        BadCommandLine{"UnknownOption", {"--lunch"}, "--lunch"},
        BadCommandLine{"PortTooLarge", {"--port", "65536"}, "--port: Value 65536 not in range 0 to 65535"},
        BadCommandLine{"PortNegative", {"--port", "-1"}, "--port: Value -1 not in range 0 to 65535"},
        BadCommandLine{"FailWithoutPhase", {"--fail", "Clock"}, "--fail Clock: write MODULE:PHASE, for example "},
        BadCommandLine{"FailOfUnknownModule",
                       {"--fail", "Oven:Start"},
                       "--fail Oven:Start: there is no module \"Oven\"; there are: EventLog, AlarmCollector, Clock, "},
        BadCommandLine{"FailInUnknownPhase",
                       {"--fail", "Clock:Lunch"},
                       "--fail Clock:Lunch: Clock is not called in a phase \"Lunch\"; it is in: Init, Start, Stop"},
        BadCommandLine{"FailInPhaseOfOthers",
                       {"--fail", "Clock:PreDspRecovery"},
                       "Clock is not called in a phase \"PreDspRecovery\"; it is in: Init, Start, Stop"},
        BadCommandLine{"RestartWithoutChannel", {"--restart", "warm"}, "--restart warm: write cold or warm, a colon"},
        BadCommandLine{"RestartOfChannelFive", {"--restart", "warm:5"}, "--restart warm:5: write cold or warm"},
        BadCommandLine{"RestartOfChannelZero", {"--restart", "cold:0"}, "--restart cold:0: write cold or warm"},
        BadCommandLine{"RestartLukewarm", {"--restart", "lukewarm:1"}, "--restart lukewarm:1: write cold or warm"}),
    [](const auto &test) { return std::string(test.param.name); });

TEST_F(ControllerInputTest, Help_ListsModulesAndPhases) {
    ChildProgram controller(RADIO_UNIT_CONTROLLER, {"--help"});

    EXPECT_EQ(controller.exitCode(), 0);

    EXPECT_TRUE(contains(controller.output(), "Modules: EventLog, AlarmCollector, Clock, BoardSupervision, "));
    EXPECT_TRUE(contains(controller.output(), "Phases: RegisterStorageObjects, StorageObjectsRetrieved, Init, Start"));
}

} // namespace
