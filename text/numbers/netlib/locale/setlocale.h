/* The decimal point of netlib's reader: always ".", in every locale. */
#ifndef VN_NETLIB_SETLOCALE_H
#define VN_NETLIB_SETLOCALE_H

#include <locale.h>

struct VnNumericLocale {
    const char* decimal_point;
};

static const struct VnNumericLocale vnNumericLocale = {"."};

#define __get_numeric_locale(locale) (&vnNumericLocale)
#define __get_current_locale() ((locale_t)0)

#endif
