// Turns one package record into an event:
//   package(name,version,size in KiB,size in MiB,essential,[dependencies],{other fields},
//           optional(homepage),description)
#ifndef VN_EXAMPLES_PACKAGE_EVENT_H
#define VN_EXAMPLES_PACKAGE_EVENT_H

#include <string>

#include "package_reader.h"

// The event's text in text; false with a message that names the field when one is missing or
// does not parse.
bool renderPackageEvent(const PackageRecord& record, std::string& text, std::string& error);

#endif
