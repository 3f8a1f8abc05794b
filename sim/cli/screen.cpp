#include "cli/screen.h"

#include <curses.h>
#include <poll.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <cwchar>

namespace rack::cli {

namespace {

// How each look is drawn, with its pair of the terminal library.
struct LookRow {
  Look look;
  short pair;
  short colour;
  attr_t attribute;
};
constexpr LookRow kLooks[] = {
    {Look::Plain, 0, -1, A_NORMAL},
    {Look::Forced, 1, COLOR_YELLOW, A_BOLD},
    {Look::Faulty, 2, COLOR_RED, A_BOLD},
    {Look::Waiting, 3, COLOR_CYAN, A_NORMAL},
    {Look::Standing, 4, COLOR_MAGENTA, A_BOLD},
};
constexpr int kEscapeMillis = 25;

bool WantsColours() {
  const char* none = std::getenv("NO_COLOR");
  return (none == nullptr || *none == '\0') && has_colors();
}

// The text as the terminal can show it: what is no character of the locale becomes a question mark.
std::wstring Shown(const std::string& text) {
  std::wstring wide;
  for (std::size_t i = 0; i < text.size();) {
    std::mbstate_t state = {};
    wchar_t character = L'?';
    const std::size_t length = std::mbrtowc(&character, text.data() + i, text.size() - i, &state);
    const bool good = length >= 1 && length <= text.size() - i;
    wide += good && wcwidth(character) == 1 ? character : L'?';
    i += good ? length : 1;
  }
  return wide;
}

}  // namespace

Screen::Screen() {
  std::setlocale(LC_CTYPE, "");
  if (newterm(nullptr, stdout, stdin) == nullptr) return;
  opened_ = true;
  typed_ = isatty(STDIN_FILENO) == 1;
  cbreak();
  noecho();
  curs_set(0);
  keypad(stdscr, TRUE);
  set_escdelay(kEscapeMillis);
  nodelay(stdscr, TRUE);
  colours_ = WantsColours();
  if (!colours_) return;
  start_color();
  use_default_colors();
  for (const LookRow& row : kLooks) {
    if (row.pair != 0) init_pair(row.pair, row.colour, -1);
  }
}

Screen::~Screen() {
  if (opened_) endwin();
}

ScreenSize Screen::Size() const {
  return {LINES, COLS};
}

void Screen::Draw(const std::vector<ScreenRow>& rows) {
  erase();
  for (std::size_t i = 0; i < rows.size() && i < static_cast<std::size_t>(LINES); ++i) {
    move(static_cast<int>(i), 0);
    int left = COLS;
    for (const Piece& piece : rows[i]) {
      const LookRow& look = kLooks[static_cast<std::size_t>(piece.look)];
      attr_set(look.attribute, colours_ ? look.pair : static_cast<short>(0), nullptr);
      const std::wstring text = Shown(piece.text).substr(0, static_cast<std::size_t>(left));
      addnwstr(text.data(), static_cast<int>(text.size()));
      left -= static_cast<int>(text.size());
    }
  }
  attr_set(A_NORMAL, 0, nullptr);
  refresh();
}

int Screen::Typed() {
  if (!typed_) return kNothing;
  const int key = getch();
  switch (key) {
    case ERR:
      return kNothing;
    case KEY_UP:
      return kUp;
    case KEY_DOWN:
      return kDown;
    case KEY_RESIZE:
      return kResized;
    case KEY_ENTER:
    case '\r':
      return kEnter;
    default:
      return key;
  }
}

bool Screen::Gone() const {
  if (!typed_) return false;
  pollfd input = {STDIN_FILENO, 0, 0};
  return poll(&input, 1, 0) > 0 && (input.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

}  // namespace rack::cli
