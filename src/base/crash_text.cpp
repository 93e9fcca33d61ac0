// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/crash_text.h"

#include <signal.h>
#include <ucontext.h>

#include <cstring>
#include <iterator>

namespace crash {

Line& Line::Add(std::string_view text) {
  const size_t room = kCapacity - size_;
  const size_t n = text.size() < room ? text.size() : room;
  std::memcpy(text_ + size_, text.data(), n);
  size_ += n;
  return *this;
}

Line& Line::Add(char c) {
  return Add(std::string_view(&c, 1));
}

Line& Line::Hex(uint64_t value, int digits) {
  char buffer[16];
  int n = 0;
  do {
    buffer[n++] = "0123456789ABCDEF"[value & 15];
    value >>= 4;
  } while (value != 0);
  for (int i = n; i < digits; ++i) Add('0');
  while (n > 0) Add(buffer[--n]);
  return *this;
}

Line& Line::Dec(uint64_t value, int digits) {
  char buffer[20];
  int n = 0;
  do {
    buffer[n++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  for (int i = n; i < digits; ++i) Add('0');
  while (n > 0) Add(buffer[--n]);
  return *this;
}

const char* SignalName(int signal) {
  switch (signal) {
    case SIGSEGV:
      return "SIGSEGV";
    case SIGBUS:
      return "SIGBUS";
    case SIGFPE:
      return "SIGFPE";
    case SIGILL:
      return "SIGILL";
    case SIGABRT:
      return "SIGABRT";
    default:
      return "signal";
  }
}

const char* SignalCodeMeaning(int signal, int code) {
  // Codes at or below 0, and SI_KERNEL, say who sent the signal, for any signal.
  switch (code) {
    case SI_USER:
      return "sent by kill";
    case SI_QUEUE:
      return "sent by sigqueue";
    case SI_TKILL:
      return "sent by tkill or raise";
    case SI_KERNEL:
      return "sent by the kernel";
    default:
      break;
  }
  if (signal == SIGSEGV) {
    switch (code) {
      case SEGV_MAPERR:
        return "address not mapped to object";
      case SEGV_ACCERR:
        return "invalid permissions for mapped object";
#ifdef SEGV_BNDERR
      case SEGV_BNDERR:
        return "failed address bound checks";
#endif
#ifdef SEGV_PKUERR
      case SEGV_PKUERR:
        return "access denied by memory protection keys";
#endif
    }
  } else if (signal == SIGBUS) {
    switch (code) {
      case BUS_ADRALN:
        return "invalid address alignment";
      case BUS_ADRERR:
        return "nonexistent physical address";
      case BUS_OBJERR:
        return "object-specific hardware error";
#ifdef BUS_MCEERR_AR
      case BUS_MCEERR_AR:
      case BUS_MCEERR_AO:
        return "hardware memory error";
#endif
    }
  } else if (signal == SIGFPE) {
    switch (code) {
      case FPE_INTDIV:
        return "integer divide by zero";
      case FPE_INTOVF:
        return "integer overflow";
      case FPE_FLTDIV:
        return "floating-point divide by zero";
      case FPE_FLTOVF:
        return "floating-point overflow";
      case FPE_FLTUND:
        return "floating-point underflow";
      case FPE_FLTRES:
        return "floating-point inexact result";
      case FPE_FLTINV:
        return "floating-point invalid operation";
      case FPE_FLTSUB:
        return "subscript out of range";
    }
  } else if (signal == SIGILL) {
    switch (code) {
      case ILL_ILLOPC:
        return "illegal opcode";
      case ILL_ILLOPN:
        return "illegal operand";
      case ILL_ILLADR:
        return "illegal addressing mode";
      case ILL_ILLTRP:
        return "illegal trap";
      case ILL_PRVOPC:
        return "privileged opcode";
      case ILL_PRVREG:
        return "privileged register";
      case ILL_COPROC:
        return "coprocessor error";
      case ILL_BADSTK:
        return "internal stack error";
    }
  }
  return nullptr;
}

namespace {

constexpr int kAddressDigits = 2 * sizeof(void*);

// ", name()+0012 byte(s)" / ", name()"; a name that already carries its
// parameter list (a demangled one) gets no second "()".
void AppendSymbol(Line& line, const Place& place) {
  if (place.symbol == nullptr || *place.symbol == '\0') return;
  const std::string_view name(place.symbol);
  line.Add(", ").Add(name);
  if (name.back() != ')') line.Add("()");
  if (place.displacement != 0) line.Add('+').Dec(place.displacement, 4).Add(" byte(s)");
}

void AppendSource(Line& line, const Place& place) {
  if (place.file == nullptr || *place.file == '\0') return;
  line.Add(", ").Add(place.file).Add(", line ").Dec(place.line, 4);
}

void AppendAddress(Line& line, unsigned code_segment, uintptr_t address) {
  line.Hex(code_segment, 4).Add(':').Hex(address, kAddressDigits);
}

}  // namespace

void AppendSummary(Line& line, const Fault& fault) {
  line.Add(fault.program).Add(" caused an ").Add(SignalName(fault.signal));
  const char* meaning =
      fault.stack_overflow ? "stack overflow" : SignalCodeMeaning(fault.signal, fault.code);
  if (meaning != nullptr || fault.has_data_address) {
    line.Add(" (");
    if (meaning != nullptr) line.Add(meaning);
    if (meaning != nullptr && fault.has_data_address) line.Add(", ");
    if (fault.has_data_address) line.Add("data at ").Hex(fault.data_address, kAddressDigits);
    line.Add(')');
  }
  const Place empty;
  const Place& place = fault.place != nullptr ? *fault.place : empty;
  line.Add(" in module ").Add(place.module != nullptr ? place.module : "<UNKNOWN>");
  line.Add(" at ");
  AppendAddress(line, fault.code_segment, place.pc);
  AppendSymbol(line, place);
  AppendSource(line, place);
}

void AppendStackLine(Line& line, unsigned code_segment, const Place& place) {
  AppendAddress(line, code_segment, place.pc);
  if (place.module != nullptr) line.Add(' ').Add(place.module).Add("+0x").Hex(place.offset, 1);
  AppendSymbol(line, place);
  AppendSource(line, place);
}

void AppendRegisters(Line& line, const void* context) {
  const auto* uc = static_cast<const ucontext_t*>(context);
#if defined(__x86_64__)
  const greg_t* r = uc->uc_mcontext.gregs;
  struct Named {
    const char* name;
    int index;
  };
  static constexpr Named kGeneral[] = {
      {"RAX", REG_RAX}, {"RBX", REG_RBX}, {"RCX", REG_RCX}, {"RDX", REG_RDX},
      {"RSI", REG_RSI}, {"RDI", REG_RDI}, {"RBP", REG_RBP}, {"RSP", REG_RSP},
      {"R8 ", REG_R8},  {"R9 ", REG_R9},  {"R10", REG_R10}, {"R11", REG_R11},
      {"R12", REG_R12}, {"R13", REG_R13}, {"R14", REG_R14}, {"R15", REG_R15},
  };
  for (size_t i = 0; i < std::size(kGeneral); ++i) {
    line.Add(kGeneral[i].name).Add('=').Hex(static_cast<uint64_t>(r[kGeneral[i].index]), 16);
    line.Add(i % 4 == 3 ? "\n" : "  ");
  }
  line.Add("RIP=").Hex(static_cast<uint64_t>(r[REG_RIP]), 16);
  line.Add("  FLG=").Hex(static_cast<uint64_t>(r[REG_EFL]) & 0xFFFFFFFFu, 8).Add('\n');
  // CS, GS and FS share one slot, 16 bits each from the low end.
  const uint64_t segments = static_cast<uint64_t>(r[REG_CSGSFS]);
  line.Add("CS=").Hex(segments & 0xFFFF, 4);
  line.Add("   GS=").Hex((segments >> 16) & 0xFFFF, 4);
  line.Add("  FS=").Hex((segments >> 32) & 0xFFFF, 4);
#elif defined(__aarch64__)
  const auto& m = uc->uc_mcontext;
  for (int i = 0; i < 31; ++i) {
    line.Add('X').Dec(i, 2).Add('=').Hex(m.regs[i], 16);
    line.Add(i % 4 == 3 ? "\n" : "  ");
  }
  line.Add("  SP=").Hex(m.sp, 16).Add('\n');
  line.Add("PC=").Hex(m.pc, 16).Add("  PSTATE=").Hex(m.pstate, 8);
#else
  (void)uc;
  line.Add("registers: not available on this architecture");
#endif
}

namespace {

// Copies `text` into `out` (cut to fit) and returns it.
char* CopyInto(char* out, size_t capacity, std::string_view text) {
  const size_t n = text.size() < capacity - 1 ? text.size() : capacity - 1;
  std::memcpy(out, text.data(), n);
  out[n] = '\0';
  return out;
}

}  // namespace

void ReadSymboliserOutput(char* text, size_t size, Place* const* places, size_t count) {
  size_t pos = 0;
  auto next_line = [&]() -> std::string_view {
    if (pos >= size) return {};
    const size_t start = pos;
    while (pos < size && text[pos] != '\n') ++pos;
    const std::string_view line(text + start, pos - start);
    if (pos < size) ++pos;
    return line;
  };
  for (size_t i = 0; i < count && pos < size; ++i) {
    Place& place = *places[i];
    const std::string_view function = next_line();
    std::string_view where = next_line();
    if (!function.empty() && function != "??") {
      // The displacement belonged to the loader's nearest symbol, which may
      // be another one; the symboliser's name stands without it.
      place.symbol = CopyInto(place.function_text, sizeof place.function_text, function);
      place.displacement = 0;
    }
    // "file:line", perhaps followed by " (discriminator N)".
    const size_t blank = where.find(' ');
    if (blank != std::string_view::npos) where = where.substr(0, blank);
    const size_t colon = where.rfind(':');
    if (colon == std::string_view::npos) continue;
    const std::string_view file = where.substr(0, colon);
    unsigned number = 0;
    bool digits = colon + 1 < where.size();
    for (char c : where.substr(colon + 1)) {
      if (c < '0' || c > '9') {
        digits = false;
        break;
      }
      number = number * 10 + static_cast<unsigned>(c - '0');
    }
    if (file.empty() || file == "??" || !digits || number == 0) continue;
    place.file = CopyInto(place.file_text, sizeof place.file_text, file);
    place.line = number;
  }
}

}  // namespace crash
