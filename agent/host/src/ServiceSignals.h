#pragma once

// From now on SIGTERM and SIGINT ask the service to end, SIGHUP asks it to read its configuration
// anew; a broken pipe is an error of the write that meets it.
void CatchServiceSignals();
// True once the end was asked for. Cheap.
bool StopWanted();
// True once for each time that the configuration is to be read; requests that come together are
// one. Cheap.
bool TakeReload();
// Readable from a signal on until TakeSignals is called, whichever thread the signal reached.
int SignalDescriptor();
void TakeSignals();
