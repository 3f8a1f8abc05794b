// The hand keypad's keys by name.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rack {

// A key as the operator names it. A keypad key is a make code that the CPU card latches; a function key is a
// bit of the card's function-key register.
struct Key {
  const char* name;   // as shown: "Enter", "5", "STEP"
  std::uint8_t code;  // make code of scan code set 2, or the register's bit for a function key
  bool function;      // a key of the function-key register
};

// The key of a name in any letter case; nothing when there is none.
std::optional<Key> FindKey(std::string_view name);

// The key a make code belongs to; nothing for a code without one.
std::optional<Key> KeyOfCode(std::uint8_t code);

// The function key of a bit of the register, 0 for the lowest; nothing for a bit without one.
std::optional<Key> FunctionKeyOfBit(int bit);

// Every name that FindKey knows, the usual one of each key first.
std::vector<std::string> KeyNames();

}  // namespace rack
