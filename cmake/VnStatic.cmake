# VN_BUILD_STATIC builds libvncommon.a: one relocatable object with everything that is linked into
# the shared library. Names that the shared library does not export are local, so that neither ours
# nor those of FDLIBM, netlib and the decimal library collide with a program's. ICU stays a
# dependency.
option(VN_BUILD_STATIC "Build libvncommon.a as well" OFF)
if(NOT VN_BUILD_STATIC)
    return()
endif()
if(VN_SANITIZE OR VN_COVERAGE)
    message(FATAL_ERROR "VN_BUILD_STATIC goes with neither VN_SANITIZE nor VN_COVERAGE")
endif()
string(TOUPPER "${CMAKE_BUILD_TYPE}" VN_CONFIG)
if(CMAKE_INTERPROCEDURAL_OPTIMIZATION
        OR "${CMAKE_C_FLAGS} ${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${VN_CONFIG}}" MATCHES "-flto")
    message(FATAL_ERROR "VN_BUILD_STATIC needs machine code, because names can be made local only "
                        "there: leave -flto out, or set VN_BUILD_STATIC=OFF")
endif()


# objcopy cannot make unique symbols local; inline functions of the standard library have some.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    target_compile_options(vncommon_objects PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-gnu-unique>)
endif()

set(VN_STATIC_FOLDER ${PROJECT_BINARY_DIR}/static)
set(VN_STATIC_OBJECT ${VN_STATIC_FOLDER}/vncommon.o)
add_custom_command(OUTPUT ${VN_STATIC_OBJECT}
    COMMAND ${CMAKE_COMMAND} "-DLINKER=${CMAKE_LINKER}" "-DNM=${CMAKE_NM}"
            "-DOBJCOPY=${CMAKE_OBJCOPY}" "-DSHARED_LIBRARY=$<TARGET_FILE:vncommon>"
            "-DDECIMAL=${IntelDecimal_LIBRARY}" "-DFOLDER=${VN_STATIC_FOLDER}"
            "-DOBJECTS=$<TARGET_OBJECTS:vncommon_objects>;${VN_UPSTREAM_OBJECTS}"
            -P ${CMAKE_CURRENT_LIST_DIR}/static/one_object.cmake
    DEPENDS vncommon $<TARGET_OBJECTS:vncommon_objects> ${VN_UPSTREAM_OBJECTS}
            ${IntelDecimal_LIBRARY} ${CMAKE_CURRENT_LIST_DIR}/static/one_object.cmake
    COMMENT "Making one object of libvncommon.a" VERBATIM)

add_library(vncommon_static STATIC ${VN_STATIC_OBJECT})
add_library(vncommon::vncommon_static ALIAS vncommon_static)
set_source_files_properties(${VN_STATIC_OBJECT} PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
# Language C, so that a project without C++ can link it. The C++ run-time library is added below.
set_target_properties(vncommon_static PROPERTIES
    OUTPUT_NAME vncommon LINKER_LANGUAGE C ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
target_include_directories(vncommon_static INTERFACE
    $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/include>)
if("c++" IN_LIST CMAKE_CXX_IMPLICIT_LINK_LIBRARIES)
    set(VN_CXX_RUNTIME c++)
else()
    set(VN_CXX_RUNTIME stdc++)
endif()
# By file name, because a surrounding project does not see the targets found here.
target_link_libraries(vncommon_static INTERFACE
    "$<BUILD_INTERFACE:${ICU_LIBRARIES};${CMAKE_THREAD_LIBS_INIT}>"
    "$<INSTALL_INTERFACE:ICU::uc;Threads::Threads>"
    ${VN_CXX_RUNTIME} m ${CMAKE_DL_LIBS})
