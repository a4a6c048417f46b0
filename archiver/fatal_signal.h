// Fatal signals: whatever ends the process from outside (or a fault inside)
// while a library is being rewritten, the library is left whole and nothing
// of the new one stays behind.
//
// Five signals have their own report: a termination request a one-line note,
// the four faults an internal-error notice; each then exits with status 1.
// Every other signal that would end the process gets the same clean-up and
// then ends it as that signal always does (its default action), so that a
// shell sees an interrupt as an interrupt. A signal ignored when the process
// starts (a background job's SIGINT, say) stays ignored.
#pragma once

void install_fatal_signal_handlers();
