// Values of INI-style files, and the string tools that take program lines and card parameters apart.
#pragma once

constexpr int MAXBUFFER = 200;  // parameter text that Get1Par takes apart, terminating zero included

// Has no state: any number of threads may use the one object. Positions count from 0. Output buffers belong to the
// caller and must be large enough for the text taken; each operation says how much that can be.
class READINI {
 public:
  // Value number Postion of the item in the first group of that name ("[UDP]", brackets included); letter case does
  // not count. OutStr receives at most 255 characters.
  // 0: found, or fewer values than asked for: then the last one. -1: the file cannot be opened, OutStr untouched.
  // -2: not found; what OutStr held is only passed through GetZero.
  int GetField(const char* FileName, const char* Group, const char* Item, int Postion, char* OutStr);
  // As above, converted; unless the result is 0 the variable keeps its value.
  int GetField(const char* FileName, const char* Group, const char* Item, int Postion, int& OutStr);
  int GetField(const char* FileName, const char* Group, const char* Item, int Postion, float& OutStr);
  int GetField(const char* FileName, const char* Group, const char* Item, int Postion, long& OutStr);

  // Token number Num of a comma-separated text, empty tokens skipped; Num of 0 or less takes the first. At most
  // MAXBUFFER - 1 characters of ParStr are looked at. 0: found. -1: not found, Par untouched.
  int Get1Par(int Num, char* Par, const char* ParStr);
  int Get1Par(int Num, int* Par, const char* ParStr);
  int Get1Par(int Num, float* Par, const char* ParStr);
  int Get1Par(int Num, unsigned int* Par, const char* ParStr);
  int Get1Par(int Num, long* Par, const char* ParStr);

  // Piece number Idx of str cut at every SplitChar, as it stands; empty pieces count, a last empty one too.
  // 1: found. 0: not found (Field is then empty) or Field null. Field needs room for the whole of str.
  int GetField2(const char* str, char* Field, int Idx, char SplitChar);

  // Remove blanks, line feeds, carriage returns and tabs (TrimBlank: blanks) at both ends. Result 1.
  int Trim(char* Buf);
  int TrimBlank(char* Buf);
  // Remove TrimChar at one end; of a text made only of two or more of it one is left. 1: something was removed, else 0.
  int TrimLeft(char* Buf, char TrimChar);
  int TrimRight(char* Buf, char TrimChar);

  // Drop leading blanks and cut at the first line feed (GetZeroR: also at the first blank).
  void GetZero(char* Buf);
  void GetZeroR(char* Buf);

  char* GetVersion();
};

extern READINI ReadIni;

// As GetField2, for fields that must not overrun: copies at most size - 1 characters.
// 1: copied whole. 0: no such field. -1: the field has size or more characters; nothing is copied.
int BoundedField(const char* str, char* field, int size, int idx, char splitChar);
