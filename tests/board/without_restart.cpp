// without-restart PROGRAM ARGUMENT...: runs a program for which the kernel refuses the restart call, whatever rights it
// gets later. Only started where the right to restart has been taken away already. Without a program: says whether
// the call is refused, by one that no kernel takes.
// Status 77: this computer has no such filter.
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>

namespace {

constexpr int kNotPossible = 77;

#if defined(__x86_64__)
constexpr unsigned kOwnCalls = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr unsigned kOwnCalls = AUDIT_ARCH_AARCH64;
#else
constexpr unsigned kOwnCalls = 0;
#endif

// The right is asked for before the numbers are looked at, and these are wrong: nothing comes of it with the right either.
bool IsRefused() {
  return syscall(SYS_reboot, 0, 0, 0, nullptr) == -1 && errno == EPERM;
}

bool RefuseRestart() {
  constexpr unsigned kNumber = offsetof(seccomp_data, nr);
  constexpr unsigned kCalls = offsetof(seccomp_data, arch);
  constexpr unsigned kOtherNumbers = 0x40000000;  // of x32
  sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kCalls),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kOwnCalls, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kNumber),
      BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, kOtherNumbers, 1, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_reboot, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {sizeof steps / sizeof steps[0], steps};
  return kOwnCalls != 0 && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

}  // namespace

int main(int count, char** words) {
  if (count < 2) return IsRefused() ? 0 : 1;
  if (!IsRefused()) {
    std::fputs("without-restart: the right to restart is still there\n", stderr);
    return 1;
  }
  if (!RefuseRestart()) return kNotPossible;
  execvp(words[1], words + 1);
  std::perror(words[1]);
  return 1;
}
