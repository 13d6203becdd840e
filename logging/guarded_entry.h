// The way into the operations with a printf format, made so that a suppressed line is as cheap as
// the comparison it needs.
//
// A variadic function stores every register that may hold an argument before its first statement,
// and no compiler moves that behind a test: a suppressed line then took 1.2 to 1.5 times a call
// that compares two numbers, most with a double among the arguments. So on x86-64 the exported
// name is a few instructions that test the threshold and touch no argument register, then jump to
// the C++ function, which tests it again; the same line takes 1.0 to 1.1 times that call. Other
// processors get the C++ function under the exported name.
#ifndef VN_LOGGING_GUARDED_ENTRY_H
#define VN_LOGGING_GUARDED_ENTRY_H

#include <cstddef>

#include <vncommon/file_logger.h>

// VN_WRITER(operation) is the name to define the C++ function under. Beside it goes one of
// VN_GUARDED_BY_ARGUMENT, for a logger in the first argument, and VN_GUARDED_BY_POINTER, for one
// in a hidden variable (null takes the long way); level is the literal number of the level.
#if defined(__x86_64__) && defined(__LP64__)

static_assert(offsetof(FileLogger, level) == 0, "the instructions below read it there");

#define VN_WRITER(operation) __attribute__((visibility("hidden"))) vncommon_written_##operation

// Carry clear after the test: threshold >= level.
#define VN_GUARDED_ENTRY(operation, test)                   \
    asm(".pushsection .text\n"                              \
        ".globl " #operation                                \
        "\n"                                                \
        ".type " #operation                                 \
        ", @function\n"                                     \
        ".p2align 4\n" #operation                           \
        ":\n"                                               \
        ".cfi_startproc\n"                                  \
        "endbr64\n" test "jae vncommon_written_" #operation \
        "\n"                                                \
        "ret\n"                                             \
        ".cfi_endproc\n"                                    \
        ".size " #operation ", .-" #operation               \
        "\n"                                                \
        ".popsection\n")

#define VN_GUARDED_BY_ARGUMENT(operation, level) \
    VN_GUARDED_ENTRY(operation, "cmpl $" #level ", (%rdi)\n")

#define VN_GUARDED_BY_POINTER(operation, level, pointer)          \
    VN_GUARDED_ENTRY(operation, "movq " pointer                   \
                                "(%rip), %r11\n"                  \
                                "testq %r11, %r11\n"              \
                                "je vncommon_written_" #operation \
                                "\n"                              \
                                "cmpl $" #level ", (%r11)\n")

#else

#define VN_WRITER(operation) operation
#define VN_GUARDED_BY_ARGUMENT(operation, level) static_assert(true)
#define VN_GUARDED_BY_POINTER(operation, level, pointer) static_assert(true)

#endif

#endif
