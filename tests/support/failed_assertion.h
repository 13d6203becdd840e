// Children that an assertion of the library must end.
#ifndef VN_TESTS_SUPPORT_FAILED_ASSERTION_H
#define VN_TESTS_SUPPORT_FAILED_ASSERTION_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "support/child_process.h"

// Runs the child and expects that it ends with the report of this condition.
inline void expectFailedAssertion(const std::string& child, const std::string& condition) {
    const ChildResult result = runChild(child);
    EXPECT_EQ(result.signal, SIGABRT) << result.exitStatus << result.err;
    EXPECT_THAT(result.err, testing::HasSubstr("assertion failed: " + condition + "\n"));
}

#endif
