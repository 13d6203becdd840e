#include <cmath>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "facts.h"

namespace vninfo {

namespace {

using Json = nlohmann::ordered_json;

Json number(const std::optional<double>& value) {
    constexpr double tooLarge = 0x1p63;
    if (!value) {
        return nullptr;
    }
    const bool whole = std::floor(*value) == *value && std::fabs(*value) < tooLarge;
    return whole ? Json(static_cast<int64_t>(*value)) : Json(*value);
}

Json text(const std::optional<std::string>& value) {
    return value ? Json(*value) : Json();
}

Json sourceOf(const Source& source) {
    Json readings = Json::array();
    for (const Reading& reading : source.readings) {
        const char* kind = reading.kind == Reading::Kind::file ? "file" : "variable";
        readings.push_back({{kind, reading.name}, {"text", text(reading.text)}});
    }
    return {{"name", source.name},
            {"value", number(source.value)},
            {"reason", source.reason.empty() ? Json() : Json(source.reason)},
            {"readings", readings}};
}

// Adds the last members, which are the same for both resources.
void addSources(Json& json, const Resource& resource) {
    const Source* winner = resource.winner();
    json["sources"] = Json::array();
    for (const Source& source : resource.sources) {
        json["sources"].push_back(sourceOf(source));
        json["sources"].back()["wins"] = &source == winner;
    }
    json["not_considered"] = Json::array();
    for (const Source& source : resource.notConsidered) {
        json["not_considered"].push_back(sourceOf(source));
        json["not_considered"].back()["tighter"] = resource.isTighter(source);
    }
}

Json processors(const Facts& facts) {
    Json json = {{"usable", number(facts.processors.usable)},
                 {"count", facts.processorCount},
                 {"online", facts.onlineProcessors}};
    addSources(json, facts.processors);
    return json;
}

Json memory(const Facts& facts) {
    Json json = {{"usable_bytes", number(facts.memory.usable)}};
    addSources(json, facts.memory);
    return json;
}

Json configuration(const Configuration& configuration) {
    return {{"file", text(configuration.file)},
            {"loaded", configuration.loaded},
            {"categories", configuration.categories},
            {"entries", configuration.entries},
            {"tried", configuration.tried}};
}

Json log(const Facts& facts) {
    Json variables = Json::array();
    for (const LevelVariable& one : facts.levelVariables) {
        variables.push_back({{"variable", one.variable.name},
                             {"text", text(one.variable.text)},
                             {"level", one.level}});
    }
    return {{"level", facts.logLevel}, {"variables", variables}};
}

Json everything(const Facts& facts) {
    return {
        {"version", VNINFO_VERSION},
        {"cpu", facts.cpu},
        {"platform", facts.platform},
        {"processors", processors(facts)},
        {"memory", memory(facts)},
        {"process",
         {{"resident_bytes", number(facts.residentBytes)},
          {"virtual_bytes", number(facts.virtualBytes)}}},
        {"control_groups", {{"root", facts.controlGroupsRoot}, {"self", facts.controlGroupsSelf}}},
        {"code_page",
         {{"name", text(facts.codePage.name)}, {"variable", text(facts.codePage.variable)}}},
        {"configuration", configuration(facts.configuration)},
        {"log", log(facts)}};
}

}  // namespace

// Prints ASCII. In text that is not UTF-8, every invalid byte becomes U+FFFD.
void printJson(const Facts& facts) {
    const std::string document =
        everything(facts).dump(2, ' ', true, Json::error_handler_t::replace);
    printf("%s\n", document.c_str());
}

}  // namespace vninfo
