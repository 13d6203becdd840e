/* The interface between netlib's conversion and this library: its big integers, the context of one
 * conversion, the functions that it calls (dtoamemory.cpp) and its two entry points, which
 * netlib_conversion.cpp calls. The names are netlib's. */
#ifndef VN_NETLIB_REENT_H
#define VN_NETLIB_REENT_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t __ULong;
typedef int32_t __Long;

struct _Bigint {
    struct _Bigint* _next; /* in a free list */
    bool _carved;          /* from a scratch area: never freed, never in a free list */
    int _k;                /* size class: room for 1 << _k words */
    int _maxwds;
    int _sign; /* from here on netlib copies big integers */
    int _wds;
    __ULong _x[1];
};

struct _reent {
    char* _digits; /* where _dtoa_r leaves its digits */
    int _errno;    /* set by _strtod_r, never cleared */
    struct _Bigint* _result;
    int _resultClass;
};

/* netlib frees the digits of the previous conversion here; ours are never in a block. */
#define _REENT_CHECK_MP(context)
#define _REENT_MP_RESULT(context) ((context)->_result)
#define _REENT_MP_RESULT_K(context) ((context)->_resultClass)
#define _REENT_ERRNO(context) ((context)->_errno)

/* netlib calls this when memory is exhausted. Never reached: _Balloc does not return null. */
#define __assert_func(file, line, function, text) __builtin_trap()

struct _Bigint* _Balloc(struct _reent* context, int k);
void _Bfree(struct _reent* context, struct _Bigint* block);
struct _Bigint* __pow5mult(struct _reent* context, struct _Bigint* b, int k);

struct _Bigint* __i2b(struct _reent* context, int value);
struct _Bigint* __multadd(struct _reent* context, struct _Bigint* b, int factor, int summand);
struct _Bigint* __multiply(struct _reent* context, struct _Bigint* a, struct _Bigint* b);

char* _dtoa_r(struct _reent* context, double x, int mode, int ndigits, int* decpt, int* sign,
              char** end);
double _strtod_r(struct _reent* context, const char* text, char** end);

#ifdef __cplusplus
}
#endif

#endif
