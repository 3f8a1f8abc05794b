// The terminal as a screen: rows with colours, and what is typed.
#pragma once

#include <vector>

#include "machine/overview.h"

namespace rack::cli {

// Takes the terminal's other screen while it lives, and gives the terminal back as it was. One at a time.
class Screen {
 public:
  // Typed, beside characters.
  static constexpr int kNothing = -1;
  static constexpr int kUp = -2;
  static constexpr int kDown = -3;
  static constexpr int kResized = -4;
  static constexpr int kEnter = '\n';

  Screen();
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  // False when nobody knows this kind of terminal.
  bool Opened() const { return opened_; }
  ScreenSize Size() const;
  // Rows beyond the screen's last one are left out.
  void Draw(const std::vector<ScreenRow>& rows);
  // The next key, kNothing when none is waiting.
  int Typed();
  // Whether the terminal has been closed.
  bool Gone() const;

 private:
  bool opened_ = false;
  bool typed_ = false;  // keys can be read
  bool colours_ = false;
};

}  // namespace rack::cli
