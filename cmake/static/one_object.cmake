# Links OBJECTS and the needed members of the archive DECIMAL into FOLDER/vncommon.o. Only the names
# that SHARED_LIBRARY exports are global in it.
#
# Removes the COMDAT groups of inline functions: a linker that finds the same group in another
# object would drop ours, and our names for it are local.
set(RELOCATABLE ${LINKER} -r --force-group-allocation)

function(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# The symbol names that nm prints for the file, without a version after @.
function(names variable file)
    execute_process(COMMAND ${NM} ${ARGN} ${file} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX MATCHALL "[^ \n]+\n" found "${output}")
    list(TRANSFORM found REPLACE "(@.*)?\n" "")
    set(${variable} ${found} PARENT_SCOPE)
endfunction()

file(MAKE_DIRECTORY ${FOLDER})
run(${RELOCATABLE} -o ${FOLDER}/ours.o ${OBJECTS})

# The decimal library first becomes a separate object in which only the functions that we call are
# global. It defines a variable signgam, which our mathematics must not use in place of the C
# library's.
names(calls ${FOLDER}/ours.o --undefined-only)
list(FILTER calls INCLUDE REGEX "^__bid")
set(wanted)
set(kept)
foreach(name IN LISTS calls)
    list(APPEND wanted --undefined=${name})
    list(APPEND kept --keep-global-symbol=${name})
endforeach()
run(${RELOCATABLE} -o ${FOLDER}/decimal.o ${wanted} ${DECIMAL})
run(${OBJCOPY} ${kept} ${FOLDER}/decimal.o)

names(exports ${SHARED_LIBRARY} --dynamic --defined-only)
list(JOIN exports "\n" exports)
file(WRITE ${FOLDER}/exports.txt "${exports}\n")
run(${RELOCATABLE} -o ${FOLDER}/all.o ${FOLDER}/ours.o ${FOLDER}/decimal.o)
# Gives our initialisers a priority: those of the program come first on the link line and may call
# us.
run(${OBJCOPY} --keep-global-symbols=${FOLDER}/exports.txt
    --rename-section .init_array=.init_array.00103 ${FOLDER}/all.o ${FOLDER}/vncommon.o)
