// What is looked at before and while a controller starts.
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

#include "machine/card_table.h"
#include "machine/elf_header.h"
#include "machine/launch.h"
#include "machine/supervise.h"
#include "support/scratch.h"

namespace {

using rack::WhyNotPreloaded;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class StartTest : public ScratchTest {};

// The head of a file for a processor, and nothing else.
void MakeElf(const std::string& path, unsigned char width, std::uint16_t type, std::uint16_t processor) {
  Elf32_Ehdr head = {};
  std::memcpy(head.e_ident, ELFMAG, SELFMAG);
  head.e_ident[EI_CLASS] = width;
  head.e_type = type;
  head.e_machine = processor;
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(&head), sizeof head);
}

TEST_F(StartTest, ALibraryFitsAControllerOfItsWidthAndProcessor) {
  MakeElf("controller32", ELFCLASS32, ET_EXEC, EM_ARM);
  MakeElf("controller64", ELFCLASS64, ET_DYN, EM_X86_64);
  MakeElf("library32", ELFCLASS32, ET_DYN, EM_ARM);
  MakeElf("library64", ELFCLASS64, ET_DYN, EM_X86_64);
  MakeElf("libraryarm64", ELFCLASS64, ET_DYN, EM_AARCH64);
  Write("script", "#!/bin/sh\n");
  EXPECT_EQ(WhyNotPreloaded("controller32", "library32"), "");
  EXPECT_EQ(WhyNotPreloaded("controller64", "library64"), "");
  EXPECT_EQ(WhyNotPreloaded("script", "library32"), "");
  EXPECT_EQ(WhyNotPreloaded("controller32", "library64"),
            "it has 64 bits, the controller 32 bits; --library takes another one");
  EXPECT_EQ(WhyNotPreloaded("controller64", "libraryarm64"),
            "it is for another processor than the controller");
  EXPECT_EQ(WhyNotPreloaded("controller32", "controller32"), "controller32: no shared library");
  EXPECT_EQ(WhyNotPreloaded("controller32", "script"), "script: no shared library");
  EXPECT_EQ(WhyNotPreloaded("controller32", "missing"), "missing: No such file or directory");
}

// In the path there is an emulator that only notes that it was started.
TEST_F(StartTest, AControllerForAnotherProcessorGetsAnEmulatorAndTheLibraryInsideIt) {
#if !defined(__x86_64__)
  GTEST_SKIP() << "other processors run some of these files themselves";
#endif
  MakeElf("arm", ELFCLASS32, ET_EXEC, EM_ARM);
  MakeElf("intel32", ELFCLASS32, ET_EXEC, EM_386);
  MakeElf("library", ELFCLASS32, ET_DYN, EM_ARM);
  std::filesystem::permissions("arm", std::filesystem::perms::owner_all);
  Write("script", "#!/bin/sh\n");
  EXPECT_EQ(rack::EmulatorOf("arm"), "qemu-arm");
  for (const char* own : {"intel32", "script", "/proc/self/exe", "missing"}) {
    EXPECT_EQ(rack::EmulatorOf(own), "") << own;
  }

  const std::string path = std::getenv("PATH");
  setenv("PATH", "/nowhere:.", 1);
  EXPECT_EQ(rack::WhyNotStart("arm", "library"),
            "controller arm is for another processor, and qemu-arm (Debian: qemu-user) is not in the path");
  Write("qemu-arm", "#!/bin/sh\n");
  std::filesystem::permissions("qemu-arm", std::filesystem::perms::owner_all);
  EXPECT_EQ(rack::WhyNotStart("arm", "library"), "");
  const rack::Launch launch = rack::MakeLaunch(".", "arm", "3");
  EXPECT_EQ(launch.controller, "./qemu-arm");
  EXPECT_THAT(launch.arguments, ElementsAre("-E", "LD_PRELOAD=./.velmo-rack/libvelmo-rack.so", "arm", "3"));
  EXPECT_EQ(launch.environment.front(), "LD_PRELOAD=");
  setenv("PATH", path.c_str(), 1);
}

TEST_F(StartTest, ACardTableIsJudgedOnlyFromASteadyState) {
  const auto state = std::make_unique<rack::RackState>();
  const auto setup = std::make_unique<rack::RackSetup>();
  rack::MakeEmptySetup(*setup);
  rack::InsertCard(*setup, 3, rack::CardKind::Io);
  rack::AssignEntries(*setup);
  rack::PowerOn(*state, *setup, 0);
  rack::CardTableWatch watch(*state);
  EXPECT_THAT(watch(), IsEmpty());
  state->live.scan.over = 1;
  state->live.scan.slots[3].probe = rack::Probe::Read;
  state->live.scan.slots[3].code = 0x12;
  state->live.change.fetch_or(1U);  // in the middle of a change, as of a controller that starts again
  EXPECT_THAT(watch(), IsEmpty());
  state->live.change.fetch_add(1U);
  EXPECT_THAT(watch(), ElementsAre(HasSubstr("slot 3: the controller has read 0x12 and knows no such card")));
  EXPECT_THAT(watch(), IsEmpty());
}

}  // namespace
