# Unpacks the C sources that are compiled into the library (FDLIBM, and netlib's
# conversion between doubles and decimal text) out of Debian's newlib-source.
# Sets VN_NEWLIB_DIR to the folder that holds libm/ and libc/.
#
# The folder is named by the tarball's checksum, and the unpacking goes beside it
# and is renamed into place, so that an interrupted configure leaves nothing half done.
file(GLOB VN_NEWLIB_TARBALL /usr/src/newlib/newlib-*.tar.*)
if(NOT VN_NEWLIB_TARBALL)
    message(FATAL_ERROR "The newlib sources were not found below /usr/src/newlib. "
                        "On Debian: apt-get install newlib-source")
endif()
list(GET VN_NEWLIB_TARBALL -1 VN_NEWLIB_TARBALL)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${VN_NEWLIB_TARBALL})
file(SHA256 ${VN_NEWLIB_TARBALL} VN_NEWLIB_SHA256)
set(VN_UPSTREAM_DIR ${CMAKE_BINARY_DIR}/upstream/${VN_NEWLIB_SHA256})

if(NOT EXISTS ${VN_UPSTREAM_DIR})
    message(STATUS "Unpacking ${VN_NEWLIB_TARBALL}")
    set(VN_UNPACKING ${VN_UPSTREAM_DIR}.unpacking)
    file(REMOVE_RECURSE ${VN_UNPACKING})
    file(MAKE_DIRECTORY ${VN_UNPACKING})
    file(ARCHIVE_EXTRACT INPUT ${VN_NEWLIB_TARBALL} DESTINATION ${VN_UNPACKING}
         PATTERNS "*/newlib/libm/math/*.[ch]" "*/newlib/libm/common/*.[ch]"
                  "*/newlib/libc/stdlib/dtoa.c" "*/newlib/libc/stdlib/mprec.[ch]"
                  "*/newlib/libc/stdlib/strtod.c" "*/newlib/libc/stdlib/gdtoa*"
                  "*/newlib/libc/locale/setlocale.h")
    file(RENAME ${VN_UNPACKING} ${VN_UPSTREAM_DIR})
endif()
file(GLOB VN_NEWLIB_DIR ${VN_UPSTREAM_DIR}/*/newlib)
if(NOT VN_NEWLIB_DIR)
    message(FATAL_ERROR "${VN_NEWLIB_TARBALL} does not hold a newlib folder")
endif()

# Replaces one piece of upstream text and insists on having found it exactly once, so
# that another release cannot slip through uncorrected.
function(vn_correct_text variable old new)
    string(FIND "${${variable}}" "${old}" first)
    string(FIND "${${variable}}" "${old}" last REVERSE)
    if(first EQUAL -1 OR NOT first EQUAL last)
        message(FATAL_ERROR "${VN_NEWLIB_TARBALL}: the text to correct was not found once: ${old}")
    endif()
    string(REPLACE "${old}" "${new}" corrected "${${variable}}")
    set(${variable} "${corrected}" PARENT_SCOPE)
endfunction()

include(Fdlibm)
include(NetlibConversion)
