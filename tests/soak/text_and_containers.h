// The families without shared state. Each function does a little random work with one of them and
// compares the results with the standard library's.
#ifndef VN_TESTS_SOAK_TEXT_AND_CONTAINERS_H
#define VN_TESTS_SOAK_TEXT_AND_CONTAINERS_H

#include "soak/checks.h"

void useStringBuffer(Random& random);
void useByteBuffer(Random& random);
void useStrings(Random& random);
void useNumbers(Random& random);
void useDecimals(Random& random);
void useUtf8(Random& random);
void useVector(Random& random);
void useHashMap(Random& random);
void useEventWriter(Random& random);
void useMaths(Random& random);

#endif
