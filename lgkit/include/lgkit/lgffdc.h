/* First-failure data capture: when a logger writes a record of level 6000, its first-failure handlers copy
 * the files they list into a fresh directory below their base directory. Copying happens on the toolkit's own
 * thread and is bounded in number, bytes and rate; a failure costs the copy, never the caller. Callable from
 * any thread. */
#ifndef LGKIT_LGFFDC_H
#define LGKIT_LGFFDC_H

#include "lgkit/lgkit.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Switches first-failure capture on. Before or after the toolkit is opened, any number of times. Always 1. */
LGK_EXPORT int LgkInitFFDCExtensions(void);

/* The files that are copied: property "files", separated by blanks or commas. A name without a slash lies in
 * the directory of the logger's own file. The copy is freed with LgkMemoryFree; null if nothing is listed. */
LGK_EXPORT char *LgkFileCopyHandlerGetFiles(LgkObject *handler);
LGK_EXPORT int LgkFileCopyHandlerSetFiles(LgkObject *handler, const char *list); /* 1 is success */

/* Where incidents are put: property "baseDir"; created when the first incident needs it. Ownership as above.
 */
LGK_EXPORT char *LgkFFDCTriggerHandlerGetBaseDir(LgkObject *handler);
LGK_EXPORT int LgkFFDCTriggerHandlerSetBaseDir(LgkObject *handler, const char *directory); /* 1 is success */

#ifdef __cplusplus
}
#endif

#endif
