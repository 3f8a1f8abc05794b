// In the controller's place: switches output 0 of the CPU card on after 100 ms, and 50 ms later waits for itself.
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

int main() {
  const int device = open("/dev/em_isa", O_RDWR);
  usleep(100'000);
  const unsigned char select[] = {0, 0};
  const unsigned char on[] = {1, 5};
  if (write(device, select, 2) != 2 || write(device, on, 2) != 2) return 1;
  usleep(50'000);
  pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
  pthread_mutex_lock(&lock);
  return pthread_mutex_lock(&lock);
}
