// Prints what libvncommon detects: processors, memory, code page, configuration, log levels.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "facts.h"

namespace {

enum ExitCode { success = 0, outputFailed = 1, wrongUsage = 2 };

constexpr char usage[] =
    "Usage: vninfo [--json] [--level-variable NAME]... [--config FILE]\n"
    "Prints what libvncommon sees of the machine: the CPU, the platform, the processors and the\n"
    "memory this process may use with every source that was read, the code page, the\n"
    "configuration file, the log level.\n"
    "  --json                  for scripts: one JSON object\n"
    "  --level-variable NAME   also the log level of lines that name this environment variable\n"
    "  --config FILE           the configuration file to try first\n"
    "  --help, --version       this text; the version\n"
    "Exit status: 0, 1 if the report could not be written, 2 for wrong arguments.\n";

struct Options {
    bool json = false;
    vninfo::Questions questions;
};

[[noreturn]] void finish() {
    if (fflush(stdout) == 0 && ferror(stdout) == 0) {
        exit(success);
    }
    perror("vninfo: writing failed");
    exit(outputFailed);
}

[[noreturn]] void refuse(const char* problem, const char* argument) {
    fprintf(stderr, "vninfo: %s '%s'; see vninfo --help\n", problem, argument);
    exit(wrongUsage);
}

const char* valueAfter(char** argument) {
    if (argument[1] == nullptr) {
        refuse("a value must follow", *argument);
    }
    return argument[1];
}

Options parse(char** arguments) {
    Options options;
    for (char** argument = arguments; *argument != nullptr; ++argument) {
        if (strcmp(*argument, "--json") == 0) {
            options.json = true;
        } else if (strcmp(*argument, "--level-variable") == 0) {
            options.questions.levelVariables.emplace_back(valueAfter(argument++));
        } else if (strcmp(*argument, "--config") == 0) {
            options.questions.configFile = valueAfter(argument++);
        } else if (strcmp(*argument, "--help") == 0 || strcmp(*argument, "-h") == 0) {
            fputs(usage, stdout);
            finish();
        } else if (strcmp(*argument, "--version") == 0) {
            puts("vninfo " VNINFO_VERSION);
            finish();
        } else {
            refuse("unknown argument", *argument);
        }
    }
    return options;
}

}  // namespace

int main(int, char** argv) {
    const Options options = parse(argv + 1);
    const vninfo::Facts facts = vninfo::gatherFacts(options.questions);
    (options.json ? vninfo::printJson : vninfo::printText)(facts);
    finish();
}
