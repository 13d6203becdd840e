/* Every netlib source includes this first. */
#include <reent.h>
