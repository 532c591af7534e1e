// The mark of what the library exports; everything without it stays inside.
#ifndef QV_EXPORT_H
#define QV_EXPORT_H

#define QV_EXPORT __attribute__((visibility("default")))

#endif
