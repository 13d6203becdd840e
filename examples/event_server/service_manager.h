// Tells the service manager that has started this process, if there is one, how far it is: for
// units of Type=notify.
#ifndef VN_EXAMPLES_SERVICE_MANAGER_H
#define VN_EXAMPLES_SERVICE_MANAGER_H

// state: "READY=1", "STOPPING=1". A failure is logged.
void tellServiceManager(const char* state);

#endif
