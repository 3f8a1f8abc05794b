// Commits the fault that its argument names and says so if it is still alive: a sanitizer must have ended it by then.
#include <pthread.h>

#include <cstdio>
#include <cstring>

namespace {

volatile int Index = 8;
int Shared = 0;

void* Increment(void*) {
  for (int i = 0; i < 1000; ++i) ++Shared;
  return nullptr;
}

void OutOfBounds() {
  char* bytes = new char[8];
  std::memset(bytes, 0, 8);
  std::printf("%d\n", bytes[Index]);
  delete[] bytes;
}

void Undefined() {
  std::printf("%d\n", 1 << (Index * 8));
}

void Race() {
  pthread_t other;
  pthread_create(&other, nullptr, Increment, nullptr);
  Increment(nullptr);
  pthread_join(other, nullptr);
  std::printf("%d\n", Shared);
}

}  // namespace

int main(int argc, char** argv) {
  const char* fault = argc > 1 ? argv[1] : "";
  if (std::strcmp(fault, "bounds") == 0) OutOfBounds();
  if (std::strcmp(fault, "undefined") == 0) Undefined();
  if (std::strcmp(fault, "race") == 0) Race();
  std::puts("survived");
  return 0;
}
