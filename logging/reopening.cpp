#include "logging/reopening.h"

#include <unistd.h>

#include <cstring>
#include <initializer_list>

#include <vncommon/failure.h>
#include <vncommon/utf8.h>

#include "logging/log_file.h"
#include "logging/shared_field.h"
#include "platform/assertion.h"

namespace vncommon {
namespace {

constexpr size_t errorTextRoom = 256;  // glibc's longest has 50 bytes

char* makeReport(const char* name, size_t& length) {
    constexpr char beforeName[] = "Unable to open logfile \"";
    constexpr char afterName[] = "\": ";
    length = strlen(beforeName) + strlen(name) + strlen(afterName);
    auto* report = static_cast<char*>(vn_malloc(length + errorTextRoom));
    stpcpy(stpcpy(stpcpy(report, beforeName), name), afterName);
    return report;
}

// One write() to descriptor 2. glibc 2.36: strerrordesc_np() reads a constant table; strerror_r()
// may load a message catalogue, which is not allowed in a signal handler.
void writeReport(const ReopenPlan* plan, int error) {
    const char* description = strerrordesc_np(error);
    if (description == nullptr) {
        description = "An unknown error occurred";
    }
    const size_t length = strnlen(description, errorTextRoom - 1);
    VN_ASSERT(length > 0);
    char* end = plan->report + plan->reportLength;
    memcpy(end, description, length);
    end[length] = '\n';
    [[maybe_unused]] const ssize_t ignored =
        write(STDERR_FILENO, plan->report, plan->reportLength + length + 1);
}

void swapName(char*& field, char*& name) {
    char* before = field;
    storePointer(field, name);
    name = before;
}

void useStream(FileLogger* logger, int stream) VN_REQUIRES(loggerMutex) {
    const bool owned = ownsDescriptor(logger);
    const int old = logger->fd;
    storeField(logger->fd, stream);
    storeField(logger->console, isTerminal(stream));
    if (owned) {
        close(old);
    }
}

// Moves the logger to standard error and its name. Another thread may be about to write a line to
// the old descriptor, so that becomes a duplicate of standard error, which is closed with the plan.
void fallBack(FileLogger* logger, ReopenPlan* plan) VN_REQUIRES(loggerMutex) {
    const bool owned = ownsDescriptor(logger);
    const int old = logger->fd;
    storeField(logger->fd, STDERR_FILENO);
    storeField(logger->console, isTerminal(STDERR_FILENO));
    swapName(logger->fileName, plan->fallBackNames[0]);
    swapName(logger->utf8FileName, plan->fallBackNames[1]);
    plan->stream = STDERR_FILENO;
    VN_ASSERT(plan->duplicateDescriptor == -1);
    if (owned && dup2(STDERR_FILENO, old) < 0) {
        close(old);
    } else if (owned) {
        plan->duplicateDescriptor = old;
    }
}

// A failure with a message takes precedence over one without.
void rememberFailure(FileLogger* logger, int failure) {
    if (failure == 1 || logger->openFailure == 0) {
        storeField(logger->openFailure, failure);
    }
}

OpenResult openPlanned(FileLogger* logger, const ReopenPlan* plan) VN_REQUIRES(loggerMutex) {
    if (plan->stream >= 0) {
        return nothingToOpen;
    }
    const OpenResult opened = openLogFile(plan->path, 0);
    return makeRoomForDescriptor(logger, opened.error) ? openLogFile(plan->path, 0) : opened;
}

}  // namespace

int standardStream(const char* name) {
    if (strcmp(name, standardErrorName) == 0) {
        return STDERR_FILENO;
    }
    return strcmp(name, standardOutputName) == 0 ? STDOUT_FILENO : -1;
}

bool isValid(const ReopenPlan* plan) {
    const bool isStream = plan->stream == STDOUT_FILENO || plan->stream == STDERR_FILENO;
    return plan->mark.isSet() && (isStream || plan->stream == -1) && plan->path != nullptr &&
           plan->nextFileName != nullptr && plan->report != nullptr && plan->reportLength > 0 &&
           plan->duplicateDescriptor >= -1;
}

ReopenPlan* makeReopenPlan(const char* fileName, const char* utf8FileName) {
    auto* plan = static_cast<ReopenPlan*>(vn_malloc(sizeof(ReopenPlan)));
    plan->mark = {};
    plan->stream = standardStream(fileName);
    plan->path = vn_UTF8ToCstr(utf8FileName);
    vn_checkMemory(plan->path);
    plan->nextFileName = vn_strdup(utf8FileName);
    plan->renames = strcmp(fileName, utf8FileName) != 0;
    for (char*& name : plan->fallBackNames) {
        name = vn_strdup(standardErrorName);
    }
    plan->duplicateDescriptor = -1;
    plan->report = makeReport(utf8FileName, plan->reportLength);
    VN_ASSERT(isValid(plan));
    return plan;
}

void destroyReopenPlan(ReopenPlan* plan) {
    if (plan == nullptr) {
        return;
    }
    VN_ASSERT(isValid(plan));
    closeDuplicate(plan);
    plan->mark.clear();
    for (char* text : {plan->path, plan->nextFileName, plan->fallBackNames[0],
                       plan->fallBackNames[1], plan->report}) {
        vn_free(text);
    }
    vn_free(plan);
}

void closeDuplicate(ReopenPlan* plan) {
    if (plan->duplicateDescriptor >= 0) {
        close(plan->duplicateDescriptor);
        plan->duplicateDescriptor = -1;
    }
}

void followPlan(FileLogger* logger, ReopenPlan* plan, OpenResult opened, int openFailure) {
    VN_ASSERT(loggerMutex.isHeldByCaller());
    VN_ASSERT(isValid(plan));
    if (plan->stream >= 0) {
        useStream(logger, plan->stream);
    } else if (opened.error != 0) {
        rememberFailure(logger, openFailure);
        fallBack(logger, plan);
    } else {
        adoptDescriptor(logger, opened.descriptor);
        storeField(logger->console, isTerminal(logger->fd));
    }
    VN_ASSERT(isValid(plan));
    VN_ASSERT(logger->fd >= 0);
}

void reopen(FileLogger* logger, ReopenPlan* plan) {
    VN_ASSERT(loggerMutex.isHeldByCaller());
    VN_ASSERT(isValid(plan));
    const OpenResult opened = openPlanned(logger, plan);
    followPlan(logger, plan, opened, 1);
    if (opened.error != 0) {
        writeReport(plan, opened.error);
    } else if (opened.descriptor >= 0 && plan->renames) {
        swapName(logger->fileName, plan->nextFileName);
        plan->renames = false;
    }
}

}  // namespace vncommon
