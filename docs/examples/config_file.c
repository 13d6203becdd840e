#include <stdio.h>
#include <vncommon/config_file.h>

int main(void) {
    const char* name = VN_ConfigFile_Load(NULL, NULL); /* .vantrel.conf, here or at home */
    if (name == NULL) {
        puts("no configuration file");
        return 1;
    }
    printf("read %s\n", name);

    VN_ConfigFileCategory* hosts = VN_ConfigFile_GetCategory(VN_ConfigFile_Get(), "hosts");
    if (hosts != NULL) {
        const char* entry = VN_ConfigFileCategory_GetFirstEntry(hosts);
        for (; entry != NULL; entry = VN_ConfigFileCategory_GetNextEntry(hosts)) {
            printf("host %s\n", entry);
        }
        VN_ConfigFileCategory_Release(hosts);
    }
    VN_ConfigFile_Unload();
    return 0;
}
