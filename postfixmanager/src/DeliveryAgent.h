#ifndef QV_DELIVERYAGENT_H
#define QV_DELIVERYAGENT_H

// Whether Dovecot delivers mail and so needs quota fields in vpasswd: the setting "DovecotLDA" of
// the product configuration file is exactly "yes". A plain call reads it each time, a transaction
// once.
bool deliveryAgentEnabled();

#endif
