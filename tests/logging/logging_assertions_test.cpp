// Assertions of the logging family: a record that is used after its cleanup, and broken invariants.
#include <gtest/gtest.h>

#include <cstdlib>

#include <vncommon/file_logger.h>

#include "logging/registry.h"
#include "logging/reopening.h"
#include "support/failed_assertion.h"

namespace {

using namespace vncommon;

// A logger on standard error, cleaned up.
FileLogger cleanedUp() {
    FileLogger logger;
    FileLogger_init(&logger);
    FileLogger_SetFD(&logger, 2);
    FileLogger_cleanup(&logger);
    free(logger.buffer);
    return logger;
}

VN_CHILD(writesAfterCleanup) {
    FileLogger logger = cleanedUp();
    FileLogger_LogError(&logger, "late");
    return 9;
}

VN_CHILD(setsTheLevelAfterCleanup) {
    FileLogger logger = cleanedUp();
    FileLogger_SetLogLevel(&logger, 9);
    return 9;
}

VN_CHILD(cleansUpTwice) {
    FileLogger logger = cleanedUp();
    FileLogger_cleanup(&logger);
    return 9;
}

TEST(LoggerAssertions, CatchUseAfterCleanup) {
    expectFailedAssertion("writesAfterCleanup", "mutex != nullptr");
    expectFailedAssertion("setsTheLevelAfterCleanup", "logger->mutex != nullptr");
    expectFailedAssertion("cleansUpTwice", "logger->mutex != nullptr");
}

VN_CHILD(writesWithABrokenBuffer) {
    FileLogger* logger = FileLogger_ctor();
    FileLogger_SetFD(logger, 2);
    logger->prefixLength = logger->bufferSize;
    FileLogger_LogError(logger, "beyond");
    return 9;
}

TEST(LineAssertions, CatchABrokenBuffer) {
    expectFailedAssertion("writesWithABrokenBuffer", "isBufferValid(logger)");
}

VN_CHILD(destroysAPlanTwice) {
    ReopenPlan* plan = makeReopenPlan("name", "name");
    ReopenPlan kept = *plan;
    kept.mark.clear();
    destroyReopenPlan(plan);
    destroyReopenPlan(&kept);
    return 9;
}

TEST(PlanAssertions, CatchUseAfterDestruction) {
    expectFailedAssertion("destroysAPlanTwice", "isValid(plan)");
}

VN_CHILD(exchangesAPlanWithoutTheLock) VN_NO_THREAD_SAFETY_ANALYSIS {
    FileLogger* logger = FileLogger_ctor();
    return exchangePlan(logger, nullptr) == nullptr ? 9 : 8;
}

TEST(RegistryAssertions, CatchAccessWithoutTheLock) {
    expectFailedAssertion("exchangesAPlanWithoutTheLock", "loggerMutex.isHeldByCaller()");
}

}  // namespace
