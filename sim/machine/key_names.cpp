#include "machine/key_names.h"

#include "toml/words.h"

namespace rack {

namespace {

struct Row {
  Key key;
  const char* alias;           // a second name, or null
  const char* word = nullptr;  // a third one
};

// Codes of the numeric keypad, scan code set 2. The reset key carries the minus sign; the decimal point
// yields no key in the controller, but the card latches its code as any other.
constexpr Row kRows[] = {
    {{"0", 0x70, false}, nullptr},   {{"1", 0x69, false}, nullptr},      {{"2", 0x72, false}, nullptr},
    {{"3", 0x7A, false}, nullptr},   {{"4", 0x6B, false}, nullptr},      {{"5", 0x73, false}, nullptr},
    {{"6", 0x74, false}, nullptr},   {{"7", 0x6C, false}, nullptr},      {{"8", 0x75, false}, nullptr},
    {{"9", 0x7D, false}, nullptr},   {{"Enter", 0x5A, false}, "Return"}, {{"Dec", 0x7B, false}, "-", "minus"},
    {{"Plus", 0x79, false}, "+"},    {{"Num", 0x77, false}, "NumLock"},  {{"Star", 0x7C, false}, "*"},
    {{"Slash", 0x4A, false}, "/"},   {{"Point", 0x71, false}, "."},      {{"RUN", 0x08, true}, nullptr},
    {{"STEP", 0x04, true}, nullptr}, {{"ZERO", 0x02, true}, nullptr},    {{"CANCEL", 0x01, true}, nullptr},
};

}  // namespace

std::optional<Key> FindKey(std::string_view name) {
  const std::string wanted = Lower(name);
  for (const Row& row : kRows) {
    if (wanted == Lower(row.key.name)) return row.key;
    if (row.alias != nullptr && wanted == Lower(row.alias)) return row.key;
    if (row.word != nullptr && wanted == Lower(row.word)) return row.key;
  }
  return std::nullopt;
}

std::optional<Key> KeyOfCode(std::uint8_t code) {
  for (const Row& row : kRows) {
    if (!row.key.function && row.key.code == code) return row.key;
  }
  return std::nullopt;
}

std::optional<Key> FunctionKeyOfBit(int bit) {
  for (const Row& row : kRows) {
    if (row.key.function && row.key.code == 1 << bit) return row.key;
  }
  return std::nullopt;
}

std::vector<std::string> KeyNames() {
  std::vector<std::string> names;
  for (const Row& row : kRows) names.emplace_back(row.key.name);
  for (const Row& row : kRows) {
    if (row.alias != nullptr) names.emplace_back(row.alias);
    if (row.word != nullptr) names.emplace_back(row.word);
  }
  return names;
}

}  // namespace rack
