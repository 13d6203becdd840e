# Reads the version from the header that defines it, into VN_VERSION, so that the build, the
# packages and the library report the same one. A change of the header triggers a new configure run.
set(VN_VERSION_HEADER ${CMAKE_CURRENT_LIST_DIR}/../include/vncommon/version.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${VN_VERSION_HEADER})
file(READ ${VN_VERSION_HEADER} VN_VERSION_TEXT)
set(VN_VERSION "")
foreach(part IN ITEMS MAJOR MINOR PATCH)
    if(NOT VN_VERSION_TEXT MATCHES "#define VN_VERSION_${part} ([0-9]+)\n")
        message(FATAL_ERROR "${VN_VERSION_HEADER} does not define VN_VERSION_${part}")
    endif()
    string(APPEND VN_VERSION ".${CMAKE_MATCH_1}")
endforeach()
string(SUBSTRING ${VN_VERSION} 1 -1 VN_VERSION)
