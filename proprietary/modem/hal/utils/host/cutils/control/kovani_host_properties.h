#ifndef KOVANI_HOST_PROPERTIES_H
#define KOVANI_HOST_PROPERTIES_H

/*
 * Host-only control of the property store behind <cutils/properties.h>,
 * for tests and tools. There is no such API on the device.
 *
 * At first use of any property function the store loads the profile named
 * by KOVANI_PROPERTY_PROFILE, then the persistence file named by
 * KOVANI_PROPERTY_PERSIST, whose values win. Problems with either go to the
 * reporter like any other.
 *
 * Only regular files are read: a FIFO, device or directory is refused
 * without blocking, and so is a file larger than
 * KOVANI_HOST_PROPERTY_FILE_MAX, even one that grows while it is read.
 */

#include <stddef.h>

/* The largest profile or persistence file the store reads. */
#define KOVANI_HOST_PROPERTY_FILE_MAX (64u * 1024u * 1024u)

/*
 * The most bad lines one load reports; the rest are only counted. A load is
 * one call of kovani_host_property_load, kovani_host_property_load_text or
 * kovani_host_property_set_persist_file, or the environment's files at
 * first use.
 */
#define KOVANI_HOST_PROPERTY_REPORTED_LINES_MAX 100

/*
 * Whole seconds that anything waits for another process's lock on the
 * persistence file, 10 unless the environment variable
 * KOVANI_PROPERTY_LOCK_TIMEOUT holds a number of seconds (0: no wait). It is
 * read at each wait.
 */
#define KOVANI_HOST_PROPERTY_LOCK_TIMEOUT_ENV "KOVANI_PROPERTY_LOCK_TIMEOUT"

/* The kinds of report the store makes. */
enum {
  /* A profile line that could not be parsed; skipped. */
  KOVANI_HOST_PROPERTY_LINE_SKIPPED = 1,
  /* A persistence-file line that could not be parsed; kept as it is. */
  KOVANI_HOST_PROPERTY_LINE_KEPT = 2,
  /* A file that could not be read or was refused; nothing loaded from it. */
  KOVANI_HOST_PROPERTY_UNREADABLE = 3,
  /* A change the persistence file could not take; the file is unchanged. */
  KOVANI_HOST_PROPERTY_UNWRITABLE = 4,
  /*
   * The persistence file has been locked by another process for a second;
   * the store waits on, up to the time limit. Made at most once per wait.
   */
  KOVANI_HOST_PROPERTY_WAITING = 5,
};

/*
 * Receives one report. file is the path as the caller or the environment
 * gave it (or the source named to kovani_host_property_load_text), never a
 * temporary file. line counts from 1 for the two line kinds and is 0 for
 * the others. reason is a short text without a trailing newline.
 */
typedef void (*kovani_host_property_reporter)(int kind, const char* file, unsigned long line,
                                              const char* reason, void* cookie);

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Routes every later report of the store to fn with cookie. NULL restores
 * the default, which writes one line each on stderr:
 *   "<file>:<line>: <reason>, line skipped"
 *   "<file>:<line>: <reason>, line kept as it is"
 *   "<file>: <reason>"                 (unreadable, refused or waiting)
 *   "<file>: cannot write: <reason>"
 * fn is called on the thread whose call made the report, after the store
 * is unlocked, so it may use the property functions; except WAITING, which
 * comes at once while the store stays locked, so fn must not call any
 * property function for it (that would deadlock). Setting a reporter does
 * not load the environment's files, so it can be set before they are read.
 * kovani_host_property_reset leaves it in place.
 */
__attribute__((visibility("default"))) void kovani_host_property_set_reporter(
    kovani_host_property_reporter fn, void* cookie);

/*
 * Loads a profile (build.prop "name=value" lines or "adb shell getprop"
 * "[name]: [value]" lines, mixed as they come) over the current values,
 * ignoring write-once. A getprop value that spans lines is joined with '\n'
 * up to the line that ends with ']', unless a line that starts another
 * "[name]: [" entry comes first: then, as at the end of the text, the value
 * never closed and is a single bad line at its first line number, and the
 * lines after it are read as lines of their own. A UTF-8 byte-order mark at
 * the start is ignored. Each bad line (including one holding a NUL byte) is
 * skipped, and reported as LINE_SKIPPED up to
 * KOVANI_HOST_PROPERTY_REPORTED_LINES_MAX of them. Returns the number of
 * entries that set a property (a value spanning lines counts once) and, when
 * bad_lines is not NULL, stores the number of all bad lines there; or
 * returns -1 with errno set after an UNREADABLE report (EINVAL for a NULL
 * path, without a report).
 */
__attribute__((visibility("default"))) int kovani_host_property_load(const char* path,
                                                                     unsigned long* bad_lines);

/*
 * Loads size bytes of profile text from memory, such as standard input,
 * under the rules of kovani_host_property_load; source names the text in
 * reports ("-" when NULL). Returns as kovani_host_property_load does, with
 * errno EINVAL for NULL text with a non-zero size, or EFBIG after an
 * UNREADABLE report for text larger than KOVANI_HOST_PROPERTY_FILE_MAX.
 */
__attribute__((visibility("default"))) int kovani_host_property_load_text(
    const char* source, const char* text, size_t size, unsigned long* bad_lines);

/*
 * Why a profile line setting name to value would be refused ("invalid
 * property name", or the value's problem), or NULL when it would load.
 */
__attribute__((visibility("default"))) const char* kovani_host_property_problem(
    const char* name, const char* value);

/*
 * Sets a property regardless of write-once and value rules; only the name
 * must be valid. Returns 0 or -1. Never writes the persistence file.
 */
__attribute__((visibility("default"))) int kovani_host_property_seed(const char* name,
                                                                     const char* value);

/*
 * Removes a property. Returns 0, or -1 when it was absent or invalid. A
 * removed "persist." property is also removed from the persistence file.
 */
__attribute__((visibility("default"))) int kovani_host_property_unset(const char* name);

/*
 * Forgets every property and detaches the persistence file. The environment
 * variables are not loaded afterwards.
 */
__attribute__((visibility("default"))) void kovani_host_property_reset(void);

/*
 * Attaches a persistence file, or detaches it when path is NULL. Its entries
 * are loaded now over the current values; lines it cannot parse are reported
 * as LINE_KEPT. A missing file counts as empty. The file is refused
 * untouched with an UNREADABLE report when it does not look like a
 * persistence file (lines the store cannot parse and no "persist." entry at
 * all), cannot be read, is not a regular file, is too large, has more than
 * one hard link (a rewrite would split them), stays locked by another
 * process beyond the time limit, or is reached through a symbolic link that
 * is refused (see below); the function then returns -1 with errno set and
 * the previously attached file, if any, stays attached. Returns 0 otherwise.
 *
 * Each later change of a "persist." property by property_set or
 * kovani_host_property_unset rewrites the file: under an exclusive flock on
 * it, the file is read again and only that name changes, so processes that
 * share the file keep each other's entries. Every other line, including
 * lines the store cannot parse, stays as it is and in place; a new name is
 * appended. The new text goes to a temporary file created exclusively and
 * locked beside the file (named after it, "<name>.kovani-tmp.<hash of the
 * name>.<pid>.<start time>.XXXXXX", the name cut to 128 bytes), which is
 * synced and renamed over it, so a crash leaves the old or the new file,
 * never a torn one. A temporary left by a writer that died is removed: one
 * of this file's, unlocked, a regular file of the caller's, whose writer no
 * longer runs; nothing else is. The file keeps its mode, its extended
 * attributes (POSIX ACLs among them) and, where the process may set it, its
 * owner; a new file gets 0666 less the umask.
 *
 * A path that is a symbolic link is followed: the link stays and its final
 * target is replaced. A link is refused, whatever the system's
 * protected_symlinks setting, when it lies in a sticky world-writable folder
 * and belongs to neither the caller's effective user nor the folder's owner,
 * and so is a link whose target is missing: the store never creates a file
 * through a link. The refusal names the link.
 *
 * Whenever another process holds the file's lock, the store waits for it at
 * most the time limit (see KOVANI_HOST_PROPERTY_LOCK_TIMEOUT_ENV), with a
 * WAITING report after a second; then the attach or the change fails, naming
 * the file.
 *
 * A change the file cannot take (missing folder, no permission, a file
 * without any write permission bit even for root, an extended attribute that
 * cannot be kept, a full disk, any refusal above) leaves it unchanged and is
 * reported as UNWRITABLE; the value still changes in memory and property_set
 * still returns 0, as on the device.
 */
__attribute__((visibility("default"))) int kovani_host_property_set_persist_file(const char* path);

/*
 * Calls fn for every property in name order with its full value and returns
 * the number of properties. fn may call the property functions.
 */
__attribute__((visibility("default"))) int kovani_host_property_foreach(
    void (*fn)(const char* name, const char* value, void* cookie), void* cookie);

#ifdef __cplusplus
}
#endif

#endif /* KOVANI_HOST_PROPERTIES_H */
