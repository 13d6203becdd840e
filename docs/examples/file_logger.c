#include <stdio.h>
#include <unistd.h>
#include <vncommon/failure.h>
#include <vncommon/file_logger.h>

int main(void) {
    FileLogger audit;
    FileLogger_init(&audit);
    FileLogger_SetFilename(&audit, "audit.log", 1, 1);
    FileLogger_SetLogLevel(&audit, FileLogger_StringToLogLevel("WARN"));

    FileLogger_LogInfo(&audit, "below the threshold, not written");
    FileLogger_LogWarn(&audit, "order %d is late", 17);

    rename("audit.log", "audit.log.1"); /* what a rotation does, */
    FileLogger_ReOpen(&audit);          /* and what SIGHUP makes of it */
    FileLogger_LogForce(&audit, "a new file");

    const char* files[] = {"audit.log.1", "audit.log"};
    for (int i = 0; i < 2; ++i) {
        char line[256] = "";
        FILE* file = fopen(files[i], "r");
        if (file != NULL && fgets(line, sizeof line, file) != NULL) {
            printf("%s: %s", files[i], line);
            fclose(file);
        }
    }
    FileLogger_cleanup(&audit);
    vn_free(audit.buffer); /* the line buffer is left to us */
    return 0;
}
