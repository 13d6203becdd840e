# The decimal floating-point library (BID encoding, arguments by value, status
# flags through a last pointer argument) as the target IntelDecimal::IntelDecimal.
find_library(IntelDecimal_LIBRARY NAMES libbidgcc000.a)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(IntelDecimal
    REQUIRED_VARS IntelDecimal_LIBRARY
    REASON_FAILURE_MESSAGE "On Debian: apt-get install libintelrdfpmath-dev")
if(IntelDecimal_FOUND AND NOT TARGET IntelDecimal::IntelDecimal)
    add_library(IntelDecimal::IntelDecimal STATIC IMPORTED)
    set_target_properties(IntelDecimal::IntelDecimal PROPERTIES
        IMPORTED_LOCATION ${IntelDecimal_LIBRARY})
endif()
