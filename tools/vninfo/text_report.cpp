#include <algorithm>
#include <cstdio>

#include "facts.h"

namespace vninfo {

namespace {

void printLine(const char* title, const std::string& text) {
    printf("%-15s %s\n", title, text.c_str());
}

std::string processorText(double value) {
    char text[32];
    snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string memoryText(double bytes) {
    char text[64];
    snprintf(text, sizeof text, "%.1f MiB", bytes / 1048576);
    return text;
}

using Format = std::string (*)(double);

void printSource(char mark, const Source& source, const std::string& verdict) {
    printf("  %c %-18s %s\n", mark, source.name.c_str(), verdict.c_str());
    for (const Reading& reading : source.readings) {
        printf("        %s: %s\n", reading.name.c_str(),
               reading.text ? reading.text->c_str() : "(none)");
    }
}

// unit is printed after the values of sources that the library does not consider.
void printSources(const Resource& resource, Format format, const std::string& unit) {
    const Source* winner = resource.winner();
    for (const Source& source : resource.sources) {
        printSource(&source == winner ? '*' : ' ', source,
                    source.value ? format(*source.value) : source.reason);
    }
    for (const Source& source : resource.notConsidered) {
        const std::string value = source.value ? format(*source.value) + unit : source.reason;
        printSource(resource.isTighter(source) ? '!' : ' ', source,
                    value + (source.value ? " (not considered by the library)" : ""));
    }
}

bool anythingTighter(const Resource& resource) {
    return std::any_of(resource.notConsidered.begin(), resource.notConsidered.end(),
                       [&](const Source& source) { return resource.isTighter(source); });
}

void printCodePage(const CodePage& page) {
    printLine("Code page", page.name.value_or("(ICU's default)"));
    printf("    from %s\n", page.variable ? page.variable->c_str()
                                          : "none of LC_ALL, LC_CTYPE, LANG, which are not set");
}

void printConfiguration(const Configuration& configuration) {
    if (configuration.file) {
        printLine("Configuration", *configuration.file);
    } else {
        printLine("Configuration",
                  configuration.loaded ? "(opened, but reading failed)" : "(none)");
    }
    if (configuration.loaded) {
        printf("    %u categories, %u entries\n", configuration.categories, configuration.entries);
    }
    for (const std::string& place : configuration.tried) {
        printf("    looked for %s\n", place.c_str());
    }
}

void printLevels(const Facts& facts) {
    printLine("Log level", facts.logLevel);
    for (const LevelVariable& one : facts.levelVariables) {
        printf("    %s for lines that name %s (%s)\n", one.level.c_str(), one.variable.name.c_str(),
               one.variable.text ? one.variable.text->c_str() : "not set");
    }
}

}  // namespace

void printText(const Facts& facts) {
    printLine("libvncommon", VNINFO_VERSION);
    printLine("CPU", facts.cpu);
    printLine("Platform", facts.platform);
    printLine("Processors", processorText(facts.processors.usable) + " usable, counted as " +
                                std::to_string(facts.processorCount));
    printSources(facts.processors, processorText,
                 " of " + std::to_string(facts.onlineProcessors) + " processors");
    printLine("Memory", memoryText(facts.memory.usable) + " usable");
    printSources(facts.memory, memoryText, "");
    printLine("This process", memoryText(facts.residentBytes) + " resident, " +
                                  memoryText(facts.virtualBytes) + " virtual");
    printLine("Control groups", facts.controlGroupsRoot + ", listed in " + facts.controlGroupsSelf);
    printCodePage(facts.codePage);
    printConfiguration(facts.configuration);
    printLevels(facts);
    printf("\nThe source marked * decides.\n");
    if (anythingTighter(facts.processors) || anythingTighter(facts.memory)) {
        printf("One marked ! is tighter, and the library does not consider it: see vninfo(1).\n");
    }
}

}  // namespace vninfo
