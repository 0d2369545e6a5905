#pragma once

// Reads the command line and runs the command that it names. Returns the exit status.
int RunCommandLine(int argc, char** argv);
