// SPDX-License-Identifier: GPL-3.0-or-later
// The pieces of a crash report's text. They run inside a fatal-signal
// handler: fixed buffers only, no allocation, no locks, no stdio.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace crash {

// One line (or block) of a report. Text that would pass the capacity is cut.
class Line {
 public:
  static constexpr size_t kCapacity = 1024;

  Line& Add(std::string_view text);
  Line& Add(char c);
  // Upper-case hexadecimal, zero-padded to at least `digits`.
  Line& Hex(uint64_t value, int digits);
  // Decimal, zero-padded to at least `digits`.
  Line& Dec(uint64_t value, int digits = 1);

  std::string_view view() const { return {text_, size_}; }
  void clear() { size_ = 0; }

 private:
  char text_[kCapacity];
  size_t size_ = 0;
};

// What is known of one code address.
struct Place {
  uintptr_t pc = 0;
  const char* module = nullptr;  // file name of the module that holds pc
  // pc (less one for a return address) as `addr2line -e module` takes it.
  uintptr_t offset = 0;
  const char* symbol = nullptr;  // nearest symbol, or null
  uintptr_t displacement = 0;    // bytes from the symbol's start; 0 prints no displacement
  const char* file = nullptr;    // source file, or null
  unsigned line = 0;
  // Storage for names that come from the symboliser.
  char function_text[256] = {};
  char file_text[256] = {};
};

struct Fault {
  const char* program = "";
  int signal = 0;
  int code = 0;
  bool has_data_address = false;  // the address whose access failed
  uintptr_t data_address = 0;
  bool stack_overflow = false;
  unsigned code_segment = 0;
  const Place* place = nullptr;  // the faulting instruction
};

// "SIGSEGV" and the like; "signal" for any other number.
const char* SignalName(int signal);
// The meaning of a siginfo code for that signal, or null when unknown.
const char* SignalCodeMeaning(int signal, int code);

// "<program> caused an <signal> (<meaning>) in module <module or <UNKNOWN>>
// at CCCC:AAAAAAAAAAAAAAAA", then the symbol and the source line when known.
void AppendSummary(Line& line, const Fault& fault);

// "CCCC:AAAAAAAAAAAAAAAA <module>+0x<offset>, <symbol>, <file>, line NNNN",
// each part after the address only when known.
void AppendStackLine(Line& line, unsigned code_segment, const Place& place);

// The general registers of a ucontext_t, several lines without a final line
// feed. Architectures without a layout here get one line saying so.
void AppendRegisters(Line& line, const void* ucontext);

// Reads what `addr2line -f -C` printed for `count` addresses (two lines each:
// the function, then "file:line") into the places' symbol, file and line.
// "??" means unknown and leaves a field as it was. Changes `text`.
void ReadSymboliserOutput(char* text, size_t size, Place* const* places, size_t count);

}  // namespace crash
