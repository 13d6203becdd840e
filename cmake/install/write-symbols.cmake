# Writes Debian's symbols file to OUTPUT: every exported name of LIBRARY with the version that
# introduced it, which its node in the version script gives.
execute_process(COMMAND ${NM} --dynamic --defined-only ${LIBRARY}
    OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^ \n]+@@[^ \n]+" names "${text}")
list(SORT names)
set(nodes)
set(lines)
foreach(name IN LISTS names)
    string(REGEX MATCH "^(.*)@@(VNCOMMON_([0-9.]+))$" matched ${name})
    string(APPEND lines " ${CMAKE_MATCH_1}@${CMAKE_MATCH_2} ${CMAKE_MATCH_3}\n")
    list(APPEND nodes " ${CMAKE_MATCH_2}@${CMAKE_MATCH_2} ${CMAKE_MATCH_3}\n")
endforeach()
list(REMOVE_DUPLICATES nodes)
list(SORT nodes)
list(JOIN nodes "" nodes)
file(WRITE ${OUTPUT} "${SONAME} ${PACKAGE} #MINVER#\n${nodes}${lines}")
