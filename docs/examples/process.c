#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vncommon/failure.h>
#include <vncommon/process.h>

int main(void) {
    const char* path = "\xC3\xA1rak.txt"; /* UTF-8, whatever the locale is */
    int fd;
    char* failure = vn_openFileUTF8(&fd, path, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (failure != NULL) {
        printf("cannot write: %s\n", failure);
        vn_free(failure);
        return 1;
    }
    vn_writeToConsoleUTF8(fd, "ACME 12.5\n");
    close(fd);

    struct stat status;
    if (vn_statUTF8(path, &status) == 0) {
        printf("%d bytes\n", (int)status.st_size);
    }

    failure = vn_openFileUTF8(&fd, "missing/file", O_RDONLY);
    printf("%s\n", failure);
    vn_free(failure);

    void* library;
    void* symbol;
    failure = vn_loadLibraryUTF8(&library, "libm.so.6");
    if (failure == NULL && vn_findLibrarySymbol(&symbol, library, "cos") == NULL) {
        puts("found cos");
    }
    vn_free(failure);
    vn_free(vn_unloadLibrary(library));

    vn_TimeStampCache clock;
    vn_timeStampInit(&clock);
    printf("%s\n", vn_timeStampGet(&clock));
    vn_timeStampDestroy(&clock);
    return 0;
}
