// In the controller's place: each thread has a variable of its own.
#include <thread>

namespace {
thread_local int Own = 1;
}

int main() {
  std::thread([] { ++Own; }).join();
  return Own == 1 ? 0 : 1;
}
