// A fresh working directory for each test.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

class ScratchTest : public testing::Test {
 protected:
  void SetUp() override {
    home = std::filesystem::current_path();
    char name[] = "/tmp/velmo-test-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    directory = name;
    std::filesystem::current_path(directory);
  }
  void TearDown() override {
    std::filesystem::current_path(home);
    std::filesystem::remove_all(directory);
  }

  static void Write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
  }
  static std::string Read(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
  }

  std::filesystem::path home;
  std::filesystem::path directory;
};
