/* Newer releases of newlib include the byte order under this name. */
#include <ieeefp.h>
