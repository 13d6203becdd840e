# What `cmake --install` puts where, in four components: "runtime" (the shared library and its
# printers for gdb), "development" (headers and their manual pages, CMake package, vncommon.pc),
# "java" (the jar) and "tools" (vninfo and its manual page). Installed files refer to each other by
# relative paths, so the prefix may be chosen, or the tree moved, after the build.
include(CMakePackageConfigHelpers)

set(VN_INSTALL_TEMPLATES ${CMAKE_CURRENT_LIST_DIR}/install)
set(VN_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/vncommon)
set(VN_INSTALL_JAVADIR ${CMAKE_INSTALL_DATADIR}/java)
set(VN_INSTALL_JAR ${VN_INSTALL_JAVADIR}/vncommon.jar)

install(TARGETS vncommon EXPORT vncommon-targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT runtime NAMELINK_COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
set(VN_PC_PRIVATE "")
if(TARGET vncommon_static)
    install(TARGETS vncommon_static EXPORT vncommon-static-targets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    install(EXPORT vncommon-static-targets NAMESPACE vncommon:: DESTINATION ${VN_INSTALL_CMAKEDIR}
        COMPONENT development)
    # Not Requires.private: pkg-config would then need ICU's files even for the shared library.
    set(VN_PC_PRIVATE
        "Libs.private: -licuuc -licudata -l${VN_CXX_RUNTIME} -lm -pthread -l${CMAKE_DL_LIBS}\n")
endif()
install(DIRECTORY include/vncommon DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT development FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")
if(TARGET vncommon_jar)
    # Debian's Java policy: the file name has the version; a link without it points to the file.
    set(jar vncommon-${PROJECT_VERSION}.jar)
    file(CREATE_LINK ${jar} ${CMAKE_CURRENT_BINARY_DIR}/vncommon.jar SYMBOLIC)
    install(FILES $<TARGET_PROPERTY:vncommon_jar,JAR_FILE> DESTINATION ${VN_INSTALL_JAVADIR}
        COMPONENT java RENAME ${jar})
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vncommon.jar DESTINATION ${VN_INSTALL_JAVADIR}
        COMPONENT java)
endif()
if(TARGET vninfo)
    file(RELATIVE_PATH VN_BIN_TO_LIB ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(vninfo PROPERTIES INSTALL_RPATH $ORIGIN/${VN_BIN_TO_LIB})
    install(TARGETS vninfo RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    configure_file(tools/vninfo/vninfo.1.in ${CMAKE_CURRENT_BINARY_DIR}/vninfo.1 @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vninfo.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
        COMPONENT tools)
endif()

# Manual pages, generated from the headers; this needs Python.
find_package(Python3 COMPONENTS Interpreter QUIET)
if(Python3_Interpreter_FOUND)
    set(pages ${CMAKE_CURRENT_BINARY_DIR}/man3)
    file(GLOB headers CONFIGURE_DEPENDS include/vncommon/*.h)
    add_custom_command(OUTPUT ${pages}.made
        COMMAND Python3::Interpreter -B ${PROJECT_SOURCE_DIR}/docs/man_pages.py
                ${PROJECT_SOURCE_DIR}/include/vncommon ${PROJECT_VERSION} ${pages}
        COMMAND ${CMAKE_COMMAND} -E touch ${pages}.made
        DEPENDS docs/man_pages.py ${headers} VERBATIM)
    add_custom_target(vncommon_man_pages ALL DEPENDS ${pages}.made)
    install(DIRECTORY ${pages}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
endif()

# gdb searches printers below share/gdb/auto-load by the full path of the library, which is known
# only at install time. For a package it is the path below the staging folder.
set(VN_GDB_AUTO_LOAD ${CMAKE_INSTALL_DATADIR}/gdb/auto-load)
install(CODE "
    set(to \"\${CMAKE_INSTALL_PREFIX}\")
    string(REGEX REPLACE \"^.*/_CPack_Packages/.*/runtime/\" / prefix \"\${to}\")
    file(INSTALL ${VN_GDB_PRINTERS} RENAME $<TARGET_FILE_NAME:vncommon>-gdb.py
        DESTINATION \"\${to}/${VN_GDB_AUTO_LOAD}\${prefix}/${CMAKE_INSTALL_LIBDIR}\")
" COMPONENT runtime)

# find_package(vncommon CONFIG)
install(EXPORT vncommon-targets NAMESPACE vncommon:: DESTINATION ${VN_INSTALL_CMAKEDIR}
    COMPONENT development)
configure_package_config_file(${VN_INSTALL_TEMPLATES}/vncommon-config.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/vncommon-config.cmake
    INSTALL_DESTINATION ${VN_INSTALL_CMAKEDIR} PATH_VARS VN_INSTALL_JAR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vncommon-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vncommon-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/vncommon-config-version.cmake
    DESTINATION ${VN_INSTALL_CMAKEDIR} COMPONENT development)

# pkg-config vncommon
file(RELATIVE_PATH VN_PC_TO_PREFIX
     ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
cmake_path(APPEND VN_PC_LIBDIR "\${prefix}" ${CMAKE_INSTALL_LIBDIR})
cmake_path(APPEND VN_PC_INCLUDEDIR "\${prefix}" ${CMAKE_INSTALL_INCLUDEDIR})
configure_file(${VN_INSTALL_TEMPLATES}/vncommon.pc.in ${CMAKE_CURRENT_BINARY_DIR}/vncommon.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vncommon.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(PROJECT_IS_TOP_LEVEL)   # CPack's settings apply to the whole build
    include(VnDebianPackages)
endif()
