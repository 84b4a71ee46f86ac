# Version data for a module, the counterpart of a Windows VS_VERSIONINFO resource. Read back by
# GetFileVersionInfoSizeW/GetFileVersionInfoW/VerQueryValueW (platform/VersionResources.h) from the
# file, without loading it. The text format is described in platform/README.md.
#
# zmu_stamp_version(<target>
#     [KEY <8 hex digits>]                     the strings' language and code page; default 040904B0
#     [TRANSLATION <key>... | EMPTY_TRANSLATION]  \VarFileInfo\Translation; default: KEY alone
#     [COMPANY_NAME <text>] [FILE_DESCRIPTION <text>] [FILE_VERSION <text>] [INTERNAL_NAME <text>]
#     [LEGAL_COPYRIGHT <text>] [LEGAL_TRADEMARKS <text>] [ORIGINAL_FILENAME <text>]
#     [PRODUCT_NAME <text>] [PRODUCT_VERSION <text>]
#     [COMMENTS <text>] [PRIVATE_BUILD <text>] [SPECIAL_BUILD <text>])
#
# Writes a source that puts the text into the section ".zmu_version" and adds it to the target.
# Texts are UTF-8 on one line; an empty text is left out. The data is marked `used`, so the
# compiler keeps it; a link with --gc-sections would also need KEEP or the `retain` attribute.

set(ZMU_VERSION_KEYWORDS
    COMPANY_NAME FILE_DESCRIPTION FILE_VERSION INTERNAL_NAME LEGAL_COPYRIGHT LEGAL_TRADEMARKS
    ORIGINAL_FILENAME PRODUCT_NAME PRODUCT_VERSION COMMENTS PRIVATE_BUILD SPECIAL_BUILD)
set(ZMU_VERSION_NAMES
    CompanyName FileDescription FileVersion InternalName LegalCopyright LegalTrademarks
    OriginalFilename ProductName ProductVersion Comments PrivateBuild SpecialBuild)

# One line of the version text as a C++ string literal.
function(_zmu_version_literal text out)
    string(REPLACE "\\" "\\\\" text "${text}")
    string(REPLACE "\"" "\\\"" text "${text}")
    set(${out} "    \"${text}\\n\"\n" PARENT_SCOPE)
endfunction()

function(zmu_stamp_version target)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "EMPTY_TRANSLATION" "KEY;${ZMU_VERSION_KEYWORDS}" "TRANSLATION")
    if(ARG_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "zmu_stamp_version(${target}): unknown arguments ${ARG_UNPARSED_ARGUMENTS}")
    endif()
    get_target_property(stamped ${target} ZMU_VERSION_STAMPED)
    if(stamped)
        message(FATAL_ERROR "zmu_stamp_version(${target}): the target already has version data")
    endif()
    if(NOT ARG_KEY)
        set(ARG_KEY 040904B0)
    endif()
    if(ARG_EMPTY_TRANSLATION)
        if(ARG_TRANSLATION)
            message(FATAL_ERROR "zmu_stamp_version(${target}): give TRANSLATION or EMPTY_TRANSLATION, not both")
        endif()
    elseif(NOT ARG_TRANSLATION)
        set(ARG_TRANSLATION ${ARG_KEY})
    endif()
    foreach(key IN LISTS ARG_KEY ARG_TRANSLATION)
        string(LENGTH "${key}" length)
        if(NOT length EQUAL 8 OR NOT key MATCHES "^[0-9A-Fa-f]+$")
            message(FATAL_ERROR "zmu_stamp_version(${target}): '${key}' is not 8 hex digits (language, code page)")
        endif()
    endforeach()

    list(JOIN ARG_TRANSLATION " " translation)
    _zmu_version_literal("zmu-version 1" lines)
    _zmu_version_literal("Translation=${translation}" line)
    string(APPEND lines "${line}")
    foreach(keyword name IN ZIP_LISTS ZMU_VERSION_KEYWORDS ZMU_VERSION_NAMES)
        if(NOT DEFINED ARG_${keyword})
            continue()
        endif()
        if(ARG_${keyword} MATCHES "[\r\n]")
            message(FATAL_ERROR "zmu_stamp_version(${target}): ${keyword} must be one line")
        endif()
        _zmu_version_literal("${ARG_KEY}\\${name}=${ARG_${keyword}}" line)
        string(APPEND lines "${line}")
    endforeach()

    set(content "// Version data of ${target}, written by zmu_stamp_version (cmake/ZmuVersion.cmake).\n")
    string(APPEND content "namespace {\n")
    string(APPEND content "__attribute__((section(\".zmu_version\"), used))\n")
    string(APPEND content "const char zmuVersionText[] =\n${lines}    ;\n")
    string(APPEND content "} // namespace\n")

    # Rewritten only when the text changes, so that a new configure does not rebuild the target.
    set(source "${CMAKE_CURRENT_BINARY_DIR}/zmu_version/${target}_version.cpp")
    set(previous "")
    if(EXISTS "${source}")
        file(READ "${source}" previous)
    endif()
    if(NOT previous STREQUAL content)
        file(WRITE "${source}" "${content}")
    endif()
    target_sources(${target} PRIVATE "${source}")
    set_target_properties(${target} PROPERTIES ZMU_VERSION_STAMPED TRUE)
endfunction()
