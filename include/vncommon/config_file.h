/** @file
 * The per-user configuration file ".vantrel.conf": named categories of free-form text entries.
 *
 * Format. The file is read as bytes, line by line; a line may have any length, no encoding is
 * assumed, and a NUL byte hides the rest of its line. The first byte of a line decides:
 *
 *     #...       a comment. Anywhere else, also after a blank, "#" is ordinary text.
 *     [name]     starts a category, or continues it if it exists. The name is the text between "["
 *                and the first "]" (or the end of the line), without trailing white space;
 *                leading blanks belong to it. The rest of the line is ignored. Names are
 *                case-sensitive; "[]" is the unnamed category.
 *     else       an entry of the current category; ignored if it is empty without its quotes.
 *
 * Entries before the first header belong to the unnamed category, which always exists. In an
 * entry, a backslash makes the next byte ordinary text, also inside quotes. Inside single quotes a
 * double quote is ordinary text, and the reverse. The backslashes and quotes are removed. Blanks,
 * also leading and trailing ones, and the carriage return of a CR LF line end stay. No entry
 * continues on the next line: a quote that is not closed ends with its line. The line feed then
 * belongs to the entry, as does a line feed after a backslash. Duplicates are kept; entries stay
 * in the order of the file.
 *
 * Cost: loading time is proportional to the size of the file, but with hundreds of thousands of
 * categories to the square of their number, as in any HashMap that grows (hashmap.h). A
 * configuration needs about 40 bytes per entry in addition to its text.
 *
 * Memory: handles, names, entries and lines come from vn_malloc, so running out of it ends the
 * process (failure.h). The HashMap and the Vectors that hold them do not check their memory:
 * if memory for these runs out, the behaviour is undefined.
 *
 * Thread safety: none, and one configuration is process-wide: load, unload and walk from one
 * thread at a time. A loaded configuration does not change.
 */
#ifndef VNCOMMON_CONFIG_FILE_H
#define VNCOMMON_CONFIG_FILE_H

#include <vncommon/api.h>
#include <vncommon/hashmap.h>
#include <vncommon/vector.h>

VN_BEGIN_DECLS

/** A loaded configuration. */
typedef struct VN_ConfigFile {
    HashMap* categories;       /**< from names to Vectors of entries (NUL-terminated text) */
    HashMapIterator* iterator; /**< the category cursor: see GetFirstCategory; null before it */
} VN_ConfigFile;

/** A handle for one category of a configuration. */
typedef struct VN_ConfigFileCategory {
    Vector* entries; /**< owned by the configuration */
    uint32_t cursor; /**< index of the current entry; in a new handle of VN_ConfigFile_GetCategory
                      * the entry count minus 1 (modulo 2^32), of a walk the entry count */
} VN_ConfigFileCategory;

/** Loads the first of these files that can be opened:
 *   1. fileName, unless it is null;
 *   2. ".vantrel.conf" in the working directory;
 *   3. ".vantrel.conf" in the directory that HOME names, or, only when HOME is not set, in the
 *      one that VANTREL_HOME names.
 * Compat: VANTREL_HOME is not tried when HOME is set; programs rely on it.
 *
 * If out is null, the process-wide configuration is loaded. If that is loaded already, nothing is
 * read and fileName is ignored. If out is not null, a private configuration is loaded and *out is
 * set to it. It can be walked like the other; VN_ConfigFile_Release frees the handle.
 *
 * Returns the name of the file, which belongs to the library and is valid until the next call that
 * loads. When nothing is read, it is the name of the last file that was loaded, also if that was
 * for a private configuration or if reading it failed. Returns null
 *   - when no file could be opened.
 *     Compat: the process-wide configuration is then dropped without being freed, also if the call
 *     was for a private one, and *out points to freed memory; programs rely on it.
 *   - when reading failed before the end of the file (it is a directory, for instance). The part
 *     that was read before stays loaded.
 */
VN_NODISCARD VN_API const char* VN_ConfigFile_Load(const char* fileName, VN_ConfigFile** out);

/** Frees the process-wide configuration with all its names and entries, but not its category
 * cursor (see VN_ConfigFile_GetFirstCategory); does nothing when none is loaded. Category handles
 * made from it must not be used any more, only released. */
VN_API void VN_ConfigFile_Unload(void);

/** Whether the process-wide configuration is loaded. */
VN_API bool VN_ConfigFile_IsLoaded(void);

/** The handle of the process-wide configuration; null when it is not loaded. Free the handle with
 * VN_ConfigFile_Unload, not with VN_ConfigFile_Release. */
VN_API VN_ConfigFile* VN_ConfigFile_Get(void);

/** The number of categories, the unnamed one included. */
VN_API uint32_t VN_ConfigFile_GetCategoryCount(VN_ConfigFile* config);

/** Starts a walk over the categories, in the order of the map that holds them (not of the file).
 * Returns a new handle, which the caller frees with VN_ConfigFileCategory_Release, or null past the
 * last category. A configuration has one cursor, so only one walk at a time is possible.
 *
 * The cursor is the iterator field. Each GetFirstCategory creates a new iterator.
 * Compat: GetFirstCategory and VN_ConfigFile_Unload do not free the earlier one, because callers
 * may hold it. It leaks unless the caller frees it, at any time after the walk:
 *
 *     vn_HashMapIterator_dtor(config->iterator);
 *     config->iterator = NULL;
 *
 * The second line is needed because VN_ConfigFile_Release frees the iterator in the field. */
VN_NODISCARD VN_API VN_ConfigFileCategory* VN_ConfigFile_GetFirstCategory(VN_ConfigFile* config);

/** The next category of the walk, as a new handle, which the caller frees with
 * VN_ConfigFileCategory_Release; null past the last category and before
 * VN_ConfigFile_GetFirstCategory. */
VN_NODISCARD VN_API VN_ConfigFileCategory* VN_ConfigFile_GetNextCategory(VN_ConfigFile* config);

/** A new handle for the category with exactly this name ("" is the unnamed one), freed with
 * VN_ConfigFileCategory_Release; null when there is none. */
VN_NODISCARD VN_API VN_ConfigFileCategory* VN_ConfigFile_GetCategory(VN_ConfigFile* config,
                                                                     const char* name);

/** Frees the handle of a private configuration and its category cursor.
 * Compat: the categories stay allocated, because callers hold category handles and entries. */
VN_API void VN_ConfigFile_Release(VN_ConfigFile* config);

/** The number of entries. */
VN_API uint32_t VN_ConfigFileCategory_GetEntryCount(VN_ConfigFileCategory* category);

/** Starts a walk over the entries in the order of the file: the first entry, or null when there is
 * none. The text belongs to the configuration. */
VN_API const char* VN_ConfigFileCategory_GetFirstEntry(VN_ConfigFileCategory* category);

/** The next entry of the walk; null past the last, and on a new handle: start with
 * VN_ConfigFileCategory_GetFirstEntry. The text belongs to the configuration. */
VN_API const char* VN_ConfigFileCategory_GetNextEntry(VN_ConfigFileCategory* category);

/** Frees the handle; the entries stay. */
VN_API void VN_ConfigFileCategory_Release(VN_ConfigFileCategory* category);

VN_END_DECLS

#endif
