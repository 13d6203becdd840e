// The one-line description of the processor.
#include "platform/machine_description.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <vncommon/failure.h>

#include "platform/assertion.h"
#include "platform/line_reader.h"
#include "platform/owned_text.h"

namespace vncommon {
namespace {

std::atomic<const char*> result_static{nullptr};

// One part of the description: its label, which depends on the kind of processor, and its value.
struct Detail {
    const char* label = "";
    Text value;

    const char* text() const { return value != nullptr ? value.get() : ""; }
};

struct CpuDetails {
    Detail vendor;
    Detail family;
    Detail model;
    Detail stepping;
    Detail modelName;  // has no label
};

// A line that begins with start holds the detail. Reading ends at the last detail of the first
// processor's block; other processors are ignored. On ARM the revision line comes after that end
// and is not read.
struct Rule {
    const char* start;
    Detail CpuDetails::*detail;
    const char* label;
    bool isLast = false;
};

// The first rule that matches is used, so "model name" must come before its prefix "model".
constexpr Rule rules[] = {
    {"vendor_id", &CpuDetails::vendor, "vendor"},
    {"CPU imple", &CpuDetails::vendor, "implementer code"},
    {"cpu family", &CpuDetails::family, " family "},
    {"CPU archit", &CpuDetails::family, " achitecture "},  // Compat: misspelled, parsers match it
    {"model name", &CpuDetails::modelName, ""},
    {"model", &CpuDetails::model, " model "},
    {"revis", &CpuDetails::model, " revision "},
    {"CPU part", &CpuDetails::stepping, " part code ", true},
    {"stepping", &CpuDetails::stepping, " stepping ", true},
};

const Rule* findRule(const char* line) {
    for (const Rule& rule : rules) {
        if (strncmp(line, rule.start, strlen(rule.start)) == 0) {
            return &rule;
        }
    }
    return nullptr;
}

void readDetails(LineReader& cpuinfo, CpuDetails& details) {
    char line[1024];
    while (cpuinfo.next(line)) {
        const Rule* rule = findRule(line);
        if (rule == nullptr) {
            continue;
        }
        Detail& detail = details.*rule->detail;
        detail.label = rule->label;
        detail.value.reset(vn_strdup(find_colon(line)));
        strip_linebreak(detail.value.get());
        if (rule->isLast) {
            return;
        }
    }
}

// Compat: "(null)", which glibc prints for a null string, means "no model name" to callers.
const char* modelNameText(const Detail& modelName) {
    return modelName.value != nullptr ? modelName.value.get() : "(null)";
}

}  // namespace

char* describeCpu(const char* cpuinfoFile) {
    LineReader cpuinfo(cpuinfoFile);
    if (!cpuinfo.isOpen()) {
        perror("FAIL");
        return nullptr;
    }
    CpuDetails details;
    readDetails(cpuinfo, details);
    const auto& [vendor, family, model, stepping, modelName] = details;
    char text[1024];
    snprintf(text, sizeof text, "%s %s%s%s%s%s%s%s: %s", vendor.label, vendor.text(), family.label,
             family.text(), model.label, model.text(), stepping.label, stepping.text(),
             modelNameText(modelName));
    return vn_strdup(text);
}

const char* cacheText(std::atomic<const char*>& cache, char* found, const char* unknown) {
    const char* text = found != nullptr ? found : unknown;
    VN_ASSERT(text != nullptr);
    const char* earlier = nullptr;
    if (cache.compare_exchange_strong(earlier, text, std::memory_order_acq_rel)) {
        return text;
    }
    VN_ASSERT(earlier != nullptr && earlier != found);
    free(found);
    return earlier;
}

}  // namespace vncommon

using namespace vncommon;

const char* vn_getCPUDetails(void) {
    const char* known = result_static.load(std::memory_order_acquire);
    if (known != nullptr) {
        return known;
    }
    return cacheText(result_static, describeCpu("/proc/cpuinfo"), "Unknown CPU");
}

const char* find_colon(const char* line) {
    VN_ASSERT(line != nullptr);
    const char* colon = strchr(line, ':');
    if (colon == nullptr) {
        return line + strlen(line);
    }
    return colon[1] == '\0' ? colon + 1 : colon + 2;
}

size_t strip_linebreak(char* text) {
    VN_ASSERT(text != nullptr);
    const size_t length = strcspn(text, "\n");
    text[length] = '\0';
    return length;
}
