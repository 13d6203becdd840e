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

std::string verdict(const Source& source, Format format) {
    if (source.value) {
        return format(*source.value);
    }
    if (source.name != "override") {
        return source.readings.empty() ? "no such control group" : "no limit";
    }
    return source.readings.front().text ? "not a positive number" : "not set";
}

void printSources(const Resource& resource, Format format) {
    const Source* winner = resource.winner();
    for (const Source& source : resource.sources) {
        printf("  %c %-18s %s\n", &source == winner ? '*' : ' ', source.name.c_str(),
               verdict(source, format).c_str());
        for (const Reading& reading : source.readings) {
            printf("        %s: %s\n", reading.name.c_str(),
                   reading.text ? reading.text->c_str() : "(none)");
        }
    }
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
    printSources(facts.processors, processorText);
    printLine("Memory", memoryText(facts.memory.usable) + " usable");
    printSources(facts.memory, memoryText);
    printLine("This process", memoryText(facts.residentBytes) + " resident, " +
                                  memoryText(facts.virtualBytes) + " virtual");
    printLine("Control groups", facts.controlGroupsRoot + ", listed in " + facts.controlGroupsSelf);
    printCodePage(facts.codePage);
    printConfiguration(facts.configuration);
    printLevels(facts);
    printf("\nThe source marked * decides.\n");
}

}  // namespace vninfo
