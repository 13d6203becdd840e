# CPack runs this on what it is about to pack: Debian wants manual pages and changelogs compressed,
# by gzip without the time of day.
file(GLOB_RECURSE documents ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/vninfo.1
                            ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/changelog)
foreach(document IN LISTS documents)
    execute_process(COMMAND gzip -9n ${document} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
