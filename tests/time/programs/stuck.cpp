// In the controller's place: waits in a call that virtual time does not know.
#include <fcntl.h>
#include <sys/file.h>

int main() {
  const int first = open("lock", O_RDWR | O_CREAT, 0644);
  const int second = open("lock", O_RDWR);
  flock(first, LOCK_EX);
  flock(second, LOCK_EX);
}
