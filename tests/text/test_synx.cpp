#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "synx.h"

namespace {

struct Parsed {
  int command;
  int slot;
  int channel;
  std::string param;
  std::string comment;
};

constexpr int KEPT = -77;  // what the caller held before the call

Parsed Parse(const std::string& line) {
  int slot = KEPT;
  int channel = KEPT;
  char param[1000] = "";
  char comment[1000] = "old";
  const SYNXIDX command = SynxClass.Explain(line.c_str(), &slot, &channel, param, comment);
  return {command, slot, channel, param, comment};
}

TEST(Synx, KeywordsStandAtTheirIndexAndMatchInAnyLetterCase) {
  const char* keywords[34] = {"NUL",  "LD",   "OUT",     "FL",      "PARAM",   "DG",   "#LE",
                              "END",  "MOT",  "LDG",     "DLY",     "GO",      "RLY",  "MFL0",
                              "MFL1", "MFL2", "MFL0END", "MFL1END", "MFL2END", "EXIT", "RSTMOT",
                              "LMOT", "SMOT", "MOZ",     "IF",      "RSTMOZ",  "LMOZ", "LED",
                              "G_ST", "DGO",  "LDGI",    "ROW",     "ROCLR",   "OUTE"};
  EXPECT_EQ(SYNMAX, 34);
  EXPECT_EQ(sizeof SYNXCMD, 34u * 20u);
  for (int i = 0; i < 34; ++i) {
    EXPECT_STREQ(SYNXCMD[i], keywords[i]);
    std::string line = keywords[i];
    for (char& letter : line) letter = static_cast<char>(std::tolower(letter));
    EXPECT_EQ(Parse(" \t" + line + " :1,2,3").command, i) << line;
  }
}

// How many fields a command needs at least: 0, 1, 2 or 3.
TEST(Synx, EachCommandNeedsTheFieldsOfItsForm) {
  const std::string needed =
      "3331331032"
      "1133333330"
      "2233333313"
      "3333";
  ASSERT_EQ(needed.size(), 34u);
  const char* fields[] = {"", ":1", ":1,2", ":1,2,3"};
  for (int command = 1; command < 34; ++command) {
    for (int given = 0; given <= 3; ++given) {
      const std::string line = std::string(SYNXCMD[command]) + fields[given];
      const Parsed result = Parse(line);
      EXPECT_EQ(result.command, given < needed[static_cast<size_t>(command)] - '0' ? 0 : command) << line;
    }
  }
  // Which commands keep the first field as the parameter, and which have none at all.
  for (const int word : {3, 10, 28}) EXPECT_EQ(Parse(std::string(SYNXCMD[word]) + ": 7x").param, "7x");
  for (const int number : {6, 11}) EXPECT_EQ(Parse(std::string(SYNXCMD[number]) + ": 7x").param, "");
}

TEST(Synx, EachFormYieldsItsFields) {
  struct Case {
    const char* line;
    Parsed expected;
  } const cases[] = {
      {"OUT: 2, 5, 1 ; valve", {2, 2, 5, "1", "valve"}},
      {"OUT: 1,2,", {2, 1, 2, "", ""}},
      {"OUT:+3x,-4,\t a b \t,5", {2, 3, -4, "a b", ""}},
      {"OUT:x,,p:9,9,9;c;d", {2, 0, 0, "p", "c"}},
      {"MOT: 99999999999,4294967297,1&2", {8, 1215752191, 1, "1&2", ""}},
      {"IF: 0, 3, 1&open.plc&NUL", {24, 0, 3, "1&open.plc&NUL", ""}},
      {"NUL: 1,2,3", {0, 1, 2, "3", ""}},
      {"DLY: 500", {10, 500, -1, "500", ""}},
      {"FL: 7sub.plc ,1;", {3, 7, -1, "7sub.plc", ""}},
      {"FL:", {3, 0, -1, "", ""}},
      {"G_ST: -5 ms", {28, -5, -1, "-5 ms", ""}},
      {"#LE: 3", {6, 3, -1, "", ""}},
      {"GO: 3, x", {11, 3, -1, "", ""}},
      {"END ; stop here", {7, KEPT, -1, "", "stop here"}},
      {"exit: 1,2,3", {19, KEPT, -1, "", ""}},
      {"LDG: 3, 1", {9, 0, 3, "1", ""}},
      {"LMOT: 2, 1,", {21, 2, 1, "", ""}},
      {"RSTMOT: 2,1,p,q", {20, 2, 1, "p", ""}},
      {"OUT: 1, 2", {0, 1, 2, "", ""}},
      {"LD: 4", {0, 4, -1, "", ""}},
      {"LDG: 3", {0, KEPT, 3, "", ""}},
      {"LD 1,2,3", {0, KEPT, -1, "", ""}},
      {"LDX: 1,2,3 ; c", {0, KEPT, -1, "", "c"}},
      {"; only talk", {0, KEPT, -1, "", "only talk"}},
  };
  for (const Case& test : cases) {
    const Parsed result = Parse(test.line);
    EXPECT_EQ(result.command, test.expected.command) << test.line;
    EXPECT_EQ(result.slot, test.expected.slot) << test.line;
    EXPECT_EQ(result.channel, test.expected.channel) << test.line;
    EXPECT_EQ(result.param, test.expected.param) << test.line;
    EXPECT_EQ(result.comment, test.expected.comment) << test.line;
  }
}

TEST(Synx, WithoutParameterBufferTwoFieldsAreEnough) {
  int slot = 0;
  int channel = 0;
  char comment[1000];
  EXPECT_EQ(SynxClass.Explain("OUT: 1, 2", &slot, &channel, nullptr, comment), SYN_OUT);
  EXPECT_EQ(SynxClass.Explain("OUT: 1", &slot, &channel, nullptr, comment), SYN_NUL);
  EXPECT_EQ(SynxClass.Explain("DLY: 12", &slot, &channel, nullptr, comment), SYN_DLY);
  EXPECT_EQ(slot, 12);
}

TEST(Synx, LinesUpTo999CharactersAreParsed) {
  const std::string longest = "OUT:1,2," + std::string(991, 'p');
  const Parsed result = Parse(longest);
  EXPECT_EQ(result.command, 2);
  EXPECT_EQ(result.param, std::string(991, 'p'));
  EXPECT_EQ(Parse("END;" + std::string(995, 'c')).comment, std::string(995, 'c'));
  const Parsed tooLong = Parse(longest + "p");
  EXPECT_EQ(tooLong.command, 0);
  EXPECT_EQ(tooLong.slot, KEPT);
  EXPECT_EQ(tooLong.comment, "");
}

TEST(Synx, CoreSaysWhyAndWhereALineYieldsNothing) {
  struct Case {
    std::string line;
    LineFault fault;
    int column;
    int keyword;
  } const cases[] = {
      {"OUT: 1,2,3", LineFault::None, 0, 2},
      {"", LineFault::Empty, 0, 0},
      {"  ; OUT: 1,2,3", LineFault::Empty, 0, 0},
      {std::string(1000, ' '), LineFault::TooLong, 999, 0},
      {"  LDX: 1,2,3", LineFault::UnknownKeyword, 2, 0},
      {" :1,2,3", LineFault::UnknownKeyword, 1, 0},
      {"averyveryverylongkeyword: 1", LineFault::UnknownKeyword, 0, 0},
      {"nineteen-characters: 1", LineFault::UnknownKeyword, 0, 0},
      {"it-has-20-characters: 1", LineFault::UnknownKeyword, 0, 0},
      {" GO 3 ;x", LineFault::UnknownKeyword, 1, 0},
      {" GO  ;x", LineFault::MissingColon, 3, 11},
      {"OUT: 1, 2  ;x", LineFault::TooFewFields, 9, 2},
      {"OUT:", LineFault::TooFewFields, 4, 2},
      {"LDG: 3", LineFault::TooFewFields, 6, 9},
      {" NUL: 1,2,3", LineFault::KeywordNul, 1, 0},
      {"NUL: 1", LineFault::TooFewFields, 6, 0},
  };
  for (const Case& test : cases) {
    ExplainedLine line;
    ExplainLine(test.line.c_str(), &line);
    EXPECT_EQ(static_cast<int>(line.Fault), static_cast<int>(test.fault)) << test.line;
    EXPECT_EQ(line.FaultColumn, test.column) << test.line;
    EXPECT_EQ(line.Keyword, test.keyword) << test.line;
  }
}

TEST(Synx, CoreShowsTheColumnsOfTheFields) {
  ExplainedLine line;
  ExplainLine(" LMOT: 2, 11, p ; c", &line);
  EXPECT_EQ(line.KeywordColumn, 1);
  EXPECT_EQ(line.SlotIdx.Column, 7);
  EXPECT_EQ(line.ChIdx.Column, 10);
  EXPECT_EQ(line.ParamColumn, 14);
  ExplainLine("LDG: 3, 1", &line);
  EXPECT_EQ(line.SlotIdx.Column, -1);
  EXPECT_EQ(line.ChIdx.Column, 5);
}

}  // namespace
