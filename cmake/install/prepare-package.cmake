# CPack runs this on what it is about to pack: manual pages and changelogs are compressed, by gzip
# without the time of day; links follow their pages; the archive keeps no debug information; and all
# files are as old as the commit, so that a second build gives equal packages.
set(top ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
file(GLOB_RECURSE documents ${top}/vninfo.1 ${top}/*.3 ${top}/changelog ${top}/CHANGELOG.md)
foreach(document IN LISTS documents)
    execute_process(COMMAND gzip -9nf ${document} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
# man follows ".so page.3" to the compressed page; compressed leads are links to it instead.
file(GLOB_RECURSE leads ${top}/*.3.gz)
foreach(lead IN LISTS leads)
    execute_process(COMMAND zcat ${lead} OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
    if(text MATCHES "^\\.so man3/([^\n]+)\n$")
        file(REMOVE ${lead})
        file(CREATE_LINK ${CMAKE_MATCH_1}.gz ${lead} SYMBOLIC)
    endif()
endforeach()
file(GLOB_RECURSE archives ${top}/libvncommon.a)
foreach(archive IN LISTS archives)
    execute_process(COMMAND strip --strip-debug --enable-deterministic-archives
        -R .comment -R .note ${archive} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND find ${top} -exec touch --no-dereference
        --date=@$ENV{SOURCE_DATE_EPOCH} {} + COMMAND_ERROR_IS_FATAL ANY)
endif()
