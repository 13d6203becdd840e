# Toolchain file for Debian's cross compilers, used by scripts/cross.
#     cmake -DCMAKE_TOOLCHAIN_FILE=cmake/Cross.cmake -DVN_CROSS=aarch64 ...
# VN_CROSS is the first part of the compiler's name, such as aarch64.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VN_CROSS)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${VN_CROSS})
set(CMAKE_LIBRARY_ARCHITECTURE ${VN_CROSS}-linux-gnu)
set(CMAKE_C_COMPILER ${VN_CROSS}-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER ${VN_CROSS}-linux-gnu-g++)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${VN_CROSS}-linux-gnu/pkgconfig:/usr/share/pkgconfig)
