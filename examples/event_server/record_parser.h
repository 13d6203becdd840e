// Reads a record from a line of text.
//
// A line holds fields of the form key=value, separated by tabs. A key is 1 to 64 characters of A-Z
// a-z 0-9 _ . - and occurs once in a line. In a value \n, \r, \t and \\ mean line feed,
// carriage return, tab and backslash. These keys have a type:
//     name         text; must be there
//     version      text
//     size         integer, not negative, in KiB; decimal or hexadecimal with 0x
//     size_mib     number; size / 1024 when absent
//     essential    true, t, yes, y, 1 or false, f, no, n, 0 in any case
//     depends      list separated by commas; a version in parentheses is dropped
//     homepage     text, optional
//     description  text
// All others are kept as texts.
#ifndef VN_EXAMPLES_RECORD_PARSER_H
#define VN_EXAMPLES_RECORD_PARSER_H

#include <string>

#include <vncommon/hashmap.h>

#include "record.h"

class RecordParser {
  public:
    RecordParser();
    ~RecordParser();
    RecordParser(const RecordParser&) = delete;
    RecordParser& operator=(const RecordParser&) = delete;

    // Splits the line in place: the record's texts point into it and are valid as long as it is.
    // False with a message "FIELD: what is wrong" in error.
    bool parse(std::string& line, Record& record, std::string& error);

  private:
    bool parseField(char* begin, char* end, Record& record);
    bool set(const char* key, char* value, Record& record);
    std::string place() const;
    bool fail(const std::string& field, const std::string& what);

    HashMap seen_;  // the keys of the current line
    std::string error_;
};

#endif
