#include <gmock/gmock.h>

#include <random>

#include "rack_fixture.h"

namespace {

std::string ErrorsOf(const std::string& text) {
  const auto setup = std::make_unique<rack::RackSetup>();
  std::vector<std::string> errors;
  const bool right = rack::ReadRackText(text, "rack.toml", *setup, errors);
  EXPECT_EQ(right, errors.empty());
  std::string all;
  for (const std::string& error : errors) all += error + "\n";
  return all;
}

TEST(RackFileTest, EntriesFollowTheSlotsAndEverythingLandsInTheSetup) {
  const auto setup = std::make_unique<rack::RackSetup>();
  std::vector<std::string> errors;
  ASSERT_TRUE(rack::ReadRackText(R"(
[rack]
device = "em335x_isa"
task_count = 8
settings = 7
[slots]
12 = { card = "servo", pulses_per_unit = 250 }
2 = { card = "cylinder", travel_time = "1.5 s", setup_time = "0.25 ms", reset_time = "0 ms" }
[inputs]
home = "0.15"
[[axis]]
motor = "2.3"
home = "home"
low = "0.1"
low_at = -500
[[cylinder]]
cylinder = "1.2"
switches = { 15 = "0.4" }
alarm = "0.5"
[[counter]]
name = "parts"
goal = 4
when_motor = "2.0"
from = 100
inverted = true
)",
                                 "rack.toml", *setup, errors));
  EXPECT_EQ(setup->image.device, rack::DeviceName::Em335xIsa);
  EXPECT_EQ(setup->image.entryCount, 3U);
  EXPECT_EQ(setup->image.entrySlot[1], 2);
  EXPECT_EQ(setup->image.entrySlot[2], 12);
  EXPECT_EQ(setup->image.cards[0].cpu.taskCount, 8);
  EXPECT_EQ(setup->image.cards[0].cpu.settings, 7);
  EXPECT_EQ(setup->image.cards[12].servo.pulsesPerUnit, 250U);
  EXPECT_EQ(setup->image.cards[2].cylinder.travelTime, 1500000000);
  EXPECT_EQ(setup->image.cards[2].cylinder.setupTime, 250000);
  EXPECT_EQ(setup->image.cards[2].cylinder.resetTime, 0);
  ASSERT_EQ(setup->plant.linkCount, 5U);
  const auto& links = setup->plant.links;
  EXPECT_EQ(links[0].entry, 2);
  EXPECT_EQ(links[0].channel, 3);
  EXPECT_EQ(links[0].target.channel, 15);
  EXPECT_EQ(links[1].to, -500);
  EXPECT_EQ(links[2].when, rack::Condition::CylinderAlarm);
  EXPECT_EQ(links[3].when, rack::Condition::CylinderStands);
  EXPECT_EQ(links[3].from, 15);
  EXPECT_EQ(links[4].goal, 4U);
  EXPECT_EQ(links[4].from, 100);
  EXPECT_EQ(links[4].inverted, 1);
  EXPECT_STREQ(setup->image.linkNames[4], "parts");
  EXPECT_STREQ(rack::FindSignal(setup->image, "home")->name, "home");
  EXPECT_EQ(rack::FindSignal(setup->image, "Home"), nullptr);
}

TEST(RackFileTest, EveryFindingNamesItsPlace) {
  EXPECT_EQ(ErrorsOf("[rack]\ntask_cuont = 2\n[slot]\n3 = \"io\"\n"),
            "rack.toml:2:14: unknown word \"task_cuont\"; did you mean \"task_count\"?\n"
            "rack.toml:3:1: unknown word \"slot\"; did you mean \"slots\"?\n");
  EXPECT_EQ(ErrorsOf("[rack]\ntask_count = 256\nfunction_port = 8\ndevice = \"isa\"\n"),
            "rack.toml:2:14: \"task_count\" wants a whole number from 0 to 255\n"
            "rack.toml:3:17: the ports below 9 are taken: \"function_port\" wants 9 to 255, or 0 for none\n"
            "rack.toml:4:10: unknown device \"isa\"; known: em_isa, em335x_isa, none\n");
  EXPECT_EQ(ErrorsOf("[slots]\n13 = \"io\"\n"), "rack.toml:2:6: no slot \"13\": plug-in slots are 1 to 12\n");
  EXPECT_EQ(ErrorsOf("[slots]\n3 = \"steper\"\n"),
            "rack.toml:2:5: unknown card \"steper\"; did you mean \"stepper\"?\n");
  EXPECT_EQ(ErrorsOf("[slots]\n3 = { card = \"cylinder\", travel_time = 5 }\n"),
            "rack.toml:2:40: \"travel_time\" wants a time such as \"300 ms\", \"1.5 s\" or \"20 min\"\n");
  // Fifteen positions further it would no longer fit into a time.
  EXPECT_EQ(ErrorsOf("[slots]\n3 = { card = \"cylinder\", travel_time = \"10000 min\" }\n"), "");
  EXPECT_EQ(ErrorsOf("[slots]\n3 = { card = \"cylinder\", travel_time = \"10001 min\" }\n"),
            "rack.toml:2:40: \"travel_time\" is longer than 10000 min\n");
}

TEST(RackFileTest, SignalsMustExistOnTheCardsThatAreThere) {
  EXPECT_EQ(ErrorsOf("[inputs]\na = \"1.0\"\n"),
            "rack.toml:2:5: no entry 1: this rack has the entries 0 to 0\n");
  EXPECT_EQ(ErrorsOf("[inputs]\na = \"0.16\"\n"),
            "rack.toml:2:5: the cpu card in entry 0 has inputs 0 to 15\n");
  EXPECT_EQ(ErrorsOf("[slots]\n1 = \"servo\"\n[outputs]\na = \"1.0\"\n"),
            "rack.toml:4:5: the servo card in entry 1 has no outputs\n");
  EXPECT_EQ(ErrorsOf("[inputs]\na = \"five\"\n"), "rack.toml:2:5: no input is called \"five\"\n");
  for (const std::string place : {"-0.5", "0.-0"}) {
    EXPECT_EQ(
        ErrorsOf("[inputs]\na = \"" + place + "\"\n"),
        "rack.toml:2:5: \"" + place + "\" is no address: entry and channel are wanted, such as \"0.5\"\n");
  }
  EXPECT_EQ(
      ErrorsOf("[slots]\n1 = \"cylinder\"\n[[cylinder]]\ncylinder = \"1.0\"\nswitches = { -0 = \"0.1\" }\n"),
      "rack.toml:5:19: no position \"-0\": a cylinder has the positions 0 to 15\n");
  EXPECT_EQ(ErrorsOf("[inputs]\na = \"0.1\"\n[outputs]\na = \"0.1\"\n"),
            "rack.toml:4:5: the name \"a\" is given twice\n");
  EXPECT_EQ(ErrorsOf("[inputs]\nclamped = \"0.1\"\n[[valve]]\noutput = \"0.1\"\nsensor = \"clampd\"\n"),
            "rack.toml:5:10: no input is called \"clampd\"; did you mean \"clamped\"?\n");
  EXPECT_EQ(ErrorsOf("[[stop]]\nmotor = \"0.0\"\nwhen_input = \"0.1\"\n"),
            "rack.toml:2:9: the cpu card in entry 0 has no motors\n");
}

TEST(RackFileTest, HalfADescriptionIsRefused) {
  EXPECT_EQ(
      ErrorsOf("[[arrival]]\ninput = \"0.0\"\n"),
      "rack.toml:1:1: exactly one of when_input, when_output, when_motor, when_cylinder and when_alarm is "
      "wanted here\n");
  EXPECT_EQ(ErrorsOf("[[valve]]\noutput = \"0.0\"\n"), "rack.toml:1:1: \"sensor\" is missing here\n");
  EXPECT_EQ(ErrorsOf("[valve]\noutput = \"0.0\"\n"), "rack.toml:1:1: \"valve\" is written as [[valve]]\n");
  EXPECT_EQ(ErrorsOf("inputs = 3\n"), "rack.toml:1:10: \"inputs\" is written as [inputs]\n");
}

TEST(RackFileTest, HardStopsLeaveAWayThatReachesTheSwitches) {
  const std::string axis = "[slots]\n2 = \"stepper\"\n[[axis]]\nmotor = \"1.3\"\n";
  const auto setup = std::make_unique<rack::RackSetup>();
  std::vector<std::string> errors;
  ASSERT_TRUE(rack::ReadRackText(axis + "stop_low = -20\nhigh = \"0.1\"\nhigh_at = 900\n", "rack.toml",
                                 *setup, errors));
  EXPECT_EQ(setup->image.cards[2].stepper.channels[3].hardStopLow, -20);
  EXPECT_EQ(setup->image.cards[2].stepper.channels[3].hardStopHigh, rack::kNoHardStop);
  EXPECT_EQ(ErrorsOf(axis + "stop_low = 5\nstop_high = 5\n"),
            "rack.toml:6:13: \"stop_high\" wants to be higher than \"stop_low\"\n");
  EXPECT_EQ(ErrorsOf(axis + "stop_low = 1\n"),
            "rack.toml:5:12: the motor stands at 0 at power-on: \"stop_low\" cannot be above that\n");
  EXPECT_EQ(ErrorsOf(axis + "stop_high = -1\n"),
            "rack.toml:5:13: the motor stands at 0 at power-on: \"stop_high\" cannot be below that\n");
  EXPECT_EQ(ErrorsOf(axis + "stop_low = -5\nstop_high = 100\nhome = \"0.0\"\nhome_at = 101\nlow = \"0.1\"\n"
                            "low_at = -5\nhigh = \"0.2\"\nhigh_at = 200\n"),
            "rack.toml:8:11: \"home_at\" lies beyond \"stop_high\": the motor never gets there\n"
            "rack.toml:12:11: \"high_at\" lies beyond \"stop_high\": the motor never gets there\n");
  EXPECT_EQ(
      ErrorsOf(axis + "stop_low = -5\nlow = \"0.1\"\nlow_at = -6\n[[axis]]\nmotor = \"1.3\"\nstop_high = 9\n"
                      "[[counter]]\nname = \"a\"\nwhen_motor = \"1.3\"\nfrom = -9\nto = -6\n"),
      "rack.toml:7:10: \"low_at\" lies beyond \"stop_low\": the motor never gets there\n"
      "rack.toml:9:9: another [[axis]] gives this motor hard stops already\n"
      "rack.toml:15:6: \"to\" lies beyond \"stop_low\": the motor never gets there\n");
}

TEST(RackFileTest, RulesAreNotesForTheTools) {
  const auto setup = std::make_unique<rack::RackSetup>();
  std::vector<std::string> errors;
  rack::RackNotes notes;
  ASSERT_TRUE(rack::ReadRackText(R"([[rule]]
name = "held"
never_together = ["spindle on", "clamped off", "anything"]
for = "50 ms"
[[rule]]
name = "shut"
while = "spindle on"
always = "guard on"
[[rule]]
name = "answers"
after = "key Enter"
comes = "lamp on"
within = "2 s"
)",
                                 "rack.toml", *setup, errors, &notes));
  ASSERT_EQ(notes.rules.size(), 3U);
  EXPECT_EQ(notes.rules[0].name.text, "held");
  EXPECT_EQ(notes.rules[0].form, rack::RuleForm::NeverTogether);
  ASSERT_EQ(notes.rules[0].happenings.size(), 3U);
  EXPECT_EQ(notes.rules[0].happenings[2].text, "anything");
  EXPECT_EQ(notes.rules[0].happenings[2].line, 3U);
  EXPECT_EQ(notes.rules[0].happenings[2].column, 48U);
  EXPECT_EQ(notes.rules[0].time, 50'000'000);
  EXPECT_EQ(notes.rules[1].form, rack::RuleForm::Always);
  EXPECT_EQ(notes.rules[1].happenings[0].text, "spindle on");
  EXPECT_EQ(notes.rules[1].happenings[1].text, "guard on");
  EXPECT_EQ(notes.rules[2].form, rack::RuleForm::Comes);
  EXPECT_EQ(notes.rules[2].happenings[0].text, "key Enter");
  EXPECT_EQ(notes.rules[2].happenings[1].text, "lamp on");
  EXPECT_EQ(notes.rules[2].time, 2'000'000'000);
}

TEST(RackFileTest, ARuleThatIsNotWholeIsRefused) {
  EXPECT_EQ(ErrorsOf("[[rule]]\nnever_together = [\"a on\", \"b on\"]\n"),
            "rack.toml:1:1: \"name\" is missing here\n");
  EXPECT_EQ(ErrorsOf("[[rule]]\nname = \"a\"\n"),
            "rack.toml:1:1: exactly one of never_together, while, after is wanted here\n");
  EXPECT_EQ(ErrorsOf("[[rule]]\nname = \"a\"\nnever_togehter = [\"a on\", \"b on\"]\n"),
            "rack.toml:1:1: exactly one of never_together, while, after is wanted here\n"
            "rack.toml:3:18: unknown word \"never_togehter\"; did you mean \"never_together\"?\n");
  EXPECT_EQ(ErrorsOf("[[rule]]\nname = \"a\"\nnever_together = [\"a on\"]\n"),
            "rack.toml:3:18: \"never_together\" wants two or more that must not be together\n");
  EXPECT_EQ(ErrorsOf("[[rule]]\nname = \"a\"\nnever_together = \"a on\"\n"),
            "rack.toml:3:18: \"never_together\" wants a list such as [\"spindle on\", \"clamped off\"]\n");
  EXPECT_EQ(ErrorsOf("[[rule]]\nname = \"a\"\nwhile = \"a on\"\nwithin = \"1 s\"\n"),
            "rack.toml:1:1: \"always\" is missing here\n"
            "rack.toml:4:10: \"within\" does not go with \"while\"\n");
  EXPECT_EQ(ErrorsOf("[[rule]]\nname = \"a\"\nafter = \"a on\"\ncomes = 3\nwithin = \"soon\"\n"),
            "rack.toml:4:9: a text in quotes is wanted here\n"
            "rack.toml:5:10: \"within\" wants a time such as \"300 ms\", \"1.5 s\" or \"20 min\"\n");
  EXPECT_EQ(ErrorsOf("[[rule]]\nname = \" \"\nafter = \"a on\"\ncomes = \"b on\"\n"),
            "rack.toml:1:1: \"within\" is missing here\n"
            "rack.toml:2:8: a rule's name says what must hold\n");
  const std::string rule = "[[rule]]\nname = \"a\"\nwhile = \"a on\"\nalways = \"b on\"\n";
  EXPECT_EQ(ErrorsOf(rule + rule), "rack.toml:6:8: the rule \"a\" is given twice\n");
  EXPECT_EQ(ErrorsOf("explore = 3\n"), "rack.toml:1:11: \"explore\" is written as [explore]\n");
}

TEST(RackFileTest, AnExplorationIsKeptWordByWord) {
  const auto setup = std::make_unique<rack::RackSetup>();
  std::vector<std::string> errors;
  rack::RackNotes notes;
  ASSERT_TRUE(rack::ReadRackText(R"([explore]
leave_out = ["bus", "hand", "order"]
goes_on = "counter parts"
within = "12 s"
way_back = ["Dec", "4 s", "Enter", "Enter"]
known = [{ find = "a", reason = "b" }]
)",
                                 "rack.toml", *setup, errors, &notes));
  const rack::Exploration& explore = notes.explore;
  EXPECT_EQ(*explore.leaveOut,
            (std::vector<rack::Disturbance>{rack::Disturbance::Bus, rack::Disturbance::Hand,
                                            rack::Disturbance::Order}));
  EXPECT_STREQ(rack::WordOf(rack::Disturbance::Hand), "hand");
  EXPECT_STREQ(rack::WordOf(rack::Disturbance::Silent), "silent");
  EXPECT_EQ(explore.goesOn->text, "counter parts");
  EXPECT_EQ(explore.goesOn->line, 3U);
  EXPECT_EQ(explore.goesOn->column, 11U);
  EXPECT_EQ(*explore.within, 12'000'000'000);
  ASSERT_EQ(explore.wayBack->size(), 3U);
  EXPECT_EQ((*explore.wayBack)[1].name.text, "Enter");
  EXPECT_EQ((*explore.wayBack)[1].name.column, 27U);
  EXPECT_FALSE((*explore.wayBack)[0].pause);
  EXPECT_EQ(*(*explore.wayBack)[1].pause, 4'000'000'000);
  EXPECT_FALSE((*explore.wayBack)[2].pause);
  ASSERT_EQ(explore.known->size(), 1U);
  EXPECT_EQ((*explore.known)[0].find, "a");
  EXPECT_EQ((*explore.known)[0].reason, "b");

  rack::Exploration other;
  other.within = 1;
  other.leaveOut.emplace();
  const rack::Exploration replaced = rack::ReplacedBy(explore, other);
  EXPECT_TRUE(replaced.leaveOut->empty());
  EXPECT_EQ(*replaced.within, 1);
  EXPECT_EQ(replaced.goesOn->text, "counter parts");
  EXPECT_EQ(replaced.wayBack->size(), 3U);
}

TEST(RackFileTest, WhatAnExplorationCannotBeIsRefused) {
  const auto errorsOf = [](const std::string& words) { return ErrorsOf("[explore]\n" + words + "\n"); };
  EXPECT_EQ(errorsOf(""), "");
  EXPECT_EQ(errorsOf("leave_out = []\nway_back = []\nknown = []"), "");
  EXPECT_EQ(errorsOf("leaves_out = [\"bus\"]"),
            "rack.toml:2:14: unknown word \"leaves_out\"; did you mean \"leave_out\"?\n");
  EXPECT_EQ(errorsOf("leave_out = [\"bus\", \"pulls\"]"),
            "rack.toml:2:21: unknown disturbance \"pulls\"; did you mean \"pulled\"?\n");
  EXPECT_EQ(errorsOf("leave_out = \"bus\""),
            "rack.toml:2:13: \"leave_out\" wants a list such as [\"bus\", \"pulled\"]\n");
  EXPECT_EQ(errorsOf("goes_on = 3"), "rack.toml:2:11: a text in quotes is wanted here\n");
  EXPECT_EQ(errorsOf("within = 12"),
            "rack.toml:2:10: \"within\" wants a time such as \"300 ms\", \"1.5 s\" or \"20 min\"\n");
  EXPECT_EQ(errorsOf("way_back = [\"4 s\", \"Dec\"]"),
            "rack.toml:2:13: a time stands between two keys here\n");
  EXPECT_EQ(errorsOf("way_back = [\"Dec\", \"4 s\", \"1 s\", \"Enter\"]"),
            "rack.toml:2:27: a time stands between two keys here\n");
  EXPECT_EQ(errorsOf("way_back = [\"Dec\", \"4 s\"]"), "rack.toml:2:20: no key follows this time\n");
  EXPECT_EQ(errorsOf("known = [{ find = \"a\", raeson = \"b\" }]"),
            "rack.toml:2:10: \"reason\" is missing here\n"
            "rack.toml:2:33: unknown word \"raeson\"; did you mean \"reason\"?\n");
  EXPECT_EQ(errorsOf("known = [{ find = \" \", reason = \"b\" }]"), "rack.toml:2:19: \"find\" is empty\n");
  EXPECT_EQ(errorsOf("known = [\"a\"]"),
            "rack.toml:2:10: \"known\" wants a list such as [{ find = \"...\", reason = \"...\" }]\n");
}

TEST(RackFileTest, BadTomlIsOneErrorWithItsPlace) {
  const std::pair<std::string, std::string> files[] = {
      {"[rack]\ntask_count 3\n", "2:11: missing key-value separator `=`"},
      {"a = tru # ^--- | x\n", "1:5: the next token is not a boolean"},
      {"a = 0x\n", "1:5: the next token is not an integer"},
      {"a = 0b2\n", "1:5: the next token is not an integer"},
      {"a = 0o8\n", "1:5: the next token is not an integer"},
      {"a = 01\n", "1:5: bad integer: leading zero"},
      {"a = 1.\n", "1:6: bad float: invalid format"},
      {"a = 1\r\nab =\r\n", "2:5: missing value after key-value separator '='"},
      {"[rack] x\n", "1:7: newline required after [table.key]"},
      {"[rack]\n   ab == 1\n", "2:8: bad format: unknown value appeared"},
      {"a = [1, 'x' 'y']\n", "1:13: missing array separator `,` after a value"},
      {"a = [1,\n 2,\n 3 4]\n", "3:4: missing array separator `,` after a value"},
      {"a = { b = 1, c }\n", "1:15: missing key-value separator `=`"},
      {"a = 1\nbc = 2020-13-01\n", "2:16: invalid date: it does not conform RFC3339."},
      {"a = 1\n\na = 2\n", "3:5: value (\"a\") already exists."},
      {"= 3\n", "1:1: empty key is not allowed."},
      {"[", "1:1: an invalid key appeared."},
      {"[rack]\n" + std::string(1, '\0'), "2:1: an invalid key appeared."},
      {"a = \"\xFF\"\n", "1:6: the byte \\xff is no UTF-8"},
      {"[rack]\n\na = '\xC3\xA4\xC3'\n", "3:8: the byte \\xc3 is no UTF-8"},
      {"[inputs]\na = \"no\\nne\"\n", "2:5: no input is called \"no\\x0ane\""}};
  for (const auto& [text, error] : files) EXPECT_EQ(ErrorsOf(text), "rack.toml:" + error + "\n");
  EXPECT_EQ(ErrorsOf("\xEF\xBB\xBF[rack]\ntask_count = 2\n"), "");
}

TEST(RackFileTest, WhatLiesInEachOtherTooDeepIsRefusedBeforeItIsParsed) {
  const auto times = [](int count, const std::string& part) {
    std::string text;
    for (int i = 0; i < count; ++i) text += part;
    return text;
  };
  const std::string deep = "nested too deep: at most 64 brackets, or parts of a key\n";
  EXPECT_EQ(ErrorsOf("[rack]\na = " + times(200000, "[")), "rack.toml:2:69: " + deep);
  EXPECT_EQ(ErrorsOf("a = " + times(200000, "{a=")), "rack.toml:1:197: " + deep);
  EXPECT_EQ(ErrorsOf("a" + times(200000, ".a") + " = 1"), "rack.toml:1:128: " + deep);
  // Brackets and dots in strings and comments, or one after the other, are not deep.
  const std::string flat = "a = [" + times(100, "[1.5, '[', \"\\\"[\"],") + "]\n";
  const std::string words = "b = \"\"\"\n\"" + times(100, "[") + "\"\"\"\nc = '" + times(100, "{.") + "' # " +
                            times(100, "[") + "\n";
  EXPECT_THAT(ErrorsOf(flat + words), testing::StartsWith("rack.toml:1:5: unknown word \"a\""));
  EXPECT_THAT(ErrorsOf("a = " + times(64, "[") + times(64, "]")), testing::HasSubstr("unknown word"));
}

TEST(RackFileTest, EachErrorOfABrokenFileHasItsPlaceAndAText) {
  const std::string good =
      "[rack]\ntask_count = 2\nbus_access_ns = 1_000\non_at_start = true\n[slots]\n2 = \"io\"\n"
      "5 = { card = \"cylinder\", travel_time = \"1.5 s\", strict = true }\n[inputs]\nhome = \"0.15\" # no "
      "comment\n[[cylinder]]\ncylinder = \"2.0\"\nswitches = { 15 = '0.4', 0 = \"\"\"0.5\"\"\" }\n";
  const std::string pieces("[]{}=\"'.,#\n\r\\_0x\0\x01\x7F\xC3\xFF", 21);
  std::mt19937 random(1);
  const auto below = [&](std::size_t limit) { return random() % limit; };
  const testing::Matcher<std::string> rightLine =
      testing::MatchesRegex("rack\\.toml:[1-9][0-9]*:[1-9][0-9]*: .*[A-Za-z].*");
  std::size_t broken = 0;
  for (int i = 0; i < 600; ++i) {
    std::string text = good;
    for (std::size_t slips = 1 + below(3); slips > 0; --slips) {
      const std::size_t at = below(text.size());
      const char piece = pieces[below(pieces.size())];
      const std::size_t way = below(8);
      if (way == 0) text.resize(at + 1);
      if (way == 1 || way == 2) text.erase(at, 1 + below(4));
      if (way >= 3 && way <= 5) text.insert(at, 1, piece);
      if (way >= 6) text[at] = piece;
      if (text.empty()) text = piece;
    }
    const auto setup = std::make_unique<rack::RackSetup>();
    std::vector<std::string> errors;
    const bool right = rack::ReadRackText(text, "rack.toml", *setup, errors);
    EXPECT_EQ(right, errors.empty());
    EXPECT_THAT(errors, testing::Each(rightLine)) << text;
    if (!errors.empty()) ++broken;
  }
  EXPECT_GT(broken, 300U);
}

TEST(RackFileTest, RulesThatTheCheckerIgnoresAreNotedWithTheirPlace) {
  const std::string text = "[rack]\ntask_count = 2\n[check]\nignore = [\"long-delay\",\n  \"lost-text\"]\n";
  const auto setup = std::make_unique<rack::RackSetup>();
  std::vector<std::string> errors;
  rack::RackNotes notes;
  ASSERT_TRUE(rack::ReadRackText(text, "rack.toml", *setup, errors, &notes));
  ASSERT_EQ(notes.ignored.size(), 2U);
  EXPECT_EQ(notes.ignored[0].text, "long-delay");
  EXPECT_EQ(notes.ignored[1].text, "lost-text");
  EXPECT_EQ(notes.ignored[1].line, 5U);
  EXPECT_EQ(notes.ignored[1].column, 3U);
  EXPECT_EQ(ErrorsOf(text), "");
  EXPECT_EQ(ErrorsOf("[check]\nignore = \"long-delay\"\n"),
            "rack.toml:2:10: \"ignore\" wants a list such as [\"long-delay\", \"lost-text\"]\n");
  EXPECT_EQ(ErrorsOf("[check]\nignore = [3]\n"), "rack.toml:2:11: a text in quotes is wanted here\n");
  EXPECT_EQ(ErrorsOf("[check]\nignored = []\n"),
            "rack.toml:2:11: unknown word \"ignored\"; did you mean \"ignore\"?\n");
}

TEST(RackFileTest, WhatIsNoFileSaysWhy) {
  const auto setup = std::make_unique<rack::RackSetup>();
  std::vector<std::string> errors;
  EXPECT_FALSE(rack::ReadRackFile("/", *setup, errors));
  EXPECT_FALSE(rack::ReadRackFile("/none/rack.toml", *setup, errors));
  EXPECT_EQ(errors,
            (std::vector<std::string>{"/: Is a directory", "/none/rack.toml: No such file or directory"}));
}

}  // namespace
