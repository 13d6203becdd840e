// Writes a stanza of the package database as a line that record_parser.h reads.
#ifndef VN_EXAMPLES_RECORD_LINE_H
#define VN_EXAMPLES_RECORD_LINE_H

#include <string>

#include "package_reader.h"

// Without a line feed. Fields that the parser knows get its keys; the others keep their names.
std::string recordLine(const PackageRecord& record);

#endif
