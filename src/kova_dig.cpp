#include "kova_dig.h"

#include "readini.h"

bool ReadIfFields(const char* text, IfFields* fields) {
  if (text == nullptr) return false;
  fields->Level = ToNumber<int>(text);  // the number ends at the separator by itself
  return BoundedField(text, fields->szFun0, kMaxName, 1, '&') == 1 &&
         BoundedField(text, fields->szFun1, kMaxName, 2, '&') == 1;
}

int PassBlockName(const char* name, char* out) {
  std::memcpy(out, name, std::strlen(name) + 1);
  return stricmp(name, "NUL") == 0 ? 0 : 1;
}
