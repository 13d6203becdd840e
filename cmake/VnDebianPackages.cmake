# `cpack -G DEB` makes one Debian package of each component of VnInstall.cmake. scripts/package
# does it in a build whose prefix is /usr, where GNUInstallDirs picks Debian's library folder.
include(VnCopyright)

# Set by the publisher of the packages.
set(VN_PACKAGE_MAINTAINER "libvncommon developers <vncommon@localhost>" CACHE STRING
    "Who answers for the packages: Name <address>")
set(VN_PACKAGE_HOMEPAGE "" CACHE STRING "Where the project is found; empty for nowhere")

set(VN_COPYRIGHT ${CMAKE_CURRENT_BINARY_DIR}/copyright)
vn_write_copyright(${VN_COPYRIGHT})
# Debian's changelog format, which tools read. CHANGELOG.md, which is installed next to it, lists
# the changes.
string(TIMESTAMP VN_BUILD_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)   # or SOURCE_DATE_EPOCH
set(VN_CHANGELOG ${CMAKE_CURRENT_BINARY_DIR}/changelog)
file(CONFIGURE OUTPUT ${VN_CHANGELOG} @ONLY CONTENT
"vncommon (@PROJECT_VERSION@) unstable; urgency=medium

  * CHANGELOG.md tells what changed.

 -- @VN_PACKAGE_MAINTAINER@  @VN_BUILD_DATE@
")
function(vn_install_documents component package)
    install(FILES ${VN_COPYRIGHT} ${VN_CHANGELOG} ${PROJECT_SOURCE_DIR}/CHANGELOG.md
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endfunction()
set(VN_RUNTIME_PACKAGE libvncommon${PROJECT_VERSION_MAJOR})
vn_install_documents(runtime ${VN_RUNTIME_PACKAGE})
vn_install_documents(development libvncommon-dev)
install(DIRECTORY examples/event_server examples/deploy
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libvncommon-dev/examples COMPONENT development)
install(DIRECTORY docs/examples/
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libvncommon-dev/examples/families
    COMPONENT development)

# CPack puts the project's short description before that of each component.
set(CPACK_PACKAGE_NAME vncommon)
set(CPACK_PACKAGE_VENDOR "libvncommon developers")
set(CPACK_PACKAGE_CONTACT ${VN_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE ${VN_PACKAGE_HOMEPAGE})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_GENERATOR DEB)
set(CPACK_PRE_BUILD_SCRIPTS ${VN_INSTALL_TEMPLATES}/prepare-package.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${VN_INSTALL_TEMPLATES}/finish-packages.cmake)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# Debug information, if there is any, goes to separate packages (-dbgsym).
if("${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${CMAKE_BUILD_TYPE}}" MATCHES "-g( |$)")
    set(CPACK_STRIP_FILES OFF)
    set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
    set(CPACK_DEBIAN_TOOLS_DEBUGINFO_PACKAGE ON)
else()
    set(CPACK_STRIP_FILES ON)
endif()

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
set(VN_SYMBOLS ${CMAKE_CURRENT_BINARY_DIR}/debian/symbols)
add_custom_command(OUTPUT ${VN_SYMBOLS}
    COMMAND ${CMAKE_COMMAND} "-DNM=${CMAKE_NM}" "-DLIBRARY=$<TARGET_FILE:vncommon>"
            "-DSONAME=$<TARGET_SONAME_FILE_NAME:vncommon>" "-DPACKAGE=${VN_RUNTIME_PACKAGE}"
            "-DOUTPUT=${VN_SYMBOLS}" -P ${VN_INSTALL_TEMPLATES}/write-symbols.cmake
    DEPENDS vncommon ${VN_INSTALL_TEMPLATES}/write-symbols.cmake VERBATIM)
add_custom_target(vncommon_symbols ALL DEPENDS ${VN_SYMBOLS})
# The trigger calls ldconfig. CPack would also add scripts that call it, unless scripts are named
# here. It packs only files that exist, and these do not.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${VN_TRIGGERS} ${VN_SYMBOLS}
    ${CMAKE_CURRENT_BINARY_DIR}/debian/postinst ${CMAKE_CURRENT_BINARY_DIR}/debian/postrm)

set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"Development files: headers, manual pages, CMake package, pkg-config file and
examples.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvncommon-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${VN_RUNTIME_PACKAGE} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS libvncommon-java)

if(TARGET vncommon_jar)
    list(APPEND CPACK_COMPONENTS_ALL java)
    vn_install_documents(java libvncommon-java)
    set(CPACK_COMPONENT_JAVA_DESCRIPTION
"The Java class that reads the clock of the library, as a jar with the module
name com.vantrel.util.")
    set(CPACK_DEBIAN_JAVA_PACKAGE_NAME libvncommon-java)
    set(CPACK_DEBIAN_JAVA_PACKAGE_SECTION java)
    set(CPACK_DEBIAN_JAVA_PACKAGE_ARCHITECTURE all)
    set(CPACK_DEBIAN_JAVA_PACKAGE_DEPENDS "${VN_RUNTIME_PACKAGE} (>= ${PROJECT_VERSION})")
    # Earlier versions had the jar in the development package.
    set(CPACK_DEBIAN_JAVA_PACKAGE_BREAKS "libvncommon-dev (<< ${PROJECT_VERSION})")
    set(CPACK_DEBIAN_JAVA_PACKAGE_REPLACES "libvncommon-dev (<< ${PROJECT_VERSION})")
endif()

if(TARGET vninfo)
    list(APPEND CPACK_COMPONENTS_ALL tools)
    vn_install_documents(tools vninfo)
    set(CPACK_COMPONENT_TOOLS_DESCRIPTION
"vninfo prints the processors and the memory that a process may use, with
every source that was read and which one won: text for people, JSON for
scripts.")
    set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vninfo)
    set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
    # Not exactly this version: an upgrade of the library alone must not remove the tool.
    set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${VN_RUNTIME_PACKAGE} (>= ${PROJECT_VERSION})")
    set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})   # where libvncommon is
endif()

include(CPack)
