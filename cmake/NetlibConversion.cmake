# Builds netlib's conversion between doubles and decimal text as the object library vn_netlib, from
# the unpacked upstream sources, patched by cmake/patches.
#
# We provide the headers that upstream includes (text/numbers/netlib), its memory management and its
# powers of five (text/numbers/dtoamemory.cpp).
set(VN_NETLIB_SOURCES dtoa mprec strtod gdtoa-gethex gdtoa-hexnan)
list(TRANSFORM VN_NETLIB_SOURCES PREPEND ${VN_NEWLIB_DIR}/libc/stdlib/)
list(TRANSFORM VN_NETLIB_SOURCES APPEND .c)

add_library(vn_netlib OBJECT ${VN_NETLIB_SOURCES})
set_target_properties(vn_netlib PROPERTIES
    POSITION_INDEPENDENT_CODE ON C_STANDARD 11 C_EXTENSIONS ON)
target_include_directories(vn_netlib PRIVATE ${PROJECT_SOURCE_DIR}/text/numbers/netlib/include)
target_compile_definitions(vn_netlib PRIVATE _REENT_ONLY)
target_compile_options(vn_netlib PRIVATE
    -w -fwrapv -ffp-contract=off -fno-fast-math -fno-sanitize=all)
list(APPEND VN_UPSTREAM_OBJECTS $<TARGET_OBJECTS:vn_netlib>)
