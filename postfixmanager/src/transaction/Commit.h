#ifndef QV_COMMIT_H
#define QV_COMMIT_H

#include "stage/Stage.h"
#include "transaction/Journal.h"

// Does everything in a commit that can fail: compares and checks the staged copies, builds their
// lookup tables, makes the new directories of the spool, syncs everything. Returns what remains to
// be done. When it throws a Refusal, nothing is published.
//
// The rest is a sequence of renames, each of a whole and valid file, in an order that lets Postfix
// and Dovecot serve every state between two of them: a new account is there before mail is routed
// to it, and a route goes before its account. A map that both gains and loses entries is renamed
// twice, the first time with both.
Journal prepareCommit(Stage& stage);

#endif
