/* Prints what the library makes of the file that docs/configuration-file.md shows. */
#include <stdio.h>
#include <vncommon/config_file.h>

static void printCategory(const char* name) {
    VN_ConfigFileCategory* category = VN_ConfigFile_GetCategory(VN_ConfigFile_Get(), name);
    printf("category \"%s\": %u\n", name, VN_ConfigFileCategory_GetEntryCount(category));
    const char* entry = VN_ConfigFileCategory_GetFirstEntry(category);
    for (; entry != NULL; entry = VN_ConfigFileCategory_GetNextEntry(category)) {
        printf("    |%s|\n", entry);
    }
    VN_ConfigFileCategory_Release(category);
}

int main(void) {
    if (VN_ConfigFile_Load(NULL, NULL) == NULL) {
        return 1;
    }
    printCategory("");
    printCategory("net");
    printCategory(" net");
    VN_ConfigFile_Unload();
    return 0;
}
