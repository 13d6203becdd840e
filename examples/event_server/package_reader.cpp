#include "package_reader.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <vncommon/process.h>
#include <vncommon/utf8.h>

const std::string* PackageRecord::find(const std::string& key) const {
    for (const auto& [name, value] : fields) {
        if (name == key) {
            return &value;
        }
    }
    return nullptr;
}

PackageReader::~PackageReader() {
    if (stream_ != nullptr) {
        fclose(stream_);
    }
    free(buffer_);
}

bool PackageReader::open(const std::string& path) {
    path_ = path;
    struct stat status;
    if (vn_statUTF8(path.c_str(), &status) != 0) {
        return fail(strerror(errno));
    }
    if (!S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode) && !S_ISCHR(status.st_mode)) {
        return fail("not a file");
    }
    stream_ = vn_openStreamUTF8(path.c_str(), "r");
    return stream_ != nullptr || fail(strerror(errno));
}

bool PackageReader::next(PackageRecord& record) {
    record.fields.clear();
    std::string line;
    while (readLine(line)) {
        if (line.empty()) {
            if (!record.fields.empty()) {
                return true;
            }
        } else if (!addLine(line, record)) {
            return false;
        }
    }
    return error_.empty() && !record.fields.empty();
}

bool PackageReader::readLine(std::string& line) {
    const ssize_t length = getline(&buffer_, &bufferSize_, stream_);
    if (length < 0) {
        return ferror(stream_) != 0 && fail(strerror(errno));
    }
    ++lineNumber_;
    const bool ended = length > 0 && buffer_[length - 1] == '\n';
    line.assign(buffer_, static_cast<size_t>(length) - (ended ? 1 : 0));
    return true;
}

bool PackageReader::addLine(const std::string& line, PackageRecord& record) {
    if (line.find('\0') != std::string::npos || vn_isUTF8(line.c_str()) == 0) {
        return fail("line " + std::to_string(lineNumber_) + " is not UTF-8 text");
    }
    if (line[0] == ' ' || line[0] == '\t') {
        if (record.fields.empty()) {
            return fail("line " + std::to_string(lineNumber_) + " continues no field");
        }
        record.fields.back().second += '\n';
        record.fields.back().second.append(line, 1);
        return true;
    }
    const size_t colon = line.find(':');
    if (colon == 0 || colon == std::string::npos) {
        return fail("line " + std::to_string(lineNumber_) + " is not of the form \"Key: value\"");
    }
    const char* value = vn_skipSpacesUTF8(line.c_str() + colon + 1);
    record.fields.emplace_back(line.substr(0, colon), value);
    return true;
}

bool PackageReader::fail(const std::string& what) {
    error_ = path_ + ": " + what;
    return false;
}
