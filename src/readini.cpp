#include "readini.h"

#include <cstdio>
#include <cstring>

#include "drvlib.h"
#include "files.h"
#include "numbers.h"

READINI ReadIni;

namespace {

constexpr int kReadSize = 256;   // a line of a configuration file, terminating zero included
constexpr int kValueSize = 300;  // a value on its way to a number
constexpr int kTokenSize = 257;  // a parameter on its way to a number
constexpr const char* kBlanks = " \n\r\t";
constexpr const char* kGroupStarts = "[<(";

constexpr int kFound = 0;
constexpr int kNoFile = -1;
constexpr int kNotFound = -2;

bool ReadLine(FILE* file, char (&line)[kReadSize]) {
  if (std::fgets(line, kReadSize, file) == nullptr) return false;
  ReadIni.GetZero(line);
  return true;
}

bool SkipToGroup(FILE* file, const char* group) {
  char line[kReadSize];
  while (ReadLine(file, line)) {
    if (stricmp(line, group) == 0) return true;
  }
  return false;
}

// Copies the values of an item line up to the wanted position; false when there was none to copy.
bool TakeValue(char* rest, int position, char* value) {
  bool taken = false;
  for (int i = 0; i <= position; ++i) {
    char* token = strtok_r(nullptr, ",", &rest);
    if (token == nullptr) break;
    ReadIni.GetZero(token);
    std::strcpy(value, token);
    taken = true;
  }
  return taken;
}

int FindItem(FILE* file, const char* item, int position, char* value) {
  char line[kReadSize];
  while (ReadLine(file, line)) {
    if (line[0] != '\0' && std::strchr(kGroupStarts, line[0]) != nullptr) return kNotFound;
    char* rest = nullptr;
    char* key = strtok_r(line, "=", &rest);
    if (key == nullptr) continue;
    ReadIni.GetZero(key);
    if (stricmp(key, item) != 0) continue;
    return TakeValue(rest, position, value) ? kFound : kNotFound;
  }
  return kNotFound;
}

template <class T, class Convert>
int ConvertedField(const char* fileName, const char* group, const char* item, int position, T& value,
                   Convert convert) {
  char text[kValueSize] = "";
  const int result = ReadIni.GetField(fileName, group, item, position, text);
  if (result == kFound) value = convert(text);
  return result;
}

template <class T, class Convert>
int ConvertedPar(int num, T* par, const char* parStr, Convert convert) {
  char text[kTokenSize] = "";
  const int result = ReadIni.Get1Par(num, text, parStr);
  if (result == kFound) *par = convert(text);
  return result;
}

void DropFirst(char* text, size_t count) {
  std::memmove(text, text + count, std::strlen(text + count) + 1);
}

int TrimEnds(char* text, const char* unwanted) {
  DropFirst(text, std::strspn(text, unwanted));
  size_t length = std::strlen(text);
  while (length > 0 && std::strchr(unwanted, text[length - 1]) != nullptr) --length;
  text[length] = '\0';
  return 1;
}

// The piece of the text with that index; null when there are fewer.
const char* FindPiece(const char* text, int idx, char splitChar, size_t* length) {
  if (text == nullptr || idx < 0) return nullptr;
  for (int i = 0; i < idx; ++i) {
    text = std::strchr(text, splitChar);
    if (text == nullptr || *text == '\0') return nullptr;
    ++text;
  }
  const char* end = std::strchr(text, splitChar);
  *length = end == nullptr ? std::strlen(text) : static_cast<size_t>(end - text);
  return text;
}

}  // namespace

int READINI::GetField(const char* FileName, const char* Group, const char* Item, int Postion, char* OutStr) {
  const ScopedFile file(FileName, "rt");
  if (!file.IsOpen()) return kNoFile;
  const int result = SkipToGroup(file.Get(), Group) ? FindItem(file.Get(), Item, Postion, OutStr) : kNotFound;
  GetZero(OutStr);
  return result;
}

int READINI::GetField(const char* FileName, const char* Group, const char* Item, int Postion, int& OutStr) {
  return ConvertedField(FileName, Group, Item, Postion, OutStr, ToNumber<int>);
}

int READINI::GetField(const char* FileName, const char* Group, const char* Item, int Postion, float& OutStr) {
  return ConvertedField(FileName, Group, Item, Postion, OutStr, ToFloat);
}

int READINI::GetField(const char* FileName, const char* Group, const char* Item, int Postion, long& OutStr) {
  return ConvertedField(FileName, Group, Item, Postion, OutStr, ToNumber<long>);
}

int READINI::Get1Par(int Num, char* Par, const char* ParStr) {
  char text[MAXBUFFER];
  std::snprintf(text, sizeof text, "%s", ParStr);
  char* rest = nullptr;
  char* token = strtok_r(text, ",", &rest);
  for (int i = 0; i < Num && token != nullptr; ++i) token = strtok_r(nullptr, ",", &rest);
  if (token == nullptr) return -1;
  GetZero(token);
  std::strcpy(Par, token);
  return kFound;
}

int READINI::Get1Par(int Num, int* Par, const char* ParStr) {
  return ConvertedPar(Num, Par, ParStr, ToNumber<int>);
}

int READINI::Get1Par(int Num, float* Par, const char* ParStr) {
  return ConvertedPar(Num, Par, ParStr, ToFloat);
}

int READINI::Get1Par(int Num, unsigned int* Par, const char* ParStr) {
  return ConvertedPar(Num, Par, ParStr, ToNumber<unsigned int>);
}

int READINI::Get1Par(int Num, long* Par, const char* ParStr) {
  return ConvertedPar(Num, Par, ParStr, ToNumber<long>);
}

int READINI::GetField2(const char* str, char* Field, int Idx, char SplitChar) {
  if (Field == nullptr) return 0;
  size_t length = 0;
  const char* piece = FindPiece(str, Idx, SplitChar, &length);
  if (piece != nullptr) std::memmove(Field, piece, length);
  Field[length] = '\0';
  return piece != nullptr ? 1 : 0;
}

int BoundedField(const char* str, char* field, int size, int idx, char splitChar) {
  size_t length = 0;
  const char* piece = FindPiece(str, idx, splitChar, &length);
  if (piece == nullptr) return 0;
  if (length >= static_cast<size_t>(size)) return -1;
  std::memmove(field, piece, length);
  field[length] = '\0';
  return 1;
}

int READINI::Trim(char* Buf) {
  return TrimEnds(Buf, kBlanks);
}

int READINI::TrimBlank(char* Buf) {
  return TrimEnds(Buf, " ");
}

int READINI::TrimLeft(char* Buf, char TrimChar) {
  const size_t length = std::strlen(Buf);
  size_t count = length > 0 && Buf[0] == TrimChar ? 1 : 0;
  if (count == 0) return 0;
  while (count + 1 < length && Buf[count] == TrimChar) ++count;
  DropFirst(Buf, count);
  return 1;
}

int READINI::TrimRight(char* Buf, char TrimChar) {
  size_t length = std::strlen(Buf);
  if (length == 0 || Buf[length - 1] != TrimChar) return 0;
  do --length;
  while (length > 1 && Buf[length - 1] == TrimChar);
  Buf[length] = '\0';
  return 1;
}

void READINI::GetZero(char* Buf) {
  DropFirst(Buf, std::strspn(Buf, " "));
  Buf[std::strcspn(Buf, "\n")] = '\0';
}

void READINI::GetZeroR(char* Buf) {
  DropFirst(Buf, std::strspn(Buf, " "));
  Buf[std::strcspn(Buf, " \n")] = '\0';
}

char* READINI::GetVersion() {
  static char version[] = "1.30";
  return version;
}
