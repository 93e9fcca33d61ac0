// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/crash_report.h"

#include <ucontext.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/crash_text.h"
#include "testing/files.h"

namespace {

static_assert(sizeof(void*) == 8, "the expected texts below are written for 64-bit addresses");

TEST(CrashLine, CutsTextThatWouldPassItsEnd) {
  crash::Line line;
  line.Add(std::string(1000, 'a')).Add(std::string(100, 'b')).Hex(0xF, 1).Add('c');
  ASSERT_EQ(line.view().size(), crash::Line::kCapacity);
  EXPECT_EQ(line.view().substr(1000), std::string(24, 'b'));
}

TEST(CrashText, SummaryAndStackLines) {
  const crash::Place in_library{.pc = 0x7F0012345678,
                                .module = "/opt/velomar/lib/libtrack.so",
                                .symbol = "Track",
                                .displacement = 12,
                                .file = "frame_loop.cpp",
                                .line = 42};
  const crash::Place demangled{.pc = 0x401000, .module = "/p", .symbol = "img::Read(int)"};
  const std::pair<crash::Fault, const char*> cases[] = {
      {{.signal = SIGSEGV, .code = SEGV_MAPERR, .has_data_address = true, .place = &in_library},
       "/bin/vm caused an SIGSEGV (address not mapped to object, data at 0000000000000000) in "
       "module /opt/velomar/lib/libtrack.so at 0033:00007F0012345678, Track()+0012 byte(s), "
       "frame_loop.cpp, line 0042"},
      {{.signal = SIGILL, .code = ILL_ILLOPC},
       "/bin/vm caused an SIGILL (illegal opcode) in module <UNKNOWN> at 0033:0000000000000000"},
      {{.signal = SIGABRT, .code = SI_TKILL, .place = &demangled},
       "/bin/vm caused an SIGABRT (sent by tkill or raise) in module /p at "
       "0033:0000000000401000, img::Read(int)"},
  };
  for (auto [fault, text] : cases) {
    fault.program = "/bin/vm";
    fault.code_segment = 0x33;
    crash::Line line;
    crash::AppendSummary(line, fault);
    EXPECT_EQ(line.view(), text);
  }
  // A stack line gives what is needed to symbolise it later.
  crash::Line line;
  crash::AppendStackLine(
      line, 0x33,
      {.pc = 0x55550000A1B2, .module = "/usr/bin/velomar-cli", .offset = 0xA1B1, .symbol = "main"});
  EXPECT_EQ(line.view(), "0033:000055550000A1B2 /usr/bin/velomar-cli+0xA1B1, main()");
  line.clear();
  crash::AppendStackLine(line, 0, {});
  EXPECT_EQ(line.view(), "0000:0000000000000000");
}

TEST(CrashText, ReadsSymboliserOutputPairByPair) {
  crash::Place places[4];
  places[0].displacement = 5;
  places[1].symbol = "_Z3Foov";  // from the loader; "??" must not replace it
  places[1].displacement = 9;
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
  EXPECT_EQ(
      line.view(),
      R"(RAX=000000000000100D  RBX=000000000000100B  RCX=000000000000100E  RDX=000000000000100C
RSI=0000000000001009  RDI=0000000000001008  RBP=000000000000100A  RSP=000000000000100F
R8 =0000000000001000  R9 =0000000000001001  R10=0000000000001002  R11=0000000000001003
R12=0000000000001004  R13=0000000000001005  R14=0000000000001006  R15=0000000000001007
RIP=0000000000001010  FLG=00000246
CS=0033   GS=0000  FS=002B)");
}
#endif

// The last part of a report: the register block, from its first line to its last.
#if defined(__x86_64__)
constexpr const char* kRegisterBlock = "RAX=[^\n]*\n([^\n]*\n)*CS=[^\n]*\n";
#elif defined(__aarch64__)
constexpr const char* kRegisterBlock = "X00=[^\n]*\n([^\n]*\n)*PC=[^\n]*\n";
#else
constexpr const char* kRegisterBlock = "registers:[^\n]*\n";
#endif

// The optimiser must not see where this ends.
volatile int g_stop_depth = -1;

__attribute__((noinline)) int Recurse(int depth) {
  volatile char pad[512];
  pad[0] = static_cast<char>(depth);
  if (depth == g_stop_depth) return 0;
  return Recurse(depth + 1) + pad[0];
}

// A stack overflow is reported at all only because the handler runs on its own stack.
TEST(CrashReportDeathTest, SummaryThenFramesFromTheFaultThenRegisters) {
  GTEST_FLAG_SET(death_test_style, "fast");
  char program[PATH_MAX] = {};
  ASSERT_GT(readlink("/proc/self/exe", program, sizeof program - 1), 0);
  const testing_support::TempDir dir;
  const std::string crash_file = dir / "crash.txt";
  // The statement runs in a forked child; the parent then reads the file it left.
  EXPECT_EXIT(
      {
        InstallCrashHandler(crash_file);
        Recurse(0);
      },
      testing::KilledBySignal(SIGSEGV),
      "caused an SIGSEGV \\(stack overflow, data at [0-9A-F]{16}\\) in module [^\n]+ at "
      "[0-9A-F]{4}:[0-9A-F]{16}");
  const auto bytes = testing_support::ReadFile(crash_file);
  const std::string report(bytes.begin(), bytes.end());
  EXPECT_EQ(report.rfind(std::string(program) + " caused an SIGSEGV (stack overflow, ", 0), 0u)
      << report;
  // The stack starts at the faulting function, not in the handler.
  const std::string frame = "[0-9A-F]{4}:[0-9A-F]{16}";
  EXPECT_THAT(report, testing::MatchesRegex("[^\n]+\n" + frame + " [^\n]*Recurse[^\n]*\n(" + frame +
                                            "( [^\n]*)?\n)*" + kRegisterBlock));
}

}  // namespace
