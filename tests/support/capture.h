// What a test's code writes to a descriptor, one text per system call.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

// Takes the descriptor's place from construction to the end of the scope.
class Capture {
 public:
  explicit Capture(int descriptor) : descriptor_(descriptor), saved_(dup(descriptor)) {
    std::fflush(nullptr);
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) ADD_FAILURE() << "no socket pair";
    dup2(ends[0], descriptor);
    close(ends[0]);
    reader_ = ends[1];
  }
  ~Capture() {
    std::fflush(nullptr);
    dup2(saved_, descriptor_);
    close(saved_);
    close(reader_);
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  std::vector<std::string> Writes() {
    std::vector<std::string> writes;
    char text[8192];
    ssize_t count;
    while ((count = recv(reader_, text, sizeof text, MSG_DONTWAIT)) > 0) {
      writes.emplace_back(text, static_cast<size_t>(count));
    }
    return writes;
  }

  std::string Text() {
    std::string all;
    for (const std::string& text : Writes()) all += text;
    return all;
  }

 private:
  int descriptor_;
  int saved_;
  int reader_ = -1;
};
