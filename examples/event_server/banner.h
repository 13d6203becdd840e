// The log's first lines: what runs, where, and with what settings.
#ifndef VN_EXAMPLES_BANNER_H
#define VN_EXAMPLES_BANNER_H

#include "settings.h"

void setUpLog(const Settings& settings);

// Written at every log level but OFF.
void logBanner(const Settings& settings, uint32_t workers, int port);

#endif
