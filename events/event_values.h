// Building writers from text that is not terminated, for the event reader. The public operations
// need terminated text, and add a dictionary's key only together with its value.
#ifndef VN_EVENTS_EVENT_VALUES_H
#define VN_EVENTS_EVENT_VALUES_H

#include <vncommon/event_writer.h>

namespace vncommon {

// VN_EventWriter_ctor with the length of the name.
VN_EventWriter* newWriter(uint32_t kind, const char* name, size_t length);

// Adds a value without a text at the end of a writer's keys or values. A child now belongs to that
// writer.
void appendValue(Vector* vector, const VN_EventValue& value);

// Adds a text (kind 1 or 9) of this length, and returns where the caller must write it. It is
// already terminated.
char* appendRoom(Vector* vector, uint32_t kind, size_t length);

}  // namespace vncommon

#endif
