/* Calls that every compiler must warn about: the comment names the warning. Compiled as C and
 * as C++, never run. */
#include <stdlib.h>
#include <vncommon/vncommon.h>

/* clang-format off */
extern FileLogger* logger;
extern Vector* vector;
extern HashMap* map;
extern VN_ConfigFile* config;
extern VN_EventWriter* writer;
extern VN_EventReader reader;
extern VN_TimestampSet* stamps;
extern CStringBuffer text;
extern vn_Semaphore semaphore;
extern vn_qtsQueue queue;
extern vn_qtsElement element;
extern VN_EventValue value;
extern int fd;
extern unsigned length;
extern uint8_t bytes[1];
extern uint16_t units[1];
extern char line[1];
extern double rate;
extern void* address;
extern char* copy;
extern int count;
extern const char* constant;

/* Results that must be freed or checked: containers, sockets, memory. */
void ignored_objects(void);
void ignored_objects(void) {
    vn_malloc(1);                                                           /* unused-result */
    vn_realloc(NULL, 1);                                                    /* unused-result */
    vn_strdup("x");                                                         /* unused-result */
    vn_strndup("x", 1);                                                     /* unused-result */
    vn_strbufAppendFile(&text, "x");                                        /* unused-result */
    vn_Semaphore_trywait(&semaphore);                                       /* unused-result */
    vn_qtsRemoveNB(&queue, &element);                                       /* unused-result */
    vn_socketConnect(NULL, 1, &fd);                                         /* unused-result */
    vn_createListeningSocket(0, &fd);                                       /* unused-result */
    vn_socketAccept(0, &fd);                                                /* unused-result */
    vn_socketReadBuffer(0, &length, bytes);                                 /* unused-result */
    vn_socketReadLine(0, &text);                                            /* unused-result */
    vn_socketWrite(0, "x");                                                 /* unused-result */
    vn_socketWriteBuffer(0, 1, bytes);                                      /* unused-result */
    vn_Vector_ctor(NULL, NULL, NULL, 0, 0);                                 /* unused-result */
    vn_HashMap_ctor(NULL, NULL, NULL, NULL, 16, 0);                         /* unused-result */
    vn_HashMap_add(map, map, map);                                          /* unused-result */
    vn_HashMap_find(map, map);                                              /* unused-result */
    vn_HashMap_first(map);                                                  /* unused-result */
    vn_HashMap_last(map);                                                   /* unused-result */
}

/* The same for texts, files, configuration, events. */
void ignored_texts(void);
void ignored_texts(void) {
    vn_xmlEscapeString("x");                                                /* unused-result */
    vn_CstrToUTF8("x");                                                     /* unused-result */
    vn_cmdlineToUTF8("x");                                                  /* unused-result */
    vn_UTF8ToCstr("x");                                                     /* unused-result */
    vn_getUTF8(units);                                                      /* unused-result */
    vn_getUTF16("x");                                                       /* unused-result */
    vn_g_fmt_fixed(line, 1, 2, 0.5);                                        /* unused-result */
    vn_g_fmt_scientific(line, 1, 2, 0.5);                                   /* unused-result */
    vn_getCGroupProcessControllerDir("x", "x", "x");                        /* unused-result */
    readCGroupsFile("x", "/x");                                             /* unused-result */
    vn_getUTF8UserName();                                                   /* unused-result */
    vn_getUTF8CurrentDirectory();                                           /* unused-result */
    vn_getEnvironUTF8();                                                    /* unused-result */
    vn_openFileUTF8(&fd, "x", 0);                                           /* unused-result */
    vn_openStreamUTF8("x", "r");                                            /* unused-result */
    vn_statUTF8("x", NULL);                                                 /* unused-result */
    vn_loadLibraryUTF8(&address, "x");                                      /* unused-result */
    vn_unloadLibrary(NULL);                                                 /* unused-result */
    vn_findLibrarySymbol(&address, NULL, "x");                              /* unused-result */
    vn_get_os_statistics(&rate, &rate);                                     /* unused-result */
    VN_ConfigFile_Load(NULL, &config);                                      /* unused-result */
    VN_ConfigFile_GetFirstCategory(config);                                 /* unused-result */
    VN_ConfigFile_GetNextCategory(config);                                  /* unused-result */
    VN_ConfigFile_GetCategory(config, "x");                                 /* unused-result */
    FileLogger_ctor();                                                      /* unused-result */
    VN_EventWriter_ctor(VN_EventKind_Event, "x");                           /* unused-result */
    VN_EventWriter_toString(writer);                                        /* unused-result */
    VN_EventReader_read(&reader, "[]", 2);                                  /* unused-result */
    valueToString(&value);                                                  /* unused-result */
    VN_TimestampSet_ctor();                                                 /* unused-result */
    VN_TimestampSet_copy(stamps);                                           /* unused-result */
    VN_TimestampSet_toString(stamps);                                       /* unused-result */
}

/* Functions without an effect other than their result. */
void useless(void);
void useless(void) {
    vn_Vector_size(vector);                                                 /* unused-value */
    vn_Vector_empty(vector);                                                /* unused-value */
    vn_Vector_get(vector, 0);                                               /* unused-value */
    vn_HashMap_size(map);                                                   /* unused-value */
    vn_String_hash("x");                                                    /* unused-value */
    vn_String_compare("x", "y");                                            /* unused-value */
    vn_nextPrime(4);                                                        /* unused-value */
    vn_strcasecmp("x", "y");                                                /* unused-value */
    vn_strbufGetString(&text);                                              /* unused-value */
    vn_strbufGetSize(&text);                                                /* unused-value */
    vn_isAscii("x");                                                        /* unused-value */
    vn_isUTF8("x");                                                         /* unused-value */
    vn_skipSpacesUTF8("x");                                                 /* unused-value */
    vn_rTrimUTF8("x");                                                      /* unused-value */
    vn_UTF8Length("x");                                                     /* unused-value */
    vn_UTF8isAsciiLetter('x');                                              /* unused-value */
    vn_getUTF8BOM();                                                        /* unused-value */
    vn_parseToBool("x");                                                    /* unused-value */
    vn_isEmptyString("x");                                                  /* unused-value */
    find_colon("x");                                                        /* unused-value */
    vn_dec_isnan(0);                                                        /* unused-value */
    vn_dec_isfinite(0);                                                     /* unused-value */
    vn_dec_isinfinite(0);                                                   /* unused-value */
    VN_DEC_INFINITY();                                                      /* unused-value */
    VN_StringToLogLevel("x");                                               /* unused-value */
    VN_LogLevelToString(1);                                                 /* unused-value */
    VN_TimestampSet_getSize(stamps);                                        /* unused-value */
}

/* Null where it is outside the contract. */
void nulls(void);
void nulls(void) {
    copy = vn_CstrToUTF8(NULL);                                             /* nonnull */
    copy = vn_UTF8ToCstr(NULL);                                             /* nonnull */
    copy = vn_getUTF8(NULL);                                                /* nonnull */
    count = vn_isUTF8(NULL);                                                /* nonnull */
    count = vn_UTF8CaseCmp("x", NULL);                                      /* nonnull */
    constant = vn_skipSpacesUTF8(NULL);                                     /* nonnull */
    vn_copyUTF8Char(NULL, "x");                                             /* nonnull */
}

/* Formats. */
void formats(void);
void formats(void) {
    VN_LogInfo("%s", 1);                                                    /* format */
    VN_LogError("%d", "x");                                                 /* format */
    VN_LogWarn("%s", 1);                                                    /* format */
    VN_DoLogV(7, "%d", 0.5);                                                /* format */
    FileLogger_LogInfo(logger, "%s", 1);                                    /* format */
    vn_strbufAppendFormat(&text, "%d", "x");                                /* format */
}

int ends(int known);
int ends(int known) {
    if (known) {
        return 1;
    }
    vn_outOfMemory();
}
