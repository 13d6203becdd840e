// The stages that an event passes on its way through the server, as its timestamp set records them.
// A stage is reported with the time since the previous stage.
#ifndef VN_EXAMPLES_STAGES_H
#define VN_EXAMPLES_STAGES_H

#include <cstddef>
#include <cstdint>

enum Stage : uint64_t {
    Received,  // the line is complete
    Admitted,  // there was room in the queue
    Taken,     // a worker took it out
    Parsed,
    Built,
    Rendered,
    Logged,
    Answered,  // handed to the thread that writes to the client
};

constexpr size_t stageCount = Answered + 1;

// The first stage has no previous one: its slot holds the total time.
constexpr const char* stageNames[stageCount] = {"total", "admit",  "wait", "parse",
                                                "build", "render", "log",  "answer"};

#endif
