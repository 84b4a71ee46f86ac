# zmu_add_string_module(target script.rc [OUTPUT_DIRECTORY dir] [OUTPUT_NAME name])
#
# Builds a resource module from the STRINGTABLE blocks of a resource script: zmu-strings writes its
# C++ source, and the module serves the strings through an exported ZRLoadStringW. The file is
# named lib<name>.so, which is where LoadLibraryW(L"<name>.dll") looks; OUTPUT_NAME may be given
# with or without ".dll". A relative script path is taken from the calling CMakeLists.txt.
function(zmu_add_string_module target script)
    cmake_parse_arguments(PARSE_ARGV 2 arg "" "OUTPUT_DIRECTORY;OUTPUT_NAME" "")
    if(arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "zmu_add_string_module: unknown arguments: ${arg_UNPARSED_ARGUMENTS}")
    endif()

    # An installed package brings the tool as an imported target; inside this project it is built.
    if(TARGET zmu::zmu-strings)
        set(tool zmu::zmu-strings)
    else()
        set(tool zmu-strings)
    endif()

    get_filename_component(script_path "${script}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_SOURCE_DIR}")
    set(source "${CMAKE_CURRENT_BINARY_DIR}/${target}_strings.cpp")
    add_custom_command(
        OUTPUT "${source}"
        COMMAND ${tool} "${script_path}" "${source}"
        DEPENDS "${script_path}" ${tool}
        COMMENT "Generating the string module source of ${target} from ${script}"
        VERBATIM)

    add_library(${target} MODULE "${source}")
    set_target_properties(${target} PROPERTIES PREFIX "lib" CXX_VISIBILITY_PRESET hidden)
    if(arg_OUTPUT_NAME)
        string(REGEX REPLACE "\\.[dD][lL][lL]$" "" name "${arg_OUTPUT_NAME}")
        set_target_properties(${target} PROPERTIES OUTPUT_NAME "${name}")
    endif()
    if(arg_OUTPUT_DIRECTORY)
        set_target_properties(${target} PROPERTIES LIBRARY_OUTPUT_DIRECTORY "${arg_OUTPUT_DIRECTORY}")
    endif()
endfunction()
