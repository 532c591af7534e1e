// The version of the library whose headers these are. Hosts that must build against several compare
// the number:
//
//     #if POSTFIXMANAGER_VERSION_NUMBER >= 10100 // 1.1.0
#ifndef QV_POSTFIXVERSION_H
#define QV_POSTFIXVERSION_H

// The build reads the version here: it stands nowhere else in the sources.
#define POSTFIXMANAGER_VERSION_MAJOR 1
#define POSTFIXMANAGER_VERSION_MINOR 0
#define POSTFIXMANAGER_VERSION_PATCH 0

#define POSTFIXMANAGER_VERSION_NUMBER                                                              \
    (POSTFIXMANAGER_VERSION_MAJOR * 10000 + POSTFIXMANAGER_VERSION_MINOR * 100 +                   \
     POSTFIXMANAGER_VERSION_PATCH)

// The version as text, "1.0.0". The two macros below it serve only this one.
#define POSTFIXMANAGER_VERSION                                                                     \
    QV_TEXT(POSTFIXMANAGER_VERSION_MAJOR)                                                          \
    "." QV_TEXT(POSTFIXMANAGER_VERSION_MINOR) "." QV_TEXT(POSTFIXMANAGER_VERSION_PATCH)
#define QV_TEXT(macro) QV_TEXT_AS_IT_IS(macro)
#define QV_TEXT_AS_IT_IS(text) #text

#endif
