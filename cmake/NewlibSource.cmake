# Unpacks the upstream C sources of the library (FDLIBM, and netlib's conversion between doubles and
# decimal text) from a newlib release and patches them. Sets VN_NEWLIB_DIR to the folder that holds
# libm/ and libc/.
#
# Each folder of cmake/patches has the name of a release and contains its patches. They must apply
# without fuzz, so that changed upstream text is never compiled by accident.
set(VN_NEWLIB_TARBALL "" CACHE FILEPATH
    "Source tarball newlib-RELEASE.tar.*; empty: the newest known release below /usr/src/newlib")
include(NewlibRelease)

if(VN_NEWLIB_TARBALL)
    if(NOT EXISTS ${VN_NEWLIB_TARBALL})
        message(FATAL_ERROR "VN_NEWLIB_TARBALL: ${VN_NEWLIB_TARBALL} does not exist")
    endif()
    set(VN_NEWLIB_TARBALLS ${VN_NEWLIB_TARBALL})
else()
    file(GLOB VN_NEWLIB_TARBALLS CONFIGURE_DEPENDS /usr/src/newlib/newlib-*.tar.*)
endif()
if(NOT VN_NEWLIB_TARBALLS)
    message(FATAL_ERROR "The newlib sources were not found below /usr/src/newlib. On Debian: "
        "apt-get install newlib-source. Elsewhere: name the tarball with -DVN_NEWLIB_TARBALL=FILE.")
endif()
vn_choose_newlib("${VN_NEWLIB_TARBALLS}")
message(STATUS "newlib ${VN_NEWLIB_RELEASE}: ${VN_NEWLIB_CHOSEN}")

find_program(VN_PATCH patch)
if(NOT VN_PATCH)
    message(FATAL_ERROR "The program patch was not found. On Debian: apt-get install patch")
endif()
file(GLOB VN_NEWLIB_PATCHES CONFIGURE_DEPENDS ${VN_PATCHES}/${VN_NEWLIB_RELEASE}/*.patch)
set_property(DIRECTORY APPEND PROPERTY
    CMAKE_CONFIGURE_DEPENDS ${VN_NEWLIB_CHOSEN} ${VN_NEWLIB_PATCHES})

# The folder's name is the checksum of everything in it. It is made under a temporary name and then
# renamed, so that an interrupted configure leaves no incomplete folder.
set(VN_NEWLIB_CHECKSUMS)
foreach(file IN LISTS VN_NEWLIB_CHOSEN VN_NEWLIB_PATCHES)
    file(SHA256 ${file} checksum)
    string(APPEND VN_NEWLIB_CHECKSUMS ${checksum})
endforeach()
string(SHA256 VN_NEWLIB_CHECKSUM "${VN_NEWLIB_CHECKSUMS}")
set(VN_UPSTREAM_DIR ${PROJECT_BINARY_DIR}/upstream/${VN_NEWLIB_CHECKSUM})

function(vn_apply_patch patch folder)
    execute_process(
        COMMAND ${VN_PATCH} --batch --forward --fuzz=0 --no-backup-if-mismatch --strip=1
                --directory=${folder} --input=${patch}
        RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "${patch} does not apply to ${VN_NEWLIB_CHOSEN}:\n${output}")
    endif()
endfunction()

if(NOT EXISTS ${VN_UPSTREAM_DIR})
    set(VN_UNPACKING ${VN_UPSTREAM_DIR}.unpacking)
    file(REMOVE_RECURSE ${VN_UNPACKING})
    file(MAKE_DIRECTORY ${VN_UNPACKING})
    file(ARCHIVE_EXTRACT INPUT ${VN_NEWLIB_CHOSEN} DESTINATION ${VN_UNPACKING}
         PATTERNS "*/newlib/libm/math/*.[ch]" "*/newlib/libm/common/*.[ch]"
                  "*/newlib/libc/stdlib/dtoa.c" "*/newlib/libc/stdlib/mprec.[ch]"
                  "*/newlib/libc/stdlib/strtod.c" "*/newlib/libc/stdlib/gdtoa*")
    file(GLOB VN_NEWLIB_DIR ${VN_UNPACKING}/*/newlib)
    if(NOT VN_NEWLIB_DIR)
        message(FATAL_ERROR "${VN_NEWLIB_CHOSEN} does not hold a newlib folder")
    endif()
    foreach(patch IN LISTS VN_NEWLIB_PATCHES)
        vn_apply_patch(${patch} ${VN_NEWLIB_DIR})
    endforeach()
    file(RENAME ${VN_UNPACKING} ${VN_UPSTREAM_DIR})
endif()
file(GLOB VN_NEWLIB_DIR ${VN_UPSTREAM_DIR}/*/newlib)

include(Fdlibm)
include(NetlibConversion)
