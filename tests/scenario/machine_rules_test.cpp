// The rules of a machine's rack file, which every tool reads.
#include <gtest/gtest.h>

#include "scenario/shell.h"

namespace {

class MachineRulesTest : public testing::Test {
 protected:
  void SetUp() override {
    Run("velmo-rack new m && rm m/scenarios/*");
    Run("printf '[[expect]]\\nthat = \"output 0.0 off\"\\nat = \"300 ms\"\\n' > m/scenarios/off.toml");
  }
  std::string Run(const std::string& command) { return shell.Run(command); }
  void Add(const std::string& text) { Run("cat >> m/rack.toml <<'END'\n" + text + "END"); }

  Shell shell;
};

TEST_F(MachineRulesTest, EveryToolAcceptsThem) {
  Add("[[rule]]\nname = \"one at a time\"\nnever_together = [\"output 0.4 on\", \"output 0.5 on\"]\n"
      "for = \"50 ms\"\n"
      "[[rule]]\nname = \"lamp\"\nwhile = \"output 0.4 on\"\nalways = \"output 0.6 on\"\n"
      "[[rule]]\nname = \"answers\"\nafter = \"key Enter\"\nwithin = \"1 s\"\ncomes = \"console prints "
      "Run\"\n"
      "[[counter]]\nname = \"parts\"\nwhen_input = \"0.0\"\n"
      "[explore]\nleave_out = [\"bus\"]\ngoes_on = \"counter parts\"\nwithin = \"12 s\"\n"
      "way_back = [\"Dec\", \"4 s\", \"enter\"]\n");
  Run("printf '[explore]\\ngoes_on = \"output 0.4 on\"\\n' >> m/scenarios/off.toml");
  EXPECT_EQ(Run("velmo-check m"), "no findings\n");
  Run("velmo-rack test m");
  EXPECT_EQ(shell.Status(), 0);
  Run("velmo-rack run --time virtual --for 100ms m");
  EXPECT_EQ(shell.Status(), 0);
}

TEST_F(MachineRulesTest, EveryToolSaysWhatIsWrongInThem) {
  Run("echo '[slots]' > m/rack.toml");
  Add("[outputs]\nspindle = \"0.1\"\n"
      "[[rule]]\nname = \"held\"\nnever_together = [\"spindel on\", \"key Enter\"]\n"
      "[[rule]]\nname = \"comes\"\nafter = \"motor 0.0 starts\"\nwithin = \"1 s\"\ncomes = \"spindle\"\n"
      "[[counter]]\nname = \"parts\"\nwhen_input = \"0.0\"\n"
      "[explore]\ngoes_on = \"counter part\"\nway_back = [\"Dek\"]\n");
  for (const std::string command :
       {"velmo-check m", "velmo-rack test m", "velmo-rack run --time virtual --for 1s m"}) {
    SCOPED_TRACE(command);
    const std::string said = Run(command + " 2>&1");
    EXPECT_NE(shell.Status(), 0);
    const std::string level = command == "velmo-check m" ? "error: " : "";
    for (const auto& [place, message] :
         {std::pair{"rack.toml:6:19: ", "no signal is called \"spindel\"; did you mean spindle?"},
          {"rack.toml:6:33: ", "\"key Enter\" happens and is over; a state that lasts is wanted here"},
          {"rack.toml:9:9: ", "0.0: entry 0 (cpu) has no motors; cards with them: none"},
          {"rack.toml:11:9: ", "\"spindle\" is nothing that can happen"},
          {"rack.toml:16:11: ", "no counter is called \"part\"; did you mean parts?"},
          {"rack.toml:17:13: ", "there is no key \"Dek\"; did you mean Dec?"}}) {
      EXPECT_NE(said.find(place + level + message), said.npos) << said;
    }
  }
}

TEST_F(MachineRulesTest, AScenarioSaysWhatIsWrongInItsExploration) {
  Run("printf '[explore]\\ngoes_on = \"nothing\"\\nway_back = [\"Enter\", \"Plas\"]\\nwihtin = \"1 s\"\\n' "
      ">> "
      "m/scenarios/off.toml");
  const std::string said = Run("velmo-rack test m 2>&1");
  EXPECT_EQ(shell.Status(), 2);
  for (const char* message : {"off.toml:5:11: \"nothing\" is nothing that can happen",
                              "off.toml:6:22: there is no key \"Plas\"; did you mean Plus?",
                              "off.toml:7:10: unknown word \"wihtin\"; did you mean \"within\"?"}) {
    EXPECT_NE(said.find(message), said.npos) << said;
  }
}

}  // namespace
