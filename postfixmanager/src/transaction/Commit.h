#ifndef QV_COMMIT_H
#define QV_COMMIT_H

#include "stage/Stage.h"
#include "transaction/Journal.h"

// Does all of a commit that can fail, beside the world: compares and checks the staged copies,
// builds their tables, makes the new directories of the spool, syncs everything. Returns what is
// then to be done. Throws a Refusal, and nothing is done.
//
// What an outsider sees of the rest is a sequence of renames, each of a whole and valid file. Their
// order lets Postfix and Dovecot serve every state between two of them: a new account is there
// before mail is routed to it, a route goes before its account. A map that both gains and loses
// entries is renamed twice, the first time with both.
Journal prepareCommit(Stage& stage);

#endif
