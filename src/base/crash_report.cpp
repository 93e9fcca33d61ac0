// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/crash_report.h"

#include <dlfcn.h>
#include <elf.h>
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "base/crash_text.h"
#include "base/errors.h"

// Everything the handler touches is static and prepared before any crash:
// after a fault the heap may be corrupt and its lock may be held.

namespace {

constexpr int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr size_t kMaxFrames = 64;
constexpr size_t kPathCapacity = 4096;
constexpr size_t kReportCapacity = 64 * 1024;
constexpr size_t kCrashStackSize = 64 * 1024;  // the handler, backtrace and dladdr
constexpr int kSymboliserTimeoutMs = 10000;
// A fault this close to the stack pointer hit the stack's guard page.
constexpr uintptr_t kStackOverflowReach = 64 * 1024;

char g_program[kPathCapacity];
char g_crash_file[kPathCapacity];
char g_symboliser[kPathCapacity];  // full name of addr2line, or empty
uintptr_t g_main_base;             // load address of the program itself

char g_report[kReportCapacity];
size_t g_report_size;
crash::Line g_line;
crash::Place g_places[kMaxFrames];
void* g_trace[kMaxFrames + 8];
char g_symbols[64 * 1024];
char g_offset_args[kMaxFrames][2 + 16 + 1];
const char* g_argv[kMaxFrames + 6];
crash::Place* g_group[kMaxFrames];

// The thread that is writing a report; 0 when none.
std::atomic<long> g_reporter{0};

struct MachineState {
  uintptr_t pc = 0;
  uintptr_t sp = 0;
  unsigned code_segment = 0;
};

MachineState StateOf(const void* context) {
  const auto* uc = static_cast<const ucontext_t*>(context);
  MachineState state;
#if defined(__x86_64__)
  state.pc = static_cast<uintptr_t>(uc->uc_mcontext.gregs[REG_RIP]);
  state.sp = static_cast<uintptr_t>(uc->uc_mcontext.gregs[REG_RSP]);
  state.code_segment = static_cast<unsigned>(uc->uc_mcontext.gregs[REG_CSGSFS] & 0xFFFF);
#elif defined(__aarch64__)
  state.pc = uc->uc_mcontext.pc;
  state.sp = uc->uc_mcontext.sp;
#else
  (void)uc;
#endif
  return state;
}

std::string FindOnPath(const char* program) {
  const char* path = std::getenv("PATH");
  std::string dirs = path != nullptr && *path != '\0' ? path : "/usr/bin:/bin";
  size_t start = 0;
  while (start <= dirs.size()) {
    size_t end = dirs.find(':', start);
    if (end == std::string::npos) end = dirs.size();
    const std::string dir = end > start ? dirs.substr(start, end - start) : ".";
    const std::string candidate = dir + "/" + program;
    if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    start = end + 1;
  }
  return {};
}

void CopyPath(char* out, const std::string& text) {
  const size_t n = std::min(text.size(), kPathCapacity - 1);
  std::memcpy(out, text.data(), n);
  out[n] = '\0';
}

// Fills the statics once, in normal context.
void PrepareStatics() {
  static const bool ready = [] {
    const ssize_t n = ::readlink("/proc/self/exe", g_program, kPathCapacity - 1);
    if (n > 0) {
      g_program[n] = '\0';
    } else {
      CopyPath(g_program, program_invocation_name);
    }
    CopyPath(g_symboliser, FindOnPath("addr2line"));
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(getauxval(AT_PHDR)), &info) != 0)
      g_main_base = reinterpret_cast<uintptr_t>(info.dli_fbase);
    // The first backtrace loads the unwinder, which allocates: do it now.
    backtrace(g_trace, 1);
    return true;
  }();
  (void)ready;
}

void WriteAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = ::write(fd, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    text.remove_prefix(static_cast<size_t>(n));
  }
}

void Emit(std::string_view text, const int* fds, int fd_count) {
  const size_t n = std::min(text.size(), kReportCapacity - g_report_size);
  std::memcpy(g_report + g_report_size, text.data(), n);
  g_report_size += n;
  for (int i = 0; i < fd_count; ++i) WriteAll(fds[i], text);
}

// Module, offset and nearest exported symbol of place.pc. A return address
// is looked up one byte back, inside the call that it returns from. False
// when no module holds the address.
bool Describe(crash::Place& place, bool is_return_address) {
  const uintptr_t lookup = is_return_address ? place.pc - 1 : place.pc;
  Dl_info info{};
  if (place.pc == 0 || dladdr(reinterpret_cast<void*>(lookup), &info) == 0 ||
      info.dli_fbase == nullptr)
    return false;
  const auto base = reinterpret_cast<uintptr_t>(info.dli_fbase);
  place.module = base == g_main_base ? g_program : info.dli_fname;
  if (place.module == nullptr || *place.module == '\0') place.module = "<UNKNOWN>";
  // A position-dependent program is looked up by absolute address, anything
  // loaded at a chosen base by its offset from that base.
  const auto* header = reinterpret_cast<const ElfW(Ehdr)*>(base);
  place.offset = header->e_type == ET_EXEC ? lookup : lookup - base;
  if (info.dli_sname != nullptr && info.dli_saddr != nullptr) {
    place.symbol = info.dli_sname;
    place.displacement = place.pc - reinterpret_cast<uintptr_t>(info.dli_saddr);
  }
  return true;
}

// The faulting place, then the callers outward; returns the count.
size_t CollectPlaces(const MachineState& state) {
  size_t count = 0;
  g_places[count] = crash::Place{};
  g_places[count].pc = state.pc;
  Describe(g_places[count++], false);

  const int n = backtrace(g_trace, static_cast<int>(std::size(g_trace)));
  // The trace starts in this handler; the interrupted code begins at the
  // faulting address. When the unwinder could not find it, all is kept.
  int start = 0;
  for (int i = 0; i < n; ++i) {
    if (reinterpret_cast<uintptr_t>(g_trace[i]) == state.pc) {
      start = i + 1;
      break;
    }
  }
  for (int i = start; i < n && count < kMaxFrames; ++i) {
    crash::Place& place = g_places[count];
    place = crash::Place{};
    place.pc = reinterpret_cast<uintptr_t>(g_trace[i]);
    if (!Describe(place, true)) break;  // the walk ends where no module holds the address
    ++count;
  }
  return count;
}

long MillisecondsNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

// Runs the symboliser on g_argv and reads its output into g_symbols. The
// child is made with a bare clone, so that no fork handler runs in a process
// whose state is broken, and does nothing but exec.
size_t RunSymboliser() {
  int pipe_fds[2];
  if (::pipe2(pipe_fds, O_CLOEXEC) != 0) return 0;
  const long pid = ::syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0);
  if (pid < 0) {
    ::close(pipe_fds[0]);
    ::close(pipe_fds[1]);
    return 0;
  }
  if (pid == 0) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    ::dup2(pipe_fds[1], STDOUT_FILENO);
    const int null_fd = ::open("/dev/null", O_RDWR);
    if (null_fd >= 0) {
      ::dup2(null_fd, STDIN_FILENO);
      ::dup2(null_fd, STDERR_FILENO);
    }
    char locale[] = "LC_ALL=C";
    char* const environment[] = {locale, nullptr};
    ::execve(g_symboliser, const_cast<char* const*>(g_argv), environment);
    ::_exit(127);
  }
  ::close(pipe_fds[1]);
  size_t size = 0;
  const long deadline = MillisecondsNow() + kSymboliserTimeoutMs;
  while (size < sizeof g_symbols) {
    const long left = deadline - MillisecondsNow();
    pollfd wait{pipe_fds[0], POLLIN, 0};
    const int ready = left > 0 ? ::poll(&wait, 1, static_cast<int>(left)) : 0;
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) {
      ::kill(static_cast<pid_t>(pid), SIGKILL);
      break;
    }
    const ssize_t got = ::read(pipe_fds[0], g_symbols + size, sizeof g_symbols - size);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    size += static_cast<size_t>(got);
  }
  ::close(pipe_fds[0]);
  int status = 0;
  while (::waitpid(static_cast<pid_t>(pid), &status, 0) < 0 && errno == EINTR) {
  }
  // The output is two lines per address in order, so a cut-off run still
  // names the addresses it reached.
  return size;
}

// Function names and source lines from addr2line, one run per module.
void Symbolise(size_t count) {
  if (g_symboliser[0] == '\0') return;
  bool done[kMaxFrames] = {};
  for (size_t i = 0; i < count; ++i) {
    if (done[i] || g_places[i].module == nullptr) continue;
    const char* module = g_places[i].module;
    size_t argc = 0;
    g_argv[argc++] = g_symboliser;
    g_argv[argc++] = "-C";
    g_argv[argc++] = "-f";
    g_argv[argc++] = "-e";
    g_argv[argc++] = module;
    size_t members = 0;
    for (size_t j = i; j < count; ++j) {
      if (done[j] || g_places[j].module == nullptr || std::strcmp(g_places[j].module, module) != 0)
        continue;
      done[j] = true;
      crash::Line arg;
      arg.Add("0x").Hex(g_places[j].offset, 1);
      const std::string_view text = arg.view();
      std::memcpy(g_offset_args[members], text.data(), text.size());
      g_offset_args[members][text.size()] = '\0';
      g_argv[argc++] = g_offset_args[members];
      g_group[members++] = &g_places[j];
    }
    g_argv[argc] = nullptr;
    const size_t size = RunSymboliser();
    crash::ReadSymboliserOutput(g_symbols, size, g_group, members);
  }
}

void WriteReport(int signal, const siginfo_t& info, const void* context, const int* fds, int n) {
  g_report_size = 0;
  if (context == nullptr) return;
  const MachineState state = StateOf(context);
  const size_t count = CollectPlaces(state);
  Symbolise(count);

  crash::Fault fault;
  fault.program = g_program[0] != '\0' ? g_program : "<UNKNOWN>";
  fault.signal = signal;
  fault.code = info.si_code;
  // Only a fault the kernel raised carries the address that was accessed.
  fault.has_data_address = (signal == SIGSEGV || signal == SIGBUS) && info.si_code > 0;
  if (fault.has_data_address) {
    fault.data_address = reinterpret_cast<uintptr_t>(info.si_addr);
    const uintptr_t distance = fault.data_address > state.sp ? fault.data_address - state.sp
                                                             : state.sp - fault.data_address;
    fault.stack_overflow = signal == SIGSEGV && distance <= kStackOverflowReach;
  }
  fault.code_segment = state.code_segment;
  fault.place = &g_places[0];

  g_line.clear();
  crash::AppendSummary(g_line, fault);
  Emit(g_line.Add('\n').view(), fds, n);
  for (size_t i = 0; i < count; ++i) {
    g_line.clear();
    crash::AppendStackLine(g_line, state.code_segment, g_places[i]);
    Emit(g_line.Add('\n').view(), fds, n);
  }
  g_line.clear();
  crash::AppendRegisters(g_line, context);
  Emit(g_line.Add('\n').view(), fds, n);
}

void OnFatalSignal(int signal, siginfo_t* info, void* context) {
  const long self = ::syscall(SYS_gettid);
  long reporter = 0;
  if (g_reporter.compare_exchange_strong(reporter, self)) {
    int fds[2] = {STDERR_FILENO, -1};
    if (g_crash_file[0] != '\0')
      fds[1] = ::open(g_crash_file, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    WriteReport(signal, *info, context, fds, fds[1] >= 0 ? 2 : 1);
    if (fds[1] >= 0) ::close(fds[1]);
  } else if (reporter != self) {
    // Another thread is reporting; the process ends with its report.
    for (;;) ::pause();
  }
  // A process cannot go on after such a signal: end it by the default action.
  // The signal is blocked in here, so it is delivered when the handler returns.
  struct sigaction fallback {};
  fallback.sa_handler = SIG_DFL;
  sigemptyset(&fallback.sa_mask);
  ::sigaction(signal, &fallback, nullptr);
  ::raise(signal);
}

struct CrashStack {
  void* memory = nullptr;
  size_t size = 0;
  ~CrashStack() {
    if (memory == nullptr) return;
    stack_t off{};
    off.ss_flags = SS_DISABLE;
    ::sigaltstack(&off, nullptr);
    ::munmap(memory, size);
  }
};

thread_local CrashStack t_crash_stack;

}  // namespace

void PrepareCrashStack() {
  if (t_crash_stack.memory != nullptr) return;
  const size_t size = std::max<size_t>(kCrashStackSize, SIGSTKSZ);
  void* memory =
      ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED) throw SystemError("allocating the crash stack");
  stack_t stack{};
  stack.ss_sp = memory;
  stack.ss_size = size;
  if (::sigaltstack(&stack, nullptr) != 0) {
    SystemError error("installing the crash stack");
    ::munmap(memory, size);
    throw error;
  }
  t_crash_stack.memory = memory;
  t_crash_stack.size = size;
}

void InstallCrashHandler(const std::string& crash_file_path) {
  if (crash_file_path.size() >= kPathCapacity)
    throw std::invalid_argument("crash file path too long: " + crash_file_path);
  PrepareStatics();
  PrepareCrashStack();
  std::memcpy(g_crash_file, crash_file_path.c_str(), crash_file_path.size() + 1);

  struct sigaction action {};
  action.sa_sigaction = OnFatalSignal;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  // While one report is written no other fatal signal of this thread interrupts it.
  for (int signal : kFatalSignals) sigaddset(&action.sa_mask, signal);
  for (int signal : kFatalSignals)
    if (::sigaction(signal, &action, nullptr) != 0)
      throw SystemError("installing the crash handler");
}

std::string CrashReport() {
  return std::string(g_report, g_report_size);
}

void WriteCrashReport(int signal, const siginfo_t& info, const void* context, int fd) {
  PrepareStatics();
  WriteReport(signal, info, context, &fd, fd >= 0 ? 1 : 0);
}
