#include "worker.h"

#include <cstdlib>

#include <vncommon/log.h>

#include "connection.h"
#include "package_event.h"

namespace {

void stamp(const Task& task, Stage stage) {
    task.stamps->functions->addNow(task.stamps, stage);
}

}  // namespace

void* Worker::run(void* self) {
    auto* worker = static_cast<Worker*>(self);
    for (Task task = worker->queue_.take(); task.request != nullptr; task = worker->queue_.take()) {
        worker->handle(task);
    }
    return nullptr;
}

void Worker::handle(const Task& task) {
    stamp(task, Taken);
    const bool isStats = task.request->problem == nullptr && task.request->line == "stats";
    bool isEvent = false;
    if (isStats) {
        handleStats(task);
    } else {
        isEvent = handleEvent(task);
    }
    task.connection->answer(*task.request);
    stamp(task, Answered);
    if (isEvent) {
        own_.addEvent(task.stamps);
    } else if (!isStats) {
        own_.addError();
    }
    VN_TimestampSet_dtor(task.stamps);
}

bool Worker::handleEvent(const Task& task) {
    if (task.request->problem != nullptr) {
        reject(task, task.request->problem);
        return false;
    }
    if (!parser_.parse(task.request->line, record_, problem_)) {
        reject(task, problem_);
        return false;
    }
    stamp(task, Parsed);
    VN_EventWriter* event = buildPackageEvent(record_);
    stamp(task, Built);
    task.request->answer = renderOnOneLine(event);
    stamp(task, Rendered);
    VN_LogDebug("%s", task.request->answer.c_str());
    stamp(task, Logged);
    VN_EventWriter_dtor(event);
    return true;
}

void Worker::handleStats(const Task& task) {
    VN_EventWriter* event = all_.event();
    char* text = VN_EventWriter_toString(event);
    task.request->answer = text;
    free(text);
    VN_EventWriter_dtor(event);
}

void Worker::reject(const Task& task, const std::string& problem) {
    VN_LogWarn("Connection %lu, line %lu: %s", task.connection->id(), task.request->number,
               problem.c_str());
    task.request->answer = "error: ";
    task.request->answer += problem;
}
