# CPack runs this on finished packages. CPack itself fills the debug packages, with build times and
# build paths; this packs them again, with the time of the commit.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    if(NOT package MATCHES "\\.ddeb$" OR NOT DEFINED ENV{SOURCE_DATE_EPOCH})
        continue()
    endif()
    set(folder ${package}.folder)
    execute_process(COMMAND dpkg-deb --raw-extract ${package} ${folder} COMMAND_ERROR_IS_FATAL ANY)
    # The documents are those of the package that the debug information belongs to.
    string(REGEX MATCH "([^/]+)-dbgsym_[^/]*$" matched ${package})
    file(MAKE_DIRECTORY ${folder}/usr/share/doc)
    file(CREATE_LINK ${CMAKE_MATCH_1} ${folder}/usr/share/doc/${CMAKE_MATCH_1}-dbgsym SYMBOLIC)
    foreach(command IN ITEMS
            "sed;-i;-E;s|  /.*-dbgsym/|  |;${folder}/DEBIAN/md5sums"
            "find;${folder}/usr;-type;f;-exec;chmod;644;{};+"
            "find;${folder};-exec;touch;--no-dereference;--date=@$ENV{SOURCE_DATE_EPOCH};{};+"
            "dpkg-deb;--root-owner-group;--build;${folder};${package}")
        execute_process(COMMAND ${command} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
    file(REMOVE_RECURSE ${folder})
endforeach()
