// Ctrl-C and other signals that end a command: where they may end it, and where they must not.
#ifndef QVMAILCTL_INTERRUPTION_H
#define QVMAILCTL_INTERRUPTION_H

// From now on a signal is noted, and the command ends at the next stopIfInterrupted or
// waitForInput.
void watchInterruptions();

bool isInterrupted();

// Ends the command, with nothing changed, if a signal came.
void stopIfInterrupted();

// Returns when there is something to read. Ends the command at a signal, even if the signal came
// just before the call.
void waitForInput(int descriptor);

// From now on no signal ends the command or the programs that it runs.
void ignoreInterruptions();

#endif
