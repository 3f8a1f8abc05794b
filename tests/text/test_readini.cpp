#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>

#include "numbers.h"
#include "readini.h"
#include "support/scratch.h"

namespace {

class GetField : public ScratchTest {
 protected:
  // The result and, behind a blank, the text that the caller then holds.
  std::string Field(const std::string& file, const char* item = "Port", int position = 0) {
    Write("x.conf", file);
    char text[300] = "  old";
    const int result = ReadIni.GetField("x.conf", "[UDP]", item, position, text);
    return std::to_string(result) + " " + text;
  }
};

TEST_F(GetField, FindsTheValueOfTheFirstGroupOfThatName) {
  EXPECT_EQ(Field("[UDP]\nPort=8000\n"), "0 8000");
  EXPECT_EQ(Field("x\n  [udp]\n  PORT=  80 \nPort=1"), "0 80 ");
  EXPECT_EQ(Field("[UDP]\r\nPort=8000\n"), "-2 old");
  EXPECT_EQ(Field("[UDP] \nPort=8000\n"), "-2 old");
  EXPECT_EQ(Field("\t[UDP]\nPort=8000\n"), "-2 old");
  EXPECT_EQ(Field("[UDP]\nPort=8000\r\n"), "0 8000\r");
  EXPECT_EQ(Field("[UDP]\nPort = 8000\n"), "-2 old");
  EXPECT_EQ(Field("[UDP]\n==Port==8000\n"), "0 =8000");
  for (const char* end : {"[", "<", "("}) {
    EXPECT_EQ(Field("[UDP]\n" + std::string(end) + "\nPort=1\n[UDP]\nPort=2\n"), "-2 old") << end;
  }
  EXPECT_EQ(Field("[UDP]\n\n===\nother\nPort=5"), "0 5");
}

TEST_F(GetField, CountsValuesThatAreNotEmpty) {
  EXPECT_EQ(Field("[UDP]\nPort=10,20,30\n", "Port", 1), "0 20");
  EXPECT_EQ(Field("[UDP]\nPort=10,20,30\n", "Port", 5), "0 30");
  EXPECT_EQ(Field("[UDP]\nPort=10,,30\n", "Port", 1), "0 30");
  EXPECT_EQ(Field("[UDP]\nPort=\nPort=7\n"), "-2 old");
  EXPECT_EQ(Field("[UDP]\nPort\nPort=7\n"), "-2 old");
  EXPECT_EQ(Field("[UDP]\nPort=7\n", "Port", -1), "-2 old");
}

TEST_F(GetField, TakesALongLineInPiecesOf255) {
  EXPECT_EQ(Field("[UDP]\n" + std::string(255, 'x') + "Port=9\n"), "0 9");
  EXPECT_EQ(Field("[UDP]\nPort=" + std::string(260, '7') + "\n"), "0 " + std::string(250, '7'));
}

TEST_F(GetField, ConvertsAndKeepsTheVariableWhenNothingIsFound) {
  Write("x.conf", "[G]\nA=-12\nF=2.5e1\nH=1e60\nW=4294967297\n");
  int number = 3;
  long wide = 4;
  float fraction = 5;
  EXPECT_EQ(ReadIni.GetField("x.conf", "[G]", "A", 0, number), 0);
  EXPECT_EQ(ReadIni.GetField("x.conf", "[G]", "A", 0, wide), 0);
  EXPECT_EQ(ReadIni.GetField("x.conf", "[G]", "F", 0, fraction), 0);
  EXPECT_EQ(number, -12);
  EXPECT_EQ(wide, -12);
  EXPECT_EQ(fraction, 25.0f);
  EXPECT_EQ(ReadIni.GetField("x.conf", "[G]", "W", 0, number), 0);
  EXPECT_EQ(number, 1);
  EXPECT_EQ(ReadIni.GetField("x.conf", "[G]", "H", 0, fraction), 0);
  EXPECT_TRUE(std::isinf(fraction));
  EXPECT_EQ(ReadIni.GetField("x.conf", "[G]", "B", 0, number), -2);
  EXPECT_EQ(ReadIni.GetField("none.conf", "[G]", "A", 0, wide), -1);
  EXPECT_EQ(number, 1);
  EXPECT_EQ(wide, -12);
  char text[300] = "  old";
  EXPECT_EQ(ReadIni.GetField("none.conf", "[G]", "A", 0, text), -1);
  EXPECT_STREQ(text, "  old");
}

TEST(Get1Par, SkipsEmptyTokens) {
  char text[257] = "old";
  EXPECT_EQ(ReadIni.Get1Par(3, text, "a, b ,c"), -1);
  EXPECT_EQ(ReadIni.Get1Par(0, text, ",,"), -1);
  EXPECT_STREQ(text, "old");
  EXPECT_EQ(ReadIni.Get1Par(2, text, "a, b ,c"), 0);
  EXPECT_STREQ(text, "c");
  EXPECT_EQ(ReadIni.Get1Par(1, text, "a,,, b ,c"), 0);
  EXPECT_STREQ(text, "b ");
  EXPECT_EQ(ReadIni.Get1Par(-4, text, ",a,b"), 0);
  EXPECT_STREQ(text, "a");
  EXPECT_EQ(ReadIni.Get1Par(0, text, std::string(500, 'x').c_str()), 0);
  EXPECT_EQ(std::string(text), std::string(199, 'x'));
  int number = 9;
  unsigned int natural = 9;
  long wide = 9;
  float fraction = 9;
  EXPECT_EQ(ReadIni.Get1Par(0, &number, "-1,2"), 0);
  EXPECT_EQ(ReadIni.Get1Par(0, &natural, "-1,2"), 0);
  EXPECT_EQ(ReadIni.Get1Par(1, &wide, "-1,2"), 0);
  EXPECT_EQ(ReadIni.Get1Par(1, &fraction, "-1,.5"), 0);
  EXPECT_EQ(ReadIni.Get1Par(7, &number, "-1,2"), -1);
  EXPECT_EQ(number, -1);
  EXPECT_EQ(natural, 4294967295u);
  EXPECT_EQ(wide, 2);
  EXPECT_EQ(fraction, 0.5f);
}

TEST(GetField2, CountsEmptyPieces) {
  struct Case {
    const char* text;
    int idx;
    char split;
    int result;
    const char* field;
  } const cases[] = {{"LD:1:2", 0, ':', 1, "LD"}, {"LD:1:2", 2, ':', 1, "2"}, {"LD:1:2", 3, ':', 0, ""},
                     {"a,,b", 1, ',', 1, ""},     {"a,b,", 2, ',', 1, ""},    {"", 0, ',', 1, ""},
                     {" a ", 0, ',', 1, " a "},   {"a", -1, ',', 0, ""}};
  for (const Case& test : cases) {
    char field[20] = "old";
    EXPECT_EQ(ReadIni.GetField2(test.text, field, test.idx, test.split), test.result)
        << test.text << test.idx;
    EXPECT_STREQ(field, test.field) << test.text << test.idx;
  }
  EXPECT_EQ(ReadIni.GetField2("a", nullptr, 0, ','), 0);
  const char two[] = "a\0b";  // what stands behind the text is no field
  char field[4] = "old";
  EXPECT_EQ(ReadIni.GetField2(two, field, 1, '\0'), 0);
  EXPECT_STREQ(field, "");

  char bounded[4] = "old";
  EXPECT_EQ(BoundedField("abcd&efg", bounded, sizeof bounded, 0, '&'), -1);
  EXPECT_EQ(BoundedField("abcd&efg", bounded, sizeof bounded, 2, '&'), 0);
  EXPECT_EQ(BoundedField("abcd&efg", bounded, sizeof bounded, -1, '&'), 0);
  EXPECT_EQ(BoundedField(nullptr, bounded, sizeof bounded, 0, '&'), 0);
  EXPECT_STREQ(bounded, "old");
  EXPECT_EQ(BoundedField("abcd&efg", bounded, sizeof bounded, 1, '&'), 1);
  EXPECT_STREQ(bounded, "efg");
}

TEST(Trim, RemovesAtTheEnds) {
  const auto after = [](const char* text, auto operation) {
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%s", text);
    const int result = operation(buffer);
    return std::to_string(result) + "<" + buffer + ">";
  };
  const auto trim = [](char* text) { return ReadIni.Trim(text); };
  const auto blank = [](char* text) { return ReadIni.TrimBlank(text); };
  const auto left = [](char* text) { return ReadIni.TrimLeft(text, ' '); };
  const auto right = [](char* text) { return ReadIni.TrimRight(text, ' '); };
  const auto zero = [](char* text) { return ReadIni.GetZero(text), 0; };
  const auto zeroR = [](char* text) { return ReadIni.GetZeroR(text), 0; };
  EXPECT_EQ(after(" \t LD 1 \r\n", trim), "1<LD 1>");
  EXPECT_EQ(after(" \t\r\n", trim), "1<>");
  EXPECT_EQ(after("  \ta ", blank), "1<\ta>");
  EXPECT_EQ(after("   ", blank), "1<>");
  EXPECT_EQ(after("  a b ", left), "1<a b >");
  EXPECT_EQ(after("   ", left), "1< >");
  EXPECT_EQ(after(" ", left), "1<>");
  EXPECT_EQ(after("", left), "0<>");
  EXPECT_EQ(after("a ", left), "0<a >");
  EXPECT_EQ(after(" a b  ", right), "1< a b>");
  EXPECT_EQ(after("   ", right), "1< >");
  EXPECT_EQ(after(" ", right), "1<>");
  EXPECT_EQ(after("", right), "0<>");
  EXPECT_EQ(after(" a", right), "0< a>");
  EXPECT_EQ(after("  a b\nc", zero), "0<a b>");
  EXPECT_EQ(after("   ", zero), "0<>");
  EXPECT_EQ(after("  a b\nc", zeroR), "0<a>");
  EXPECT_EQ(after(" a\nc d", zeroR), "0<a>");
  EXPECT_STREQ(ReadIni.GetVersion(), "1.30");
}

TEST(Numbers, HaveADefinedResultForAnyDigits) {
  for (const char* text :
       {"", " ", "-", "+", "+7", "-+7", "--7", "\v\f\r\n7", "0x7", "007", "- 7", "7 8", "9223372036854775807",
        "9223372036854775808", "-9223372036854775808", "-9223372036854775809", "92233720368547758070"}) {
    EXPECT_EQ(ToWideNumber(text), std::strtoll(text, nullptr, 10)) << text;
  }
  EXPECT_EQ(ToNumber<int>(" \t-12abc"), -12);
  EXPECT_EQ(ToNumber<int>("abc"), 0);
  EXPECT_EQ(ToNumber<int>("4294967297"), 1);
  EXPECT_EQ(ToWideNumber("99999999999999999999"), 9223372036854775807LL);
  EXPECT_EQ(ToNumber<int>("99999999999999999999"), -1);
  EXPECT_EQ(ToFloat("-1.5x"), -1.5f);
  EXPECT_TRUE(std::isinf(ToFloat("-1e300")));
}

}  // namespace
