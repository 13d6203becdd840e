/* Where newer releases of newlib look for the byte order. */
#include <ieeefp.h>
