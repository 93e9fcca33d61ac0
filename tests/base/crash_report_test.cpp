#include "base/crash_report.h"

#include <ucontext.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/crash_text.h"
#include "testing/files.h"

namespace {

static_assert(sizeof(void*) == 8, "the expected texts below are written for 64-bit addresses");

std::string ProgramPath() {
  char buffer[PATH_MAX];
  const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer);
  return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : std::string();
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

#if defined(__x86_64__)
constexpr const char* kFirstRegisters = "RAX=";
constexpr const char* kLastRegisters = "CS=";
#elif defined(__aarch64__)
constexpr const char* kFirstRegisters = "X00=";
constexpr const char* kLastRegisters = "PC=";
#else
constexpr const char* kFirstRegisters = "registers:";
constexpr const char* kLastRegisters = "registers:";
#endif

// "CCCC:AAAAAAAAAAAAAAAA", then the end or a blank.
bool IsFrameLine(const std::string& line) {
  const char* hex = "0123456789ABCDEF";
  return line.size() >= 21 && line.find_first_not_of(hex) == 4 && line[4] == ':' &&
         line.find_first_not_of(hex, 5) >= 21 && (line.size() == 21 || line[21] == ' ');
}

// Summary first, then at least one frame line, then the register block, which ends the report.
void ExpectReportShape(const std::string& report, const std::string& summary_start) {
  const std::vector<std::string> lines = Lines(report);
  ASSERT_GE(lines.size(), 3u) << report;
  EXPECT_EQ(lines[0].substr(0, summary_start.size()), summary_start) << report;
  size_t i = 1;
  while (i < lines.size() && IsFrameLine(lines[i])) ++i;
  EXPECT_GE(i, 2u) << "no stack frame lines\n" << report;
  ASSERT_LT(i, lines.size()) << report;
  EXPECT_EQ(lines[i].rfind(kFirstRegisters, 0), 0u) << report;
  EXPECT_EQ(lines.back().rfind(kLastRegisters, 0), 0u) << report;
}

TEST(CrashLine, CutsTextThatWouldPassItsEnd) {
  crash::Line line;
  line.Add(std::string(1000, 'a')).Add(std::string(100, 'b')).Hex(0xF, 1).Add('c');
  ASSERT_EQ(line.view().size(), crash::Line::kCapacity);
  EXPECT_EQ(line.view().substr(1000), std::string(24, 'b'));
}

TEST(CrashText, SummaryLine) {
  crash::Place in_library;
  in_library.pc = 0x7F0012345678;
  in_library.module = "/opt/velomar/lib/libtrack.so";
  in_library.symbol = "Track";
  in_library.displacement = 12;
  in_library.file = "frame_loop.cpp";
  in_library.line = 42;
  crash::Place nowhere;
  crash::Place demangled;
  demangled.pc = 0x401000;
  demangled.module = "/p";
  demangled.symbol = "img::Read(int)";

  struct Case {
    int signal, code;
    bool has_data, overflow;
    uintptr_t data;
    const crash::Place* place;
    const char* text;
  };
  const Case cases[] = {
      {SIGSEGV, SEGV_MAPERR, true, false, 0, &in_library,
       "/bin/vm caused an SIGSEGV (address not mapped to object, data at 0000000000000000) in "
       "module /opt/velomar/lib/libtrack.so at 0033:00007F0012345678, Track()+0012 byte(s), "
       "frame_loop.cpp, line 0042"},
      {SIGILL, ILL_ILLOPC, false, false, 0, &nowhere,
       "/bin/vm caused an SIGILL (illegal opcode) in module <UNKNOWN> at 0033:0000000000000000"},
      {SIGABRT, SI_TKILL, false, false, 0, &demangled,
       "/bin/vm caused an SIGABRT (sent by tkill or raise) in module /p at "
       "0033:0000000000401000, img::Read(int)"},
  };
  for (const Case& c : cases) {
    crash::Fault fault;
    fault.program = "/bin/vm";
    fault.signal = c.signal;
    fault.code = c.code;
    fault.has_data_address = c.has_data;
    fault.data_address = c.data;
    fault.stack_overflow = c.overflow;
    fault.code_segment = 0x33;
    fault.place = c.place;
    crash::Line line;
    crash::AppendSummary(line, fault);
    EXPECT_EQ(line.view(), c.text);
  }
}

TEST(CrashText, StackLineGivesWhatIsNeededToSymboliseLater) {
  crash::Place place;
  place.pc = 0x55550000A1B2;
  place.module = "/usr/bin/velomar-cli";
  place.offset = 0xA1B1;
  place.symbol = "main";
  crash::Line line;
  crash::AppendStackLine(line, 0x33, place);
  EXPECT_EQ(line.view(), "0033:000055550000A1B2 /usr/bin/velomar-cli+0xA1B1, main()");
  line.clear();
  crash::AppendStackLine(line, 0, crash::Place{});
  EXPECT_EQ(line.view(), "0000:0000000000000000");
}

TEST(CrashText, ReadsSymboliserOutputPairByPair) {
  crash::Place places[4];
  places[1].symbol = "_Z3Foov";  // from the loader; "??" must not replace it
  places[1].displacement = 9;
  places[0].displacement = 5;
  crash::Place* order[] = {&places[0], &places[1], &places[2], &places[3]};
  std::string output =
      "Track(int)\n/src/frame_loop.cpp:42\n"
      "??\n??:0\n"
      "merge\n/src/merge.cpp:7 (discriminator 2)\n";  // the fourth never came
  crash::ReadSymboliserOutput(output.data(), output.size(), order, 4);
  EXPECT_STREQ(places[0].symbol, "Track(int)");
  EXPECT_EQ(places[0].displacement, 0u);
  EXPECT_STREQ(places[0].file, "/src/frame_loop.cpp");
  EXPECT_EQ(places[0].line, 42u);
  EXPECT_STREQ(places[1].symbol, "_Z3Foov");
  EXPECT_EQ(places[1].displacement, 9u);
  EXPECT_EQ(places[1].file, nullptr);
  EXPECT_STREQ(places[2].file, "/src/merge.cpp");
  EXPECT_EQ(places[2].line, 7u);
  EXPECT_EQ(places[3].symbol, nullptr);
}

#if defined(__x86_64__)
TEST(CrashText, RegisterBlockNamesEachRegisterRight) {
  ucontext_t uc{};
  for (int i = 0; i < NGREG; ++i) uc.uc_mcontext.gregs[i] = 0x1000 + i;
  uc.uc_mcontext.gregs[REG_EFL] = 0x1234500000246;  // only the low 32 bits are flags
  uc.uc_mcontext.gregs[REG_CSGSFS] = 0x0000002B00000033;
  crash::Line line;
  crash::AppendRegisters(line, &uc);
  EXPECT_EQ(line.view(),
            "RAX=000000000000100D  RBX=000000000000100B  RCX=000000000000100E  "
            "RDX=000000000000100C\n"
            "RSI=0000000000001009  RDI=0000000000001008  RBP=000000000000100A  "
            "RSP=000000000000100F\n"
            "R8 =0000000000001000  R9 =0000000000001001  R10=0000000000001002  "
            "R11=0000000000001003\n"
            "R12=0000000000001004  R13=0000000000001005  R14=0000000000001006  "
            "R15=0000000000001007\n"
            "RIP=0000000000001010  FLG=00000246\n"
            "CS=0033   GS=0000  FS=002B");
}
#endif

// The optimiser must not see that these are null.
int* volatile g_null_data = nullptr;
void (*volatile g_null_code)() = nullptr;
volatile int g_stop_depth = -1;

__attribute__((noinline, no_sanitize("undefined"))) void WriteThroughNull() {
  *g_null_data = 1;
}

__attribute__((noinline)) int Recurse(int depth) {
  volatile char pad[512];
  pad[0] = static_cast<char>(depth);
  if (depth == g_stop_depth) return 0;
  return Recurse(depth + 1) + pad[0];
}

class CrashReportDeathTest : public testing::Test {
 protected:
  // The statement runs in a forked child; the parent then reads the file it left.
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "fast"); }
  std::string CrashFileText() const {
    const auto bytes = testing_support::ReadFile(crash_file_);
    return std::string(bytes.begin(), bytes.end());
  }
  testing_support::TempDir dir_;
  const std::string crash_file_ = dir_ / "crash.txt";
};

TEST_F(CrashReportDeathTest, EachFatalSignalLeavesAFullReport) {
  struct Case {
    const char* name;
    void (*crash)();
    int signal;
    const char* summary;  // matched against standard error
    const char* first_frame;
  };
  const Case cases[] = {
      {"null write", WriteThroughNull, SIGSEGV,
       "caused an SIGSEGV \\(address not mapped to object, data at 0000000000000000\\) in module "
       "[^\n]+ at [0-9A-F]{4}:[0-9A-F]{16}",
       "WriteThroughNull"},
      // Reported at all only because the handler runs on its own stack.
      {"stack overflow", [] { Recurse(0); }, SIGSEGV,
       "caused an SIGSEGV \\(stack overflow, data at ", "Recurse"},
      {"jump to null", [] { g_null_code(); }, SIGSEGV,
       "in module <UNKNOWN> at [0-9A-F]{4}:0000000000000000\n", ""},
      {"abort", [] { std::abort(); }, SIGABRT,
       "caused an SIGABRT \\(sent by tkill or raise\\) in module ", ""},
  };
  const std::string program = ProgramPath();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EXIT(
        {
          InstallCrashHandler(crash_file_);
          c.crash();
        },
        testing::KilledBySignal(c.signal), c.summary);
    const std::string report = CrashFileText();
    ExpectReportShape(report, program + " caused an " + crash::SignalName(c.signal));
    // The stack starts at the faulting function, not in the handler.
    const std::vector<std::string> lines = Lines(report);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_NE(lines[1].find(c.first_frame), std::string::npos) << report;
  }
}

}  // namespace
