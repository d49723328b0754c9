/* vorel utility functions: allocation, module loading, strings. */
#ifndef VOREL_UTIL_H
#define VOREL_UTIL_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Zero-filled allocation; NULL when size is 0 or memory is exhausted. */
void* vorel_malloc(size_t size);
/* Accepts NULL. */
void vorel_free(void* ptr);

/* Overwrites len bytes with zeros in a way the compiler may not drop; accepts NULL. */
void vorel_cleanse(void* ptr, size_t len);
/* 1 when the len bytes at a and b are equal, else 0, in time independent of their contents. */
int vorel_memequal(const void* a, const void* b, size_t len);

/* Byte string as the loader functions take it. */
typedef struct vorel_ustring_st vorel_ustring;
/* Copies len bytes of text (ASCII); NULL on a null text or exhausted memory. */
vorel_ustring* vorel_ustring_newascii(const char* text, size_t len);
const char* vorel_ustring_text(const vorel_ustring* str);
void vorel_ustring_free(vorel_ustring* str);

/* Dynamic modules. On failure vorel_dso_load returns NULL and the system's
 * last error (GetLastError / errno) tells why. */
typedef struct vorel_dso_st vorel_dso;
typedef void (*vorel_fnptr)(void);
vorel_dso* vorel_dso_load(const vorel_ustring* path);
vorel_fnptr vorel_dso_getfunction(vorel_dso* dso, const char* name);
void vorel_dso_free(vorel_dso* dso);

/* Points in time (UTC, whole seconds). */
typedef struct vorel_time_st vorel_time;
/* From "YYYYMMDDHHMMSSZ" (as certificate attributes give it) or "YYMMDDHHMMSSZ" (UTCTime);
 * NULL for any other text. */
vorel_time* vorel_time_newutctime(const char* text);
/* -1 when a is earlier than b, 0 when equal, 1 when later; NULL compares as equal. */
int vorel_time_cmp(const vorel_time* a, const vorel_time* b);
void vorel_time_free(vorel_time* t);

#ifdef __cplusplus
}
#endif

#endif
