/* Translated messages from POSIX catalogues, found along NLSPATH for the locale of LC_ALL, LC_MESSAGES or
 * LANG. The environment is read once, at nls_set_dir or at the first message, so that a later change of it by
 * another thread does no harm. Callable from any thread; texts live as long as the process. */
#ifndef LGKIT_NLSM_H
#define LGKIT_NLSM_H

#ifdef __cplusplus
extern "C" {
#endif

#define NLS_EXPORT __attribute__((visibility("default")))

/* Names the directory of code-set tables and reads the environment. Texts are UTF-8 throughout and need no
 * table, so the directory need not exist. 1 is success, 0 a null or empty directory, which changes nothing.
 */
NLS_EXPORT int nls_set_dir(const char *directory);

/* Message `number` of `set` in `catalog`, or `defaultText` itself if there is no such catalogue or message.
 * Null only if `defaultText` is. NLSPATH holds templates separated by ":" or ";", with %N (catalogue), %L
 * (locale: tried as language_territory.codeset, language_territory, language), %l, %t, %c (its three pieces)
 * and %%. */
NLS_EXPORT const char *nls_message(const char *catalog, int set, int number, const char *defaultText);

#ifdef __cplusplus
}
#endif

#endif
