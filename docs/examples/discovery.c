#include <stdio.h>
#include <vncommon/discovery.h>

int main(void) {
    printf("processors of the machine:  %d\n", vn_getPhysicalCPUs());
    printf("processors for the process: %.2f\n", vn_availableCPUs());
    printf("threads worth starting:     %d\n", vn_numberOfCPUs());
    printf("memory for the process:     %.0f MiB\n", vn_physicalMemory());
    printf("resident:                   %.0f KiB\n", vn_residentSetSize() / 1024);
    return 0;
}
