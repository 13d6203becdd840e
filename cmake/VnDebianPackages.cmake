# `cpack -G DEB` makes one Debian package of each component of VnInstall.cmake. scripts/package
# does it in a build whose prefix is /usr, where GNUInstallDirs picks Debian's library folder.
include(VnCopyright)

set(VN_COPYRIGHT ${CMAKE_CURRENT_BINARY_DIR}/copyright)
vn_write_copyright(${VN_COPYRIGHT})
# In Debian's own form, which tools read; what changed stands in CHANGELOG.md beside it.
string(TIMESTAMP VN_BUILD_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)   # or SOURCE_DATE_EPOCH
set(VN_MAINTAINER "libvncommon developers <vncommon@localhost>")
set(VN_CHANGELOG ${CMAKE_CURRENT_BINARY_DIR}/changelog)
file(CONFIGURE OUTPUT ${VN_CHANGELOG} @ONLY CONTENT
"vncommon (@PROJECT_VERSION@) unstable; urgency=medium

  * CHANGELOG.md tells what changed.

 -- @VN_MAINTAINER@  @VN_BUILD_DATE@
")
function(vn_install_documents component package)
    install(FILES ${VN_COPYRIGHT} ${VN_CHANGELOG} ${PROJECT_SOURCE_DIR}/CHANGELOG.md
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endfunction()
set(VN_RUNTIME_PACKAGE libvncommon${PROJECT_VERSION_MAJOR})
vn_install_documents(runtime ${VN_RUNTIME_PACKAGE})
vn_install_documents(development libvncommon-dev)
vn_install_documents(tools vninfo)

# CPack puts the project's description, the short one, before each of the component's.
set(CPACK_PACKAGE_NAME vncommon)
set(CPACK_PACKAGE_VENDOR "libvncommon developers")
set(CPACK_PACKAGE_CONTACT ${VN_MAINTAINER})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_GENERATOR DEB)
set(CPACK_PRE_BUILD_SCRIPTS ${VN_INSTALL_TEMPLATES}/compress-documents.cmake)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
if(TARGET vninfo)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"Threads, sockets, container-aware discovery of processors and memory,
containers, text, logging and events behind a flat C interface.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${VN_RUNTIME_PACKAGE})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# Programs built against one version run with it and with all later ones of this major version.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(VN_TRIGGERS ${CMAKE_CURRENT_BINARY_DIR}/debian/triggers)
file(CONFIGURE OUTPUT ${VN_TRIGGERS} CONTENT "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${VN_TRIGGERS})

set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"Development files: headers, CMake package, pkg-config file and the jar with
the Java class.")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvncommon-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)

set(CPACK_COMPONENT_TOOLS_DESCRIPTION
"vninfo prints the processors and the memory that a process may use, with
every source that was read and which one won: text for people, JSON for
scripts.")
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vninfo)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})   # where libvncommon is

include(CPack)
