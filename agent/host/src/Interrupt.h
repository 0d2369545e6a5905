#pragma once

// Sets what a signal does.
void HandleSignal(int signal, void (*handler)(int));
// From now on SIGINT, SIGTERM and SIGHUP only ask the work to end; a broken pipe is an error of the
// write that meets it.
void CatchInterrupts();
// True once one of them has come. Cheap.
bool Interrupted();
