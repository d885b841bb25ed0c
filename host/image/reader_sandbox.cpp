// A filter of system calls in the kernel's language for packet filters: what reading pictures needs is
// allowed, all else answers as on a kernel that doesn't have it, so that libraries do without.
#include "host/image/reader_sandbox.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <system_error>
#include <thread>
#include <vector>

namespace ovhost {
namespace {

#if defined(__x86_64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_X86_64;
/// Numbers of another calling convention that the same architecture has.
constexpr std::uint32_t kForeignCalls = 0x40000000;
#elif defined(__aarch64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
constexpr std::uint32_t kForeignCalls = 0x40000000;
#else
constexpr std::uint32_t kArchitecture = 0;
constexpr std::uint32_t kForeignCalls = 0;
#endif

constexpr std::uint32_t kAllow = SECCOMP_RET_ALLOW, kUnknown = SECCOMP_RET_ERRNO | ENOSYS,
                        kForbidden = SECCOMP_RET_ERRNO | EPERM;

/// Memory, threads, time, signals to itself, reading, and the socket that it has.
constexpr int kAllowed[] = {
    SYS_brk,
    SYS_munmap,
    SYS_mremap,
    SYS_madvise,
    SYS_mlock,
    SYS_munlock,
    SYS_msync,
    SYS_futex,
    SYS_exit,
    SYS_exit_group,
    SYS_set_robust_list,
    SYS_set_tid_address,
    SYS_sched_yield,
    SYS_sched_getaffinity,
    SYS_sched_setaffinity,
    SYS_membarrier,
    SYS_getcpu,
    SYS_restart_syscall,
    SYS_clock_gettime,
    SYS_clock_getres,
    SYS_clock_nanosleep,
    SYS_nanosleep,
    SYS_gettimeofday,
    SYS_getrandom,
    SYS_rt_sigaction,
    SYS_rt_sigprocmask,
    SYS_rt_sigreturn,
    SYS_sigaltstack,
    SYS_getpid,
    SYS_gettid,
    SYS_getuid,
    SYS_geteuid,
    SYS_getgid,
    SYS_getegid,
    SYS_getppid,
    SYS_uname,
    SYS_sysinfo,
    SYS_getrusage,
    SYS_times,
    SYS_read,
    SYS_readv,
    SYS_pread64,
    SYS_preadv,
    SYS_write,
    SYS_writev,
    SYS_lseek,
    SYS_close,
    SYS_dup,
    SYS_fcntl,
    SYS_fstat,
    SYS_newfstatat,
    SYS_readlinkat,
    SYS_faccessat,
    SYS_getdents64,
    SYS_getcwd,
    SYS_fadvise64,
    SYS_ppoll,
    SYS_pipe2,
    SYS_recvmsg,
    SYS_recvfrom,
    SYS_sendmsg,
    SYS_memfd_create,
    SYS_ftruncate,
#ifdef SYS_rseq
    SYS_rseq,
#endif
#ifdef SYS_statx
    SYS_statx,
#endif
#ifdef SYS_faccessat2
    SYS_faccessat2,
#endif
#ifdef SYS_stat
    SYS_stat,
    SYS_lstat,
    SYS_access,
    SYS_readlink,
    SYS_poll,
    SYS_time,
    SYS_pipe,
    SYS_getrlimit,
    SYS_arch_prctl,
#endif
};

class Filter {
 public:
  Filter() {
    Load(offsetof(seccomp_data, arch));
    ReturnUnless(BPF_JEQ, kArchitecture, kUnknown);
    Load(offsetof(seccomp_data, nr));
    ReturnIf(BPF_JGE, kForeignCalls, kUnknown);
    for (const int call : kAllowed) ReturnIf(BPF_JEQ, static_cast<std::uint32_t>(call), kAllow);
    // Files to write to would be made, cut or opened so.
    constexpr std::uint32_t kWriting = O_ACCMODE | O_CREAT | O_TRUNC | (O_TMPFILE & ~O_DIRECTORY);
    AllowWithoutBits(SYS_openat, 2, kWriting);
#ifdef SYS_open
    AllowWithoutBits(SYS_open, 1, kWriting);
#endif
    // Code comes from the libraries that are loaded, and from nowhere else.
    AllowWithoutBits(SYS_mmap, 2, PROT_EXEC);
    AllowWithoutBits(SYS_mprotect, 2, PROT_EXEC);
    AllowWithBits(SYS_clone, 0, CLONE_THREAD);
    AllowEqual(SYS_tgkill, 0, static_cast<std::uint32_t>(getpid()));
    AllowEqual(SYS_prctl, 0, PR_SET_NAME);
    // Limits may be asked for; the pointer to new ones is null.
    AllowNull(SYS_prlimit64, 2);
    Return(kUnknown);
  }

  bool Install() {
    sock_fprog program{static_cast<unsigned short>(code_.size()), code_.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
    if (syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_TSYNC, &program) == 0) return true;
    return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) == 0;
  }

 private:
  static constexpr std::size_t Argument(int number) {
    return offsetof(seccomp_data, args) + static_cast<std::size_t>(number) * sizeof(std::uint64_t);
  }
  void Add(int code, std::uint32_t k, unsigned char ifTrue = 0, unsigned char ifFalse = 0) {
    code_.push_back({static_cast<std::uint16_t>(code), ifTrue, ifFalse, k});
  }
  /// Both architectures store the lower half of a number first.
  void Load(std::size_t offset) { Add(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset)); }
  void Return(std::uint32_t what) { Add(BPF_RET | BPF_K, what); }
  void ReturnIf(int test, std::uint32_t k, std::uint32_t what) {
    Add(BPF_JMP | test | BPF_K, k, 0, 1);
    Return(what);
  }
  void ReturnUnless(int test, std::uint32_t k, std::uint32_t what) {
    Add(BPF_JMP | test | BPF_K, k, 1, 0);
    Return(what);
  }
  /// What follows are `count` instructions about this call alone, which end in a return.
  void Only(long call, unsigned char count) {
    Add(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(call), 0, count);
  }
  void AllowWithoutBits(long call, int argument, std::uint32_t bits) {
    Only(call, 4);
    Load(Argument(argument));
    ReturnIf(BPF_JSET, bits, kForbidden);
    Return(kAllow);
  }
  void AllowWithBits(long call, int argument, std::uint32_t bits) {
    Only(call, 4);
    Load(Argument(argument));
    ReturnIf(BPF_JSET, bits, kAllow);
    Return(kForbidden);
  }
  void AllowEqual(long call, int argument, std::uint32_t value) {
    Only(call, 4);
    Load(Argument(argument));
    ReturnIf(BPF_JEQ, value, kAllow);
    Return(kForbidden);
  }
  void AllowNull(long call, int argument) {
    Only(call, 7);
    Load(Argument(argument));
    ReturnUnless(BPF_JEQ, 0, kForbidden);
    Load(Argument(argument) + sizeof(std::uint32_t));
    ReturnUnless(BPF_JEQ, 0, kForbidden);
    Return(kAllow);
  }

  std::vector<sock_filter> code_;
};

}  // namespace

bool EnterReaderSandbox() {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  return kArchitecture != 0 && Filter().Install();
}

void EndWithSocket(int socket) {
  try {
    std::thread([socket] {
      pollfd waiting{socket, 0, 0};
      while (poll(&waiting, 1, -1) < 0 && errno == EINTR) {
      }
      _exit(0);
    }).detach();
  } catch (const std::system_error&) {
    // Without a thread to spare it ends with its next answer.
  }
}

}  // namespace ovhost
