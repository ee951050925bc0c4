# SPDX-License-Identifier: MIT
# Runs the tessiva tool once and checks its exit code and output.
#
#   cmake -DTOOL=<path> -DEXIT=<code> [checks] -P RunTool.cmake -- <arguments>
#
# Checks, for OUT (standard output) and ERR (standard error):
#   -D<OUT|ERR>=<text>        the whole stream is the text plus one newline
#   -D<OUT|ERR>_FILE=<path>   the whole stream is the file's contents
#   -D<OUT|ERR>_MATCHES=<re>  the stream matches the regular expression
#   -DOUT_ROWS=<n> -DOUT_ROW_PREFIX=<p>  n lines of standard output start with p
# -DIN_FILE=<path> gives the file as standard input; -DOUT_TO=<path> sends
# standard output there (/dev/full: a full disk) instead of checking it.
# An unchecked stream must be empty. Before comparing, hexadecimal addresses
# become 0xADDRESS and bytes in angle brackets <BYTES>: they change every run;
# with -DREPLACE=<text> -DREPLACE_WITH=<text>, that text is replaced too.
cmake_minimum_required(VERSION 3.25)

set(arguments)
set(collecting FALSE)
math(EXPR last "${CMAKE_ARGC} - 1")
foreach(index RANGE ${last})
    if(collecting)
        list(APPEND arguments "${CMAKE_ARGV${index}}")
    elseif(CMAKE_ARGV${index} STREQUAL "--")
        set(collecting TRUE)
    endif()
endforeach()

set(input)
if(DEFINED IN_FILE)
    set(input INPUT_FILE "${IN_FILE}")
endif()
# A run that never ends (a reply or an event that never comes) fails here,
# with its reason, long before ctest's own time-out.
if(NOT DEFINED DEADLINE)
    set(DEADLINE 30)
endif()
set(output OUTPUT_VARIABLE OUT_actual)
if(DEFINED OUT_TO)
    set(output OUTPUT_FILE "${OUT_TO}")
endif()
execute_process(COMMAND "${TOOL}" ${arguments} ${input} TIMEOUT ${DEADLINE}
    RESULT_VARIABLE exitCode ${output} ERROR_VARIABLE ERR_actual)
if(exitCode MATCHES "timeout")
    message(FATAL_ERROR "the tool did not finish within ${DEADLINE} s\n"
                        "standard output so far:\n${OUT_actual}")
endif()

set(failures "")
if(NOT exitCode STREQUAL EXIT)
    string(APPEND failures "exit code ${exitCode}, expected ${EXIT}\n")
endif()

foreach(stream OUT ERR)
    set(actual "${${stream}_actual}")
    string(REGEX REPLACE "0x[0-9a-f]+" "0xADDRESS" actual "${actual}")
    string(REGEX REPLACE "<[0-9a-f]+>" "<BYTES>" actual "${actual}")
    if(DEFINED REPLACE)
        string(REPLACE "${REPLACE}" "${REPLACE_WITH}" actual "${actual}")
    endif()
    set(checked FALSE)
    if(DEFINED ${stream})
        set(checked TRUE)
        if(NOT actual STREQUAL "${${stream}}\n")
            string(APPEND failures "${stream} is not \"${${stream}}\"\n")
        endif()
    endif()
    if(DEFINED ${stream}_FILE)
        set(checked TRUE)
        file(READ "${${stream}_FILE}" expected)
        if(NOT actual STREQUAL expected)
            string(APPEND failures "${stream} differs from ${${stream}_FILE}\n")
        endif()
    endif()
    if(DEFINED ${stream}_MATCHES)
        set(checked TRUE)
        if(NOT actual MATCHES "${${stream}_MATCHES}")
            string(APPEND failures "${stream} does not match \"${${stream}_MATCHES}\"\n")
        endif()
    endif()
    if(stream STREQUAL "OUT" AND DEFINED OUT_ROWS)
        set(checked TRUE)
        string(REGEX MATCHALL "(^|\n)${OUT_ROW_PREFIX}" rows "${actual}")
        list(LENGTH rows count)
        if(NOT count EQUAL OUT_ROWS)
            string(APPEND failures "${count} lines start with ${OUT_ROW_PREFIX}, expected ${OUT_ROWS}\n")
        endif()
    endif()
    if(NOT checked AND NOT actual STREQUAL "")
        string(APPEND failures "${stream} should be empty\n")
    endif()
endforeach()

if(failures)
    list(JOIN arguments " " command)
    message(FATAL_ERROR "tessiva ${command}:\n${failures}"
        "--- standard output\n${OUT_actual}--- standard error\n${ERR_actual}---")
endif()
