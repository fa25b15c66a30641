/* pxEnv: the environment library that pxImage calls for logging, settings, memory, files and byte order.
 *
 * This header is the whole contract between pxImage and its environment. The project ships a default
 * implementation (library pxEnv); an integrator may link the system's own library instead, as long as it
 * keeps the promises written here (see docs/platform.md). Everything in the C section is callable from C99.
 */
#ifndef PXENV_H
#define PXENV_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#if defined(_WIN32)
#define PXENV_API __declspec(dllexport)
#else
#define PXENV_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Boolean of the environment library: 0 is false, anything else true. */
typedef int pxBool;

/* ---- Logging ------------------------------------------------------------------------------------------
 * Levels: 1 trace, 2 debug, 3 info, 4 warning, 5 error. Every record goes to one sink; the default sink
 * prints one line to stderr when the level is at or above PXENV_LOG_LEVEL (environment, default 4). */

/* Which function produced a record. */
enum pxEnvLogKind { PXENV_LOG_F = 0, PXENV_LOG_I = 1, PXENV_LOG_ERROR = 2 };

/* Receives every record: kind, level, source line, module, build date, code (0 for writeLogF) and the
 * formatted text (empty for a trace). The strings are valid only during the call. */
typedef void (*pxEnvLogSink)(void *user, int kind, int level, int line, const char *module, const char *date,
                             uint32_t code, const char *text);

/* Replaces the sink; a null sink restores the default stderr sink. O(1). Records are handed to the sink one
 * at a time under a lock, so the sink needs no lock of its own; a replacement waits for a record being
 * emitted. A sink may itself log (the lock is recursive). */
PXENV_API void pxEnvSetLogSink(pxEnvLogSink sink, void *user);

/* Logs a message at a level; a null format is a trace (empty text). printf-style. Any level reaches the sink
 * (the default sink prints a level outside 1..5 as '?'). O(text length). No result. */
PXENV_API void writeLogF(int level, int line, const char *module, const char *date, const char *format, ...);

/* Logs a message with an error code; printf-style format (null gives an empty text). O(text length). No
 * result. */
PXENV_API void writeLogI(int level, int line, const char *module, const char *date, uint32_t code,
                         const char *format, ...);

/* Reports an error by code: the arguments are formatted with the environment's own format for that code
 * (pxEnvErrorFormat), so the record always carries readable text. The argument types per code are listed
 * in docs/platform.md; a null text argument prints as "(null)". O(number of codes + text length). No
 * result. */
PXENV_API void sendError(int level, int line, const char *module, const char *date, uint32_t code, ...);

/* The printf format that sendError uses for a code. For a code outside the catalogue it is a generic format
 * whose one argument is the code itself (sendError prints the code, not its own arguments). Never null.
 * O(number of codes). */
PXENV_API const char *pxEnvErrorFormat(uint32_t code);

/* ---- Named parameters ----------------------------------------------------------------------------------
 * Read from an in-process store. On first use the store loads the `key = value` file named by the
 * environment variable PXENV_PARAM_FILE ('#' starts a comment). Each getter writes the value (or the
 * default when the key is absent or does not parse) into out. It returns 1 when the key is absent (the
 * default is the setting) or present and parsed in full, and 0 when the key is present but its text does
 * not parse (e.g. "12abc" for an int), or key or out is null: a failed read is a configuration error, an
 * unset key is not. Numbers are read in the "C" notation whatever the locale. O(log n) per call. */
PXENV_API int pxEnvGetParam2int(const char *key, int defaultValue, int *out);
PXENV_API int pxEnvGetParam2float(const char *key, float defaultValue, float *out);
PXENV_API int pxEnvGetParam2double(const char *key, double defaultValue, double *out);
/* Accepts 1/0, true/false, yes/no, on/off (any case). */
PXENV_API int pxEnvGetParam2pxBool(const char *key, pxBool defaultValue, pxBool *out);

/* Sets one key in the store (the value as text). O(log n). Returns 1, or 0 on a null key or value. */
PXENV_API int pxEnvSetParam(const char *key, const char *value);
/* Removes every key, and stops the parameter file from being loaded later. O(n). */
PXENV_API void pxEnvClearParams(void);
/* Loads `key = value` lines from a file into the store (later lines win; key and value trimmed; lines
 * without '=' or with an empty key ignored). O(file size). Returns 1, or 0 if unreadable or path is null. */
PXENV_API int pxEnvLoadParamFile(const char *path);

/* ---- Memory ----------------------------------------------------------------------------------------------
 * Each allocator takes the address of the pointer to fill; on failure it stores null and returns 0, on
 * success it returns 1 (a null address is 0, nothing stored). A request of 0 bytes allocates a minimal block.
 * Cost: the C runtime's calloc (zero fill, O(size)) or malloc; thread-safe. */
PXENV_API int pxMallocInitZero(void **pointer, size_t size);
PXENV_API int pxMallocNoInit(void **pointer, size_t size);
/* Frees *pointer (a null pointer or a null address is fine) and sets it to null. O(1). Returns 1. */
PXENV_API int pxMallocFree(void **pointer);

/* Test hook: the n-th allocation from now (1 = the next one) fails, once; 0 (or a negative n) disarms.
 * Counts across all threads. O(1). */
PXENV_API void pxEnvFailAllocationAfter(long n);
/* Number of blocks allocated through this library and not yet freed (atomic). O(1). */
PXENV_API long pxEnvLiveAllocations(void);

/* ---- Files and byte order -------------------------------------------------------------------------------
 * Paths are 16-bit character strings (UTF-16, null-terminated), converted to UTF-8; '\\' is taken as a
 * path separator on every host. */
/* Opens a file with fopen's mode. O(path length). Returns the file, or null with errno set (EINVAL for a
 * null path or mode or an unpaired surrogate in the path; fopen's errno otherwise). */
PXENV_API FILE *pxFileOpen(const uint16_t *path, const char *mode);
/* Closes a file; returns 1, or 0 when closing failed (errno set). A null file is 1. */
PXENV_API int pxFileClose(FILE *file);
/* Removes the regular file at path (a symbolic link, device, directory or anything else that is not a
 * regular file is left alone: 0 with errno EPERM). O(path length). Returns 1, or 0 with errno set (EINVAL
 * for a null path or an unpaired surrogate; the C runtime's errno otherwise). */
PXENV_API int pxFileRemove(const uint16_t *path);

/* The file byte order is little-endian on every host. Each reader and writer moves 2 or 4 bytes, O(1), and
 * returns 1 on success and 0 when fewer bytes moved (errno kept from the C runtime, which sets none at end
 * of file; EINVAL for a null file or value); a failed read leaves *value unchanged, and the file position
 * past the bytes that were read. */
PXENV_API int pxEnvReadShort(FILE *file, uint16_t *value);
PXENV_API int pxEnvReadInt(FILE *file, int32_t *value);
PXENV_API int pxEnvWriteShort(FILE *file, uint16_t value);
PXENV_API int pxEnvWriteInt(FILE *file, int32_t value);
/* Converts count elements of size bytes in place between host and file order; its own inverse. Swaps the
 * bytes of each element on a big-endian host only (nothing to do on a little-endian one). O(count x size). */
PXENV_API void pxEnvFlip(void *buffer, size_t count, size_t size);

#ifdef __cplusplus
}
#endif

#endif /* PXENV_H */
