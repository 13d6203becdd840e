/* What every source of netlib's includes first. */
#include <reent.h>
