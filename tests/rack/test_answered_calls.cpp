// What the controller calls of the C library, as `nm` shows it of each way to build it: every call is answered
// in the controller's place, or passed on knowingly.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "preload/answered_calls.h"

namespace {

using Names = std::set<std::string>;
using testing::Contains;
using testing::IsEmpty;

#define NAME(name, result, parameters) #name,
#define REFUSED_NAME(name, result, parameters, arguments) #name,
const Names kAnswered = {RACK_CALLS(NAME)};
const Names kRefused = {RACK_REFUSED_CALLS(REFUSED_NAME) RACK_FIBRE_REFUSED_CALLS(REFUSED_NAME)};
#undef REFUSED_NAME
#undef NAME

const std::vector<Names> kPassedOn = {
    // Texts, memory and numbers: neither wait nor leave the process. Fortified builds check some of them.
    {"bcmp", "memchr", "memcmp", "memcpy", "memmove", "memset", "snprintf", "strchr", "strcmp", "strcpy",
     "strcspn", "strerror", "strlen", "strnlen", "strspn", "strtod", "strtok_r", "strtoll", "vsnprintf"},
    {"htonl", "htons", "inet_ntop", "ntohs"},
    // Streams that an answered call has opened, and what lies in the machine's directory.
    {"closedir", "ferror", "fread", "fwrite", "opendir", "readdir64", "remove", "rename"},
    // Asked only whether a path is a file; the copy in the board's home may be another one here.
    {"stat64"},
    // The console's descriptors, before anything is printed.
    {"dup2", "fstat64", "isatty"},
    // Standard error shows what keeps the controller from starting; the console is standard output.
    {"perror"},
    // The socket is the system's; the run's own network takes it over when it is bound.
    {"socket"},
    // Nobody waits in them.
    {"pthread_mutex_init"},
#ifdef VELMO_SANITIZED
    {"pthread_detach"},
#endif
    {"exit", "signal"},
};

// The compiler's own: start and end of a program, exceptions, new and delete. A class of the C++ library is none
// of them: what it calls does not show here.
const char* const kRuntime[] = {
    "_ITM_",
    "_Unwind_",
    "_Zda",
    "_Zdl",
    "_Zna",
    "_Znw",
    "_ZTIN10__cxxabiv1",
    "_ZTVN10__cxxabiv1",
    "_ZSt7nothrow",
    "_ZSt9terminate",
    "__aeabi_",
    "__cxa_",
    "__dynamic_cast",
    "__errno_location",
    "__gmon_start__",
    "__gxx_personality_v0",
    "__libc_start_main",
    "__stack_chk_fail",
    "abort",
};
const char* const kSanitizers[] = {"__asan_", "__sancov_", "__sanitizer_", "__tsan_", "__ubsan_"};

bool Begins(const std::string& text, const std::string& with) {
  return text.compare(0, with.size(), with) == 0;
}

template <class Prefixes>
bool BeginsWithOneOf(const std::string& name, const Prefixes& prefixes) {
  return std::any_of(std::begin(prefixes), std::end(prefixes),
                     [&](const char* prefix) { return Begins(name, prefix); });
}

// A throw that the library does out of line, "_ZSt20__throw_length_errorPKc".
bool IsThrow(const std::string& name) {
  return Begins(name, "_ZSt") && name.find("__throw_") != std::string::npos;
}

// The call as the source has it, of "__strcpy_chk", "__isoc23_strtoll" or "__stat64_time64".
std::string PlainName(const std::string& name) {
  const std::string standard = "__isoc23_";
  if (Begins(name, standard)) return name.substr(standard.size());
  for (const std::string end : {"_chk", "_time64"}) {
    const std::size_t at = name.rfind(end);
    const bool hasEnd = at != std::string::npos && at + end.size() == name.size();
    if (Begins(name, "__") && hasEnd) return name.substr(2, at - 2);
  }
  return name;
}

bool IsPassedOn(const std::string& name) {
  const std::string plain = PlainName(name);
  return std::any_of(kPassedOn.begin(), kPassedOn.end(),
                     [&](const Names& names) { return names.count(plain) != 0; });
}

bool IsDecided(const std::string& name) {
  return kAnswered.count(name) != 0 || IsPassedOn(name) || IsThrow(name) || BeginsWithOneOf(name, kRuntime) ||
         BeginsWithOneOf(name, kSanitizers);
}

// Dynamic symbols without their versions; weak ones too.
Names Symbols(const std::string& which, const std::string& file) {
  FILE* nm = popen((VELMO_NM " -D " + which + " --format=posix '" + file + "'").c_str(), "r");
  if (nm == nullptr) return {};
  std::string text;
  char piece[4096];
  std::size_t count;
  while ((count = fread(piece, 1, sizeof piece, nm)) > 0) text.append(piece, count);
  EXPECT_EQ(pclose(nm), 0) << file;
  Names names;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) names.insert(line.substr(0, line.find_first_of(" @")));
  return names;
}

std::vector<std::string> ControllerBuilds() {
  std::vector<std::string> builds;
  std::istringstream paths(CONTROLLER_BUILDS);
  for (std::string path; std::getline(paths, path, ':');) builds.push_back(path);
  return builds;
}

class ControllerBuildTest : public testing::TestWithParam<std::string> {};

TEST_P(ControllerBuildTest, EachCallIsAnsweredOrPassedOnKnowingly) {
  const Names calls = Symbols("--undefined-only", GetParam());
  ASSERT_THAT(calls, Contains("reboot"));
  Names undecided;
  for (const std::string& name : calls) {
    if (!IsDecided(name)) undecided.insert(name);
  }
  EXPECT_THAT(undecided, IsEmpty()) << "Rows of sim/preload/answered_calls.h, or known here to be passed on?";
}

std::string BuildName(const testing::TestParamInfo<std::string>& build) {
  std::string name = build.param.substr(build.param.rfind('/') + 1);
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(All, ControllerBuildTest, testing::ValuesIn(ControllerBuilds()), BuildName);

TEST(AnsweredCallsTest, TheLibraryExportsEachAndNoOtherCall) {
  Names exported;
  for (const std::string& name : Symbols("--defined-only", RACK_LIBRARY)) {
    if (!Begins(name, "_Z") && !BeginsWithOneOf(name, kSanitizers)) exported.insert(name);
  }
  Names known = kAnswered;
  known.insert(kRefused.begin(), kRefused.end());
  EXPECT_EQ(known.size(), kAnswered.size() + kRefused.size());
  std::vector<std::string> inOne;
  std::set_symmetric_difference(exported.begin(), exported.end(), known.begin(), known.end(),
                                std::back_inserter(inOne));
  EXPECT_THAT(inOne, IsEmpty());
}

TEST(AnsweredCallsTest, NoneIsAlsoPassedOn) {
  Names both;
  for (const Names& names : {kAnswered, kRefused}) {
    std::copy_if(names.begin(), names.end(), std::inserter(both, both.end()), IsPassedOn);
  }
  EXPECT_THAT(both, IsEmpty());
}

}  // namespace
