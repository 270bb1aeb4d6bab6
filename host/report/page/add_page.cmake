# Puts a page together from frame.html and the named files whenever one of these has changed, and into
# the data of the target, between the symbols hoplar_NAME_begin and hoplar_NAME_end.
#
# add_page(TARGET NAME TITLE TEXT BODY FILE STYLES FILE... SCRIPTS FILE...)
function(add_page target name)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "TITLE;BODY" "STYLES;SCRIPTS")
    set(folder ${CMAKE_CURRENT_FUNCTION_LIST_DIR})
    set(page ${CMAKE_CURRENT_BINARY_DIR}/${name}.html)
    list(TRANSFORM arg_BODY PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
    list(TRANSFORM arg_STYLES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
    list(TRANSFORM arg_SCRIPTS PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
    file(GLOB parts CONFIGURE_DEPENDS ${folder}/common.* ${folder}/frame.html
        ${folder}/page.cmake)
    add_custom_command(OUTPUT ${page} VERBATIM
        COMMAND ${CMAKE_COMMAND} -D PARTS=${folder} -D BODY=${arg_BODY}
                "-D STYLES=${arg_STYLES}" "-D SCRIPTS=${arg_SCRIPTS}" "-D TITLE=${arg_TITLE}"
                -D PAGE=${page} -P ${folder}/page.cmake
        DEPENDS ${parts} ${arg_BODY} ${arg_STYLES} ${arg_SCRIPTS})
    configure_file(${folder}/page.S.in ${name}.S @ONLY)
    set_source_files_properties(${CMAKE_CURRENT_BINARY_DIR}/${name}.S PROPERTIES
        OBJECT_DEPENDS ${page} INCLUDE_DIRECTORIES ${CMAKE_CURRENT_BINARY_DIR})
    target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${name}.S)
endfunction()
