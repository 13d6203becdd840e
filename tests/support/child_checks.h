// Checks in the body of a VN_CHILD.
#ifndef VN_TESTS_SUPPORT_CHILD_CHECKS_H
#define VN_TESTS_SUPPORT_CHILD_CHECKS_H

#include <gtest/gtest.h>

#include <cstdio>

#include "support/child_process.h"

// A child names its first failed check and ends with 1.
#define CHECK(condition)                                            \
    do {                                                            \
        if (!(condition)) {                                         \
            fprintf(stderr, "line %d: %s\n", __LINE__, #condition); \
            return 1;                                               \
        }                                                           \
    } while (false)

inline void expectSuccess(const char* child) {
    const ChildResult result = runChild(child);
    EXPECT_EQ(result.exitStatus, 0) << result.err;
}

#endif
