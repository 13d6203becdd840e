// Reports the state of the process to the service manager, if one started it (units of
// Type=notify).
#ifndef VN_EXAMPLES_SERVICE_MANAGER_H
#define VN_EXAMPLES_SERVICE_MANAGER_H

// state: "READY=1", "STOPPING=1". A failure is logged.
void tellServiceManager(const char* state);

#endif
