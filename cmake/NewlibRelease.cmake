# Chooses the newest installed newlib tarball for which there are patches.
set(VN_PATCHES ${CMAKE_CURRENT_LIST_DIR}/patches)
file(GLOB VN_NEWLIB_RELEASES RELATIVE ${VN_PATCHES} ${VN_PATCHES}/*)
list(SORT VN_NEWLIB_RELEASES COMPARE NATURAL)

# Sets the release in a tarball's name; empty if there are no patches for it.
function(vn_newlib_release variable tarball)
    cmake_path(GET tarball FILENAME name)
    string(REGEX REPLACE "^newlib-(.*)\\.tar\\..*$" "\\1" release "${name}")
    if(NOT release IN_LIST VN_NEWLIB_RELEASES)
        set(release "")
    endif()
    set(${variable} "${release}" PARENT_SCOPE)
endfunction()

# Sets VN_NEWLIB_CHOSEN to a tarball of the list and VN_NEWLIB_RELEASE to its release.
function(vn_choose_newlib tarballs)
    list(SORT tarballs COMPARE NATURAL ORDER DESCENDING)
    foreach(tarball IN LISTS tarballs)
        vn_newlib_release(release ${tarball})
        if(release)
            set(VN_NEWLIB_CHOSEN ${tarball} PARENT_SCOPE)
            set(VN_NEWLIB_RELEASE ${release} PARENT_SCOPE)
            return()
        endif()
    endforeach()
    list(JOIN tarballs ", " found)
    list(JOIN VN_NEWLIB_RELEASES ", " known)
    message(FATAL_ERROR "No known newlib release among: ${found}. Known releases: ${known}. "
        "Name a tarball newlib-RELEASE.tar.* of one of these with -DVN_NEWLIB_TARBALL=FILE.")
endfunction()
