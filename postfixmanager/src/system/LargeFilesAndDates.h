// Included first, before any system header, by every source that opens files or reads the clock:
// a 32-bit build then takes files beyond 2 GiB and dates beyond January 2038.
#ifndef QV_LARGEFILESANDDATES_H
#define QV_LARGEFILESANDDATES_H

#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64 // NOLINT(bugprone-reserved-identifier)
#endif
#ifndef _TIME_BITS
#define _TIME_BITS 64 // NOLINT(bugprone-reserved-identifier)
#endif

#endif
