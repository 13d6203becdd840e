// Turns a record into an event:
//   package(name,version,size in KiB,size in MiB,essential,[dependencies],{other fields},
//           optional(homepage),description)
#ifndef VN_EXAMPLES_PACKAGE_EVENT_H
#define VN_EXAMPLES_PACKAGE_EVENT_H

#include <string>

#include <vncommon/event_writer.h>

#include "record.h"

// The caller ends the event with VN_EventWriter_dtor.
VN_EventWriter* buildPackageEvent(const Record& record);

// The event's text on one line, without control characters. Only strings in the text can contain
// them; the escapes (\n ...) mean the same to every reader.
std::string renderOnOneLine(const VN_EventWriter* event);

#endif
