// The registry of all loggers of the process, which the SIGHUP handler goes through.
#ifndef VN_LOGGING_LOGGER_REGISTRY_H
#define VN_LOGGING_LOGGER_REGISTRY_H

#include <vncommon/file_logger.h>

#include "logging/registry_lock.h"
#include "logging/reopening.h"

namespace vncommon {

// Adds an initialised logger. The first call of the process makes the registry and installs the
// SIGHUP handler.
void registerLogger(FileLogger* logger);

// Takes the logger out; from its return on no handler touches the logger.
void unregisterLogger(FileLogger* logger);

// Gives the logger another plan and returns the one before, for destroyReopenPlan() once the
// registry is unlocked. To be called under the same lock as the change of destination that the
// plan belongs to.
ReopenPlan* exchangePlan(FileLogger* logger, ReopenPlan* plan) VN_REQUIRES(loggerMutex);

}  // namespace vncommon

#endif
