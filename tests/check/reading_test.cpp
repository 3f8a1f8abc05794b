// Lines that look otherwise than the controller reads them, and good style that is nothing to complain about.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "check/check.h"
#include "support/scratch.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Reading : public ScratchTest {
 protected:
  void SetUp() override {
    ScratchTest::SetUp();
    std::filesystem::create_directory("plc1");
    Write("rack.toml", "[slots]\n1 = \"io\"\n2 = \"stepper\"\n");
    Write("plc1/RESET.PLC", "EXIT\n");
    Write("plc1/FLOW.PLC", "FL: A.PLC\nEND\n");
    Write("plc1/A.PLC", "END\n");
  }

  // "line:column rule: message" of each finding.
  static std::vector<std::string> Findings() {
    std::string error;
    const auto findings = check::CheckPath(".", "", &error);
    EXPECT_EQ(error, "");
    std::vector<std::string> found;
    for (const check::Finding& finding : findings.value_or(std::vector<check::Finding>())) {
      found.push_back(std::to_string(finding.line) + ":" + std::to_string(finding.column) + " " +
                      check::RuleOf(finding.rule).name + ": " + finding.message);
    }
    return found;
  }
  static std::vector<std::string> FindingsOf(const std::string& flow) {
    Write("plc1/FLOW.PLC", flow);
    return Findings();
  }
};

TEST_F(Reading, ACharacterThatLooksLikeAnotherIsNamedWithItsCodePoint) {
  EXPECT_THAT(
      FindingsOf("OUT: 1, \xEF\xBC\x93, 1\nEND\n"),
      ElementsAre("1:9 wrong-separator: a full-width digit 3 (U+FF13) is a letter like any other for the "
                  "controller, which reads 0 there; \"3\" was probably meant"));
  EXPECT_THAT(
      FindingsOf("OUT: 1, \xE2\x80\x8B\x33, 1\nEND\n"),
      ElementsAre("1:9 wrong-separator: an invisible character (U+200B) is a letter like any other for the "
                  "controller, which reads 0 there; nothing was probably meant"));
  EXPECT_THAT(
      FindingsOf("\xD0\x9EUT: 1, 3, 1\nEND\n"),
      ElementsAre("1:1 wrong-separator: a Cyrillic letter (U+041E) is a letter like any other for the "
                  "controller, which skips the line; \"O\" was probably meant"));
  EXPECT_THAT(FindingsOf("L\xCE\x9COT: 2, 0,\nEND\n"),
              ElementsAre("1:2 wrong-separator: a Greek letter (U+039C) is a letter like any other for the "
                          "controller, which skips the line; \"M\" was probably meant"));
  EXPECT_THAT(
      FindingsOf("FL: \xD0\x90.PLC\nEND\n"),
      ElementsAre("1:5 missing-block: there is no file \"\xD0\x90.PLC\": the controller passes over the "
                  "call; it has a Cyrillic letter (U+0410), which is not \"A\"; did you mean \"A.PLC\"?"));
}

TEST_F(Reading, NamesOfBlocksAndCommentsMayHaveAnyCharacter) {
  Write("plc1/\xD0\x90\xEF\xBC\x91.PLC", "END\n");
  EXPECT_THAT(FindingsOf("FL: \xD0\x90\xEF\xBC\x91.PLC ; \xD0\x90\xE2\x80\x8B\xEF\xBC\x9A\n"
                         "IF: 1, 0, 1&NUL&\xD0\x90\xEF\xBC\x91.PLC\nEND\n"),
              IsEmpty());
}

// What cannot be read as a program is not what was meant, whatever its name.
TEST_F(Reading, APipeOrADirectoryIsNoProgram) {
  Write("plc1/CLAMP1.PLC", "END\n");
  std::filesystem::create_directory("plc1/REJECTOLDPARTS.PLC");
  ASSERT_EQ(mkfifo("plc1/CLAMP.PLC", 0600), 0);
  EXPECT_THAT(
      FindingsOf("FL: CLAMP.PLC\nFL: REJECTOLDPARTS.PLC\nFL: CLAMP1.PLC\nEND\n"),
      ElementsAre(
          "1:5 missing-block: there is no file \"CLAMP.PLC\": the controller passes over the call; "
          "did you mean \"CLAMP1.PLC\"?",
          "2:5 missing-block: there is no file \"REJECTOLDPARTS.PLC\": the controller passes over the call"));
}

TEST_F(Reading, ALineThatBeginsWithAZeroByteIsLost) {
  EXPECT_THAT(FindingsOf(std::string("\0OUT: 1, 3, 1\nEND\n", 18)),
              ElementsAre("1:1 lost-text: the controller does not look at what stands behind a zero byte"));
}

TEST_F(Reading, ALabelInALineThatIsTooLongIsFoundByGo) {
  EXPECT_THAT(
      FindingsOf("#LE: 1 ;" + std::string(1000, 'x') + "\nDLY: 5\nGO: 1\n"),
      ElementsAre("1:1000 line-too-long: the line has more than 999 characters: the controller skips it, "
                  "though GO finds its label 1; break it up"));
}

TEST_F(Reading, ACommentInPiecesIsWrongOnlyWhereAPieceIsExecutedOrFound) {
  const std::string comment = ";" + std::string(1022, 'x');
  EXPECT_THAT(FindingsOf(comment + "more of it: 1, 2\nEND\n"), IsEmpty());
  EXPECT_THAT(FindingsOf(comment + ";" + std::string(1022, 'x') + "END of it\nEND\n"), IsEmpty());
  EXPECT_THAT(
      FindingsOf(comment + "OUT: 1, 3, 1\nEND\n"),
      ElementsAre(HasSubstr("line-split: the line has more than 1023 bytes: the controller executes this "
                            "piece as the command OUT")));
  EXPECT_THAT(
      FindingsOf(comment + "#LE: 1 ;" + std::string(1015, 'x') + "\nDLY: 5\nGO: 1\n"),
      ElementsAre(HasSubstr("line-split: the line has more than 1023 bytes: the controller finds label 1 in "
                            "this piece at a GO")));
}

TEST_F(Reading, AClosingEndOrExitIsGoodStyle) {
  Write("plc1/B.PLC", "DLY: 5\nEND\n");
  EXPECT_THAT(FindingsOf("#LE: 1\nFL: A.PLC\nGO: 1\nEND ; never\n; the end\n"), IsEmpty());
  EXPECT_THAT(FindingsOf("#LE: 1\nFL: A.PLC\nGO: 1\n\nEXIT\n"), IsEmpty());
  Write("plc1/A.PLC", "#LE: 1\nDLY: 5\nGO: 1\nEND\n");
  EXPECT_THAT(FindingsOf("FL: A.PLC\nEND\n"), IsEmpty());
  EXPECT_THAT(FindingsOf("#LE: 1\nDLY: 5\nGO: 1\nOUT: 1, 0, 1\nEND\n"),
              ElementsAre(HasSubstr("4:1 unreachable")));
  EXPECT_THAT(FindingsOf("#LE: 1\nDLY: 5\nGO: 1\nEND\nOUT: 1, 0, 1\nEND\n"),
              ElementsAre(HasSubstr("4:1 unreachable")));
  EXPECT_THAT(FindingsOf("DLY: 5\nEXIT\nEND\n"), ElementsAre(HasSubstr("3:1 unreachable")));
}

TEST_F(Reading, FillersAndMarksOfOtherSystemsAreNoFindings) {
  EXPECT_THAT(FindingsOf("MOT: 2, 0, 40&20&1\nLMOT: 2, 0, 0\nROCLR: 2, 0, 0\nEND\n"), IsEmpty());
  EXPECT_THAT(FindingsOf("ROW: 2, 1, 5\nROCLR: 2, 1, 00\nEND\n"), ElementsAre(HasSubstr("2:14 lost-text")));
  EXPECT_THAT(FindingsOf("DLY: 5\nEXIT\n\x1A"), IsEmpty());
  EXPECT_THAT(FindingsOf("DLY: 5\nEXIT\x1A\nEND\n"),
              ElementsAre(HasSubstr("2:1 unknown-keyword: \"EXIT\x1A\"")));
}

TEST_F(Reading, AnItemThatIsCommentedOutIsNoError) {
  Write("plc1/FLOW.PLC", "DLY: 5\nEND\n");
  Write("Velmo.conf", "; Port=1\n[UDP]\n;Port=8000\n#Port=8001\n  // Port = 8002\n;[KEYPAD]\nPort=8003\n");
  EXPECT_THAT(Findings(), IsEmpty());
  Write("Velmo.conf", "[UDP]\nPotr=8000\n");
  EXPECT_THAT(Findings(), ElementsAre(HasSubstr("2:1 conf-unread: \"Potr\" is no item of [UDP]")));
}

}  // namespace
