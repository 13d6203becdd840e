// The stages that an event passes on its way through the server, as its timestamp set records
// them. What is reported for a stage is the time since the stage before it.
#ifndef VN_EXAMPLES_STAGES_H
#define VN_EXAMPLES_STAGES_H

#include <cstddef>
#include <cstdint>

enum Stage : uint64_t {
    Received,  // cut out of the client's stream
    Admitted,  // there was room in the queue
    Taken,     // a worker took it out
    Parsed,
    Built,
    Rendered,
    Logged,
    Answered,  // handed to the thread that writes to the client
};

constexpr size_t stageCount = Answered + 1;

// The first stage has none before it: its place holds the whole way.
constexpr const char* stageNames[stageCount] = {"total", "admit",  "wait", "parse",
                                                "build", "render", "log",  "answer"};

#endif
