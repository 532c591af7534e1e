// Ctrl-C and other signals that end a command: where it may end, and where it must not.
#ifndef QVMAILCTL_INTERRUPTION_H
#define QVMAILCTL_INTERRUPTION_H

// From here on a signal is noted, and ends the command where it looks for one.
void watchInterruptions();

bool isInterrupted();

// Ends the command, with nothing changed, if it was told to end.
void stopIfInterrupted();

// Returns when there is something to read. Ends the command at a signal, also at one that came just
// before.
void waitForInput(int descriptor);

// From here on nothing ends the command, nor the programs that it runs.
void ignoreInterruptions();

#endif
