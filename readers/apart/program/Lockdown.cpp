// SPDX-License-Identifier: Apache-2.0
#include "readers/apart/program/Lockdown.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <limits>
#include <memory>
#include <seccomp.h>
#include <unistd.h>

#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>

namespace Tidewatch::Apart {

namespace {

#ifdef TIDEWATCH_ADDRESS_SANITIZER
constexpr bool hasAddressSanitizer = true;
#else
constexpr bool hasAddressSanitizer = false;
#endif

// System calls that the filter does not know fail as if the kernel did not have them: newer C libraries try new
// calls first and then go on with old ones.
#ifdef TIDEWATCH_TRAP_SYSTEM_CALLS
constexpr std::uint32_t unknownCall = SCMP_ACT_TRAP;

void nameCall(int, siginfo_t* information, void*) {
    char* const name = seccomp_syscall_resolve_num_arch(SCMP_ARCH_NATIVE, information->si_syscall);
    std::fprintf(stderr, "tidewatch-read: system call %d (%s) is not allowed\n", information->si_syscall,
                 name != nullptr ? name : "unknown");
    std::abort();
}
#else
constexpr std::uint32_t unknownCall = SCMP_ACT_ERRNO(ENOSYS);
#endif

/// The calls needed to read open files, compute and answer.
constexpr int allowed[] = {
    SCMP_SYS(read),
    SCMP_SYS(readv),
    SCMP_SYS(pread64),
    SCMP_SYS(preadv),
    SCMP_SYS(write),
    SCMP_SYS(writev),
    SCMP_SYS(lseek),
    SCMP_SYS(close),
    SCMP_SYS(fstat),
    SCMP_SYS(dup),
    SCMP_SYS(sendmsg),
    SCMP_SYS(recvmsg),
    SCMP_SYS(poll),
    SCMP_SYS(ppoll),
    SCMP_SYS(brk),
    SCMP_SYS(munmap),
    SCMP_SYS(mremap),
    SCMP_SYS(madvise),
    SCMP_SYS(futex),
    SCMP_SYS(sched_yield),
    SCMP_SYS(sched_getaffinity),
    SCMP_SYS(clock_gettime),
    SCMP_SYS(clock_getres),
    SCMP_SYS(clock_nanosleep),
    SCMP_SYS(nanosleep),
    SCMP_SYS(gettimeofday),
    SCMP_SYS(time),
    SCMP_SYS(getrandom),
    SCMP_SYS(getpid),
    SCMP_SYS(gettid),
    SCMP_SYS(getppid),
    SCMP_SYS(getuid),
    SCMP_SYS(geteuid),
    SCMP_SYS(getgid),
    SCMP_SYS(getegid),
    SCMP_SYS(getrusage),
    SCMP_SYS(sysinfo),
    SCMP_SYS(uname),
    SCMP_SYS(rt_sigaction),
    SCMP_SYS(rt_sigprocmask),
    SCMP_SYS(rt_sigreturn),
    SCMP_SYS(sigaltstack),
    SCMP_SYS(set_robust_list),
    SCMP_SYS(rseq),
    SCMP_SYS(restart_syscall),
    SCMP_SYS(exit),
    SCMP_SYS(exit_group),
};

/// Calls that libraries try and can do without; they fail with EACCES.
constexpr int refused[] = {
    SCMP_SYS(open),       SCMP_SYS(openat), SCMP_SYS(creat),      SCMP_SYS(access),   SCMP_SYS(faccessat),
    SCMP_SYS(faccessat2), SCMP_SYS(stat),   SCMP_SYS(lstat),      SCMP_SYS(readlink), SCMP_SYS(readlinkat),
    SCMP_SYS(getcwd),     SCMP_SYS(socket), SCMP_SYS(connect),    SCMP_SYS(clone),    SCMP_SYS(fork),
    SCMP_SYS(vfork),      SCMP_SYS(execve), SCMP_SYS(unlink),     SCMP_SYS(mkdir),    SCMP_SYS(rename),
    SCMP_SYS(ptrace),     SCMP_SYS(kill),   SCMP_SYS(getdents64),
};

/// A placeholder in the filter for the process id, which is not known before the fork.
constexpr std::uint32_t numberOfProcess = 0x7ea5fab1;

/// In place of the library's macros, which are not valid C++ for every compiler.
scmp_arg_cmp argument(unsigned number, scmp_compare how, scmp_datum_t first, scmp_datum_t second = 0) {
    return {number, how, first, second};
}

std::vector<sock_filter> makeFilter() {
    struct Release {
        void operator()(void* context) const { seccomp_release(context); }
    };
    const std::unique_ptr<void, Release> context(seccomp_init(unknownCall));
    if (!context)
        return {};
    bool isMade = true;
    const auto rule = [&](std::uint32_t action, int call, auto... conditions) {
        // Rules equal to the default action, and calls that this architecture does not have, are skipped.
        const int result = action == unknownCall ? 0
                                                 : seccomp_rule_add(context.get(), action, call,
                                                                    sizeof...(conditions), conditions...);
        isMade = isMade && (result == 0 || result == -EDOM || result == -EFAULT);
    };
    for (const int call : allowed)
        rule(SCMP_ACT_ALLOW, call);
    for (const int call : refused)
        rule(SCMP_ACT_ERRNO(EACCES), call);
    // Sanitizers use a pipe to test whether memory is readable.
    if (hasAddressSanitizer) {
        rule(SCMP_ACT_ALLOW, SCMP_SYS(pipe));
        rule(SCMP_ACT_ALLOW, SCMP_SYS(pipe2));
    }
    // Newer C libraries implement fstat() with this call, with an empty path.
    rule(SCMP_ACT_ALLOW, SCMP_SYS(newfstatat), argument(3, SCMP_CMP_MASKED_EQ, AT_EMPTY_PATH, AT_EMPTY_PATH));
    rule(SCMP_ACT_ALLOW, SCMP_SYS(mmap), argument(2, SCMP_CMP_MASKED_EQ, PROT_EXEC, 0));
    rule(SCMP_ACT_ALLOW, SCMP_SYS(mprotect), argument(2, SCMP_CMP_MASKED_EQ, PROT_EXEC, 0));
    rule(SCMP_ACT_ERRNO(ENOTTY), SCMP_SYS(ioctl));
    for (const int command : {F_GETFD, F_SETFD, F_GETFL, F_GETLK, F_SETLK, F_DUPFD, F_DUPFD_CLOEXEC})
        rule(SCMP_ACT_ALLOW, SCMP_SYS(fcntl), argument(1, SCMP_CMP_EQ, static_cast<scmp_datum_t>(command)));
    // To read limits, not to change them.
    rule(SCMP_ACT_ALLOW, SCMP_SYS(prlimit64), argument(0, SCMP_CMP_EQ, 0), argument(2, SCMP_CMP_EQ, 0));
    // For abort().
    rule(SCMP_ACT_ALLOW, SCMP_SYS(tgkill), argument(0, SCMP_CMP_EQ, numberOfProcess));
    // Callers of these fall back to older calls.
    rule(SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3));
    rule(SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(statx));
    if (!isMade || seccomp_attr_set(context.get(), SCMP_FLTATR_CTL_OPTIMIZE, 2) != 0)
        return {};

    const int file = ::memfd_create("filter", MFD_CLOEXEC);
    std::vector<sock_filter> filter;
    if (file >= 0 && seccomp_export_bpf(context.get(), file) == 0) {
        const off_t size = ::lseek(file, 0, SEEK_END);
        filter.resize(static_cast<std::size_t>(std::max<off_t>(size, 0)) / sizeof(sock_filter));
        if (::pread(file, filter.data(), filter.size() * sizeof(sock_filter), 0) != size)
            filter.clear();
    }
    ::close(file);
    return filter;
}

/// Gives up the right to open, create, change or execute any file; returns the version of Landlock, 0 without
/// it.
std::uint32_t dropFiles() {
    const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1)
        return 0;
    landlock_ruleset_attr rules{};
    // The rights of version 1, which all later versions know.
    rules.handled_access_fs = (std::uint64_t{LANDLOCK_ACCESS_FS_MAKE_SYM} << 1U) - 1;
    const long ruleset = ::syscall(SYS_landlock_create_ruleset, &rules, sizeof rules, 0);
    if (ruleset < 0)
        return 0;
    const bool isLocked = ::syscall(SYS_landlock_restrict_self, ruleset, 0) == 0;
    ::close(static_cast<int>(ruleset));
    return isLocked ? static_cast<std::uint32_t>(version) : 0;
}

/// Bytes of this process's address space; 0 if unknown.
std::uint64_t addressSpace() {
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::uint64_t>(std::max(0L, ::sysconf(_SC_PAGE_SIZE)));
}

std::uint64_t machineMemory() {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long size = ::sysconf(_SC_PAGE_SIZE);
    return pages > 0 && size > 0 ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(size) : 0;
}

bool limit(__rlimit_resource_t resource, rlim_t most) {
    rlimit limits{};
    if (::getrlimit(resource, &limits) != 0)
        return false;
    limits.rlim_max = std::min(limits.rlim_max, most);
    limits.rlim_cur = std::min(limits.rlim_cur, limits.rlim_max);
    return ::setrlimit(resource, &limits) == 0;
}

bool setLimits(std::uint64_t most) {
    // Enough for each request to bring a memory file.
    constexpr rlim_t descriptors = 256;
    bool isLimited = limit(RLIMIT_CORE, 0) && limit(RLIMIT_NOFILE, descriptors);
    if (hasAddressSanitizer)
        return isLimited; // it reserves terabytes of address space and writes reports
    isLimited = limit(RLIMIT_FSIZE, 0) && isLimited;
    // Beside the requested array: what is in use now, and half of the machine's memory for the libraries.
    const std::uint64_t memory = machineMemory();
    const std::uint64_t array = std::min(most, memory);
    const std::uint64_t own = std::max<std::uint64_t>(memory / 2, std::uint64_t{1} << 30U);
    isLimited = memory != 0 && limit(RLIMIT_AS, addressSpace() + array + own) && isLimited;
    return isLimited;
}

} // namespace

Lockdown::Lockdown() : filter_(makeFilter()) {}

Lockdown::InForce Lockdown::apply(std::uint64_t most) const {
    InForce inForce;
    inForce.limits = setLimits(most);
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        return inForce;
    inForce.landlock = dropFiles();
#ifdef TIDEWATCH_TRAP_SYSTEM_CALLS
    struct sigaction action {};
    action.sa_sigaction = &nameCall;
    action.sa_flags = SA_SIGINFO;
    ::sigaction(SIGSYS, &action, nullptr);
#endif
    if (filter_.empty())
        return inForce;
    std::vector<sock_filter> filter = filter_;
    for (sock_filter& step : filter) {
        if (step.k == numberOfProcess)
            step.k = static_cast<std::uint32_t>(::getpid());
    }
    sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    inForce.seccomp = ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) == 0;
    return inForce;
}

} // namespace Tidewatch::Apart
