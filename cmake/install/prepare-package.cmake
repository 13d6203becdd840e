# CPack runs this on the files to pack. It compresses manual pages and changelogs (gzip without a
# time stamp), updates links to them, strips the static library, and sets all file times to the
# commit's, so that a second build gives identical packages.
set(top ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
file(GLOB_RECURSE documents ${top}/vninfo.1 ${top}/*.3 ${top}/changelog ${top}/CHANGELOG.md)
foreach(document IN LISTS documents)
    execute_process(COMMAND gzip -9nf ${document} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
# Pages that only redirect (".so page.3") become links to the compressed page.
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
