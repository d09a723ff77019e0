/* Logging toolkit: named loggers and handlers from a property file, levels that change while running, records
 * that cost the caller no disk write. Every operation may be called from any thread, at any time, before the
 * open included, and never throws, exits or blocks on a disk. Handles live as long as the process. At the
 * limit (queue full, disk full, no memory) records are lost, the caller never waits. */
#ifndef LGKIT_LGKIT_H
#define LGKIT_LGKIT_H

#ifdef __cplusplus
extern "C" {
#endif

#define LGK_EXPORT __attribute__((visibility("default")))

/* A logger ("lgk_logger"), a file handler ("lgk_filehandler") or a first-failure handler ("lgk_ffdchandler").
 * Owned by the toolkit. */
typedef struct LgkObject LgkObject;

/* Opens the toolkit with the property file at `path` (lines `object.property=value`). 1 is success. Any other
 * result: the file is missing, unreadable, larger than 1,000,000 bytes or without one valid line, and nothing
 * has changed; or there is no memory or thread to write with, and nothing will be logged, though objects may
 * be there. Nothing was printed then. Lines that cannot be used are skipped and counted in one line on
 * standard error. Opening again adds to and overwrites the properties of the objects that are already there.
 */
LGK_EXPORT int LgkOpenToolkit(const char *path);

/* The object with this name, or null if there is none or it is of another type. `typeName` null takes any
 * type. */
LGK_EXPORT LgkObject *LgkGetObject(const char *name, const char *typeName);

/* A copy of the property's value, to be freed with LgkMemoryFree; null if the object is null or has no such
 * property. `foundFlag`, unless null, becomes 1 or 0. A property may be found and empty. */
LGK_EXPORT char *LgkGetObjProp(LgkObject *object, const char *property, int *foundFlag);

/* Sets a property; the value is copied. 1 is success; 0 for a null argument, a value of more than 4095 bytes
 * or a "level" that is not an integer, and nothing has changed then. Changes take effect at once ("level") or
 * with the next record ("fileName", "handlers", limits). */
LGK_EXPORT int LgkSetObjProp(LgkObject *object, const char *property, const char *value);
LGK_EXPORT int LgkSetObjPropInt(LgkObject *object, const char *property, int value);

/* Gives a handle back. The object stays; accepts null. */
LGK_EXPORT void LgkReleaseObject(LgkObject *object);

/* Frees what the toolkit allocated for the caller; accepts null. */
LGK_EXPORT void LgkMemoryFree(void *pointer);

/* 1 if the logger lets records of this level through (its "level" is not above it), else 0. 0 for null and
 * for anything but a logger. One relaxed load and a comparison. */
LGK_EXPORT int LgkIsLoggable(const LgkObject *object, int level);

/* Typed arguments follow the format as pairs of a code and a value and end with a single 0. A code that is
 * not listed ends the list; at most 32 pairs are read. */
#define LGK_ARG_INT 502    /* int, 32 bits */
#define LGK_ARG_LONG 503   /* long, 64 bits */
#define LGK_ARG_STRING 507 /* const char *, bytes up to the NUL; null prints as "(null)" */

/* Format: %d %i %u %x %X %o %c %s %f %e %g and %%, with flags, width, precision and length modifiers as in C,
 * and with zero-based positions ("%0$d", "%1$s"). The value's own code decides how it is read: a conversion
 * of another kind prints the value in its natural form, one with no argument prints "(missing)". A record is
 * one line of at most 4096 bytes; control characters become blanks. */

/* Trace records: levels 3000, 2000 and 1000. `file`, `function` and `format` may be null. */
LGK_EXPORT void LgkLogDebugMin(LgkObject *object, const char *file, const char *function, int line,
                               const char *format, ...);
LGK_EXPORT void LgkLogDebugMid(LgkObject *object, const char *file, const char *function, int line,
                               const char *format, ...);
LGK_EXPORT void LgkLogDebugMax(LgkObject *object, const char *file, const char *function, int line,
                               const char *format, ...);

/* Messages: levels 4000, 5000, 6000 and 6000. The text is message `number` of `set` in `catalog`, else
 * `format`, which is also the text when catalog, set and number are all 0. A record of level 6000 is on disk
 * soon after the call without the caller waiting, and sets off the logger's first-failure handlers. */
LGK_EXPORT void LgkLogInfo(LgkObject *object, const char *catalog, int set, int number, const char *format,
                           ...);
LGK_EXPORT void LgkLogWarn(LgkObject *object, const char *catalog, int set, int number, const char *format,
                           ...);
LGK_EXPORT void LgkLogError(LgkObject *object, const char *catalog, int set, int number, const char *format,
                            ...);
LGK_EXPORT void LgkLogFatal(LgkObject *object, const char *catalog, int set, int number, const char *format,
                            ...);

/* A line of plain text, written whatever the logger's level. `reserved` is 0. */
LGK_EXPORT void LgkLogText(LgkObject *object, const char *text, int reserved);

/* What to do for a first-failure handler of a logger that wrote a record of level 6000. Runs on the toolkit's
 * own thread, one call at a time, after the record is on disk; must not throw. `logDirectory` is the
 * directory of the logger's first file handler, empty if there is none. The arguments are valid during the
 * call only. */
typedef void (*LgkIncidentFunction)(LgkObject *handler, const char *record, const char *logDirectory);

/* Registers that function, for extensions of the toolkit; null switches incidents off. */
LGK_EXPORT void LgkSetIncidentFunction(LgkIncidentFunction function);

#ifdef __cplusplus
}
#endif

#endif
