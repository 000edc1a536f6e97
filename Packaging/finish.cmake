# Makes of the files that are laid out for each Debian package what Debian's policy wants of them. CPack
# runs this before it packs them.
set(source ${CMAKE_CURRENT_LIST_DIR})
foreach(part IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${part} PART)
    set(package ${CPACK_DEBIAN_${PART}_PACKAGE_NAME})
    set(root ${CPACK_TEMPORARY_DIRECTORY}/${part}/usr)

    # They are where the system looks for them.
    file(GLOB_RECURSE programs ${root}/bin/* ${root}/lib/*.so.*)
    foreach(file IN LISTS programs)
        file(RPATH_REMOVE FILE ${file})
    endforeach()

    set(documents ${root}/share/doc/${package})
    file(MAKE_DIRECTORY ${documents})
    execute_process(COMMAND ${source}/make-copyright OUTPUT_FILE ${documents}/copyright
                    COMMAND_ERROR_IS_FATAL ANY)
    file(COPY_FILE ${source}/changelog ${documents}/changelog.Debian)
    file(REMOVE ${documents}/LICENSE) # as said in copyright
    if(EXISTS ${documents}/CHANGELOG.md)
        file(RENAME ${documents}/CHANGELOG.md ${documents}/changelog)
    endif()
    file(GLOB texts ${documents}/changelog* ${root}/share/man/man1/*)
    execute_process(COMMAND gzip -9n ${texts} COMMAND_ERROR_IS_FATAL ANY)
    file(GLOB_RECURSE texts ${documents}/*)
    file(CHMOD ${texts} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endforeach()
