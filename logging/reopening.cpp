#include "logging/reopening.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include <vncommon/failure.h>
#include <vncommon/utf8.h>

#include "logging/shared_field.h"

namespace vncommon {

const int logFileFlags = O_WRONLY | O_CREAT | O_APPEND;

// "Unable to open logfile \"%s\": %s\n" with the name filled in and room for the error's text.
struct FailureReport {
    char* text;
    size_t head;  // length up to where the error's text goes
    size_t size;
};

struct ReopenPlan {
    int stream;              // the standard stream to return to, or -1 to open path
    char* path;              // in the locale's code page
    char* nextFileName;      // what the file name becomes, and after that the one before;
    bool renames;            // only if it is another one
    char* fallBackNames[2];  // both names after a failure, and after that the ones before
    int leftDescriptor;      // kept open after a failure, see fallBack; -1 for none
    FailureReport report;
};

}  // namespace vncommon

using namespace vncommon;

namespace {

constexpr size_t errorTextRoom = 256;  // glibc's longest has 50 bytes

FailureReport makeFailureReport(const char* name) {
    constexpr char beforeName[] = "Unable to open logfile \"";
    constexpr char afterName[] = "\": ";
    FailureReport report;
    report.head = strlen(beforeName) + strlen(name) + strlen(afterName);
    report.size = report.head + errorTextRoom;
    report.text = static_cast<char*>(vn_malloc(report.size));
    char* end = stpcpy(stpcpy(report.text, beforeName), name);
    memcpy(end, afterName, strlen(afterName));
    return report;
}

// One write() to descriptor 2, where the ordinary report goes through stdio. strerrordesc_np()
// reads a table; strerror_r() may load a message catalogue and cannot be used here.
void writeReport(const FailureReport& report, int error) {
    const char* description = strerrordesc_np(error);
    if (description == nullptr) {
        description = "An unknown error occurred";
    }
    const size_t length = strnlen(description, errorTextRoom - 1);
    memcpy(report.text + report.head, description, length);
    report.text[report.head + length] = '\n';
    [[maybe_unused]] const ssize_t ignored =
        write(STDERR_FILENO, report.text, report.head + length + 1);
}

// vn_isConsole() by a call that a signal handler may make.
int isTerminal(int descriptor) {
    termios attributes;
    return tcgetattr(descriptor, &attributes) == 0 ? 1 : 0;
}

int openPath(const ReopenPlan* plan) {
    return open(plan->path, logFileFlags, logFileMode);
}

void swapName(char*& field, char*& name) {
    char* before = field;
    storeField(field, name);
    name = before;
}

// Moves the logger to standard error under that name. A line of another thread may be on its way
// to the old descriptor; so that descriptor becomes a second one of standard error, to be closed
// with the plan.
void fallBack(FileLogger* logger, ReopenPlan* plan) VN_REQUIRES(loggerMutex) {
    const bool owned = ownsDescriptor(logger);
    const int old = logger->fd;
    storeField(logger->openFailure, 1);
    storeField(logger->fd, STDERR_FILENO);
    storeField(logger->console, isTerminal(STDERR_FILENO));
    swapName(logger->fileName, plan->fallBackNames[0]);
    swapName(logger->utf8FileName, plan->fallBackNames[1]);
    plan->stream = STDERR_FILENO;
    if (owned && dup2(STDERR_FILENO, old) < 0) {
        close(old);
    } else if (owned) {
        plan->leftDescriptor = old;
    }
}

void reopenFile(FileLogger* logger, ReopenPlan* plan) VN_REQUIRES(loggerMutex) {
    int opened = openPath(plan);
    if (opened < 0 && makeRoomForDescriptor(logger, errno)) {
        opened = openPath(plan);
    }
    if (opened < 0) {
        writeReport(plan->report, errno);
        fallBack(logger, plan);
        return;
    }
    adoptDescriptor(logger, opened);
    storeField(logger->console, isTerminal(logger->fd));
    if (plan->renames) {
        swapName(logger->fileName, plan->nextFileName);
        plan->renames = false;
    }
}

}  // namespace

int vncommon::standardStream(const char* name) {
    if (strcmp(name, standardErrorName) == 0) {
        return STDERR_FILENO;
    }
    return strcmp(name, standardOutputName) == 0 ? STDOUT_FILENO : -1;
}

ReopenPlan* vncommon::makeReopenPlan(const char* fileName, const char* utf8FileName) {
    if (utf8FileName == nullptr) {
        return nullptr;
    }
    auto* plan = static_cast<ReopenPlan*>(vn_malloc(sizeof(ReopenPlan)));
    plan->stream = standardStream(utf8FileName);
    plan->path = vn_UTF8ToCstr(utf8FileName);
    vn_checkMemory(plan->path);
    plan->nextFileName = vn_strdup(utf8FileName);
    plan->renames = strcmp(fileName, utf8FileName) != 0;
    for (char*& name : plan->fallBackNames) {
        name = vn_strdup(standardErrorName);
    }
    plan->leftDescriptor = -1;
    plan->report = makeFailureReport(utf8FileName);
    return plan;
}

void vncommon::destroyReopenPlan(ReopenPlan* plan) {
    if (plan == nullptr) {
        return;
    }
    if (plan->leftDescriptor >= 0) {
        close(plan->leftDescriptor);
    }
    for (char* text : {plan->path, plan->nextFileName, plan->fallBackNames[0],
                       plan->fallBackNames[1], plan->report.text}) {
        vn_free(text);
    }
    vn_free(plan);
}

void vncommon::reopen(FileLogger* logger, ReopenPlan* plan) {
    if (plan->stream < 0) {
        reopenFile(logger, plan);
        return;
    }
    storeField(logger->fd, plan->stream);
    storeField(logger->console, isTerminal(plan->stream));
}

bool vncommon::ownsDescriptor(const FileLogger* logger) {
    const int fd = logger->fd;
    return logger->fileName != nullptr && fd != STDOUT_FILENO && fd != STDERR_FILENO;
}

void vncommon::adoptDescriptor(FileLogger* logger, int opened) {
    if (!ownsDescriptor(logger)) {
        storeField(logger->fd, opened);
        return;
    }
    // EBUSY: Linux has given the number out in another thread's open() that is not done yet.
    int result;
    do {
        result = dup2(opened, logger->fd);
    } while (result < 0 && (errno == EINTR || errno == EBUSY));
    if (result < 0) {  // the number lies above the limit by now, for instance
        const int old = logger->fd;
        storeField(logger->fd, opened);
        close(old);
        return;
    }
    close(opened);
}

bool vncommon::makeRoomForDescriptor(FileLogger* logger, int error) {
    if ((error != EMFILE && error != ENFILE) || !ownsDescriptor(logger)) {
        return false;
    }
    const int old = logger->fd;
    storeField(logger->fd, STDERR_FILENO);
    close(old);
    return true;
}
