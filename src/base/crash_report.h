// SPDX-License-Identifier: GPL-3.0-or-later
// The crash report: what a fatal signal leaves behind before the process ends.
//
// The report is, in this order: the summary line ("<program> caused an
// SIGSEGV (...) in module <module> at <address>", with the symbol and source
// line when known), one line per stack frame from the faulting instruction
// outward, and the register block. Each frame names its module and the offset
// in it, so that a report from a machine without a symboliser can be
// symbolised later with `addr2line -e <module> <offset>`.
#pragma once

#include <signal.h>

#include <string>

// Installs the handler for SIGSEGV, SIGBUS, SIGFPE, SIGILL and SIGABRT. On
// such a signal the report goes to standard error and to `crash_file_path`
// (none when empty; the file is created only when a crash happens), then the
// process ends by the signal's default action. Throws SystemError when the
// system refuses the handler, std::invalid_argument for a path too long to
// keep. Calling it again replaces the file path.
void InstallCrashHandler(const std::string& crash_file_path);

// Gives the calling thread its own stack for the handler, so that a stack
// overflow in that thread is reported too. InstallCrashHandler does this for
// its own thread; other threads call it when they start. The stack is
// released when the thread ends.
void PrepareCrashStack();

// The text of the last report, empty if none was made.
std::string CrashReport();

// Builds the report for `signal` with its info and machine context (a
// ucontext_t, as a handler receives it), writes it to `fd` (if >= 0) and keeps
// it for CrashReport(). The process goes on: this is the handler's own report
// path, open for callers that want a report without a crash.
void WriteCrashReport(int signal, const siginfo_t& info, const void* context, int fd);
